// What the pill costs. Prints one line of figures after SECONDS:
//
//   pill-bench pill SECONDS     the pill while recording, at its full pace
//   pill-bench bare SECONDS     a plain widget of the same size that fills an equal area as often
//   pill-bench hidden SECONDS   the pill after it was shown and hidden again
//   pill-bench show             how long the first and the next show take until the server has it

#include "Platform/Linux/LinuxWorkspace.h"
#include "Quenda/PillPanel.h"
#include "Quenda/RecordingIndicator.h"
#include "Quenda/TimerScheduler.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QPainter>
#include <QTimer>
#include <QWidget>

#include <sys/resource.h>
#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

using quenda::PillPanel;
using quenda::RecordingIndicator;

// The pill's meter and its pulsing dot are repainted as one rectangle of this size.
constexpr QRect kPainted(19, 12, 88, 32);

class BareWidget final : public QWidget {
public:
    explicit BareWidget(bool translucent)
        : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                               Qt::WindowDoesNotAcceptFocus | Qt::BypassWindowManagerHint) {
        setAttribute(translucent ? Qt::WA_TranslucentBackground : Qt::WA_OpaquePaintEvent);
        setFixedSize(PillPanel::panelSize);
    }
    void paintEvent(QPaintEvent *) override {
        QPainter(this).fillRect(kPainted, ++m_turn % 2 ? Qt::blue : Qt::darkBlue);
    }

private:
    int m_turn = 0;
};

rusage used() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage;
}

double seconds(const timeval &time) {
    return double(time.tv_sec) + double(time.tv_usec) / 1e6;
}

void waitForServer() {
    xcb_connection_t *server =
        qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
    std::free(xcb_get_input_focus_reply(server, xcb_get_input_focus(server), nullptr));
}

// Until the window was painted and the server has put it on the screen.
double millisecondsToShow(RecordingIndicator &indicator) {
    struct Painted final : QObject {
        bool seen = false;
        bool eventFilter(QObject *, QEvent *event) override {
            seen = seen || event->type() == QEvent::Paint;
            return false;
        }
    } painted;
    QElapsedTimer elapsed;
    elapsed.start();
    indicator.show(RecordingIndicator::Mode::recording, [] { return 0.5F; });
    indicator.panel()->installEventFilter(&painted);
    while (!painted.seen)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    waitForServer();
    return double(elapsed.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char **argv) {
    QApplication application(argc, argv);
    application.setQuitOnLastWindowClosed(false);
    const QString mode = application.arguments().value(1);
    const int duration = application.arguments().value(2).toInt();

    quenda::TimerScheduler scheduler;
    quenda::LinuxWorkspace workspace;
    RecordingIndicator indicator(scheduler, workspace);
    std::unique_ptr<BareWidget> bare;
    quenda::Scheduler::TimerHandle timer;
    if (mode == QLatin1String("show")) {
        const double first = millisecondsToShow(indicator);
        indicator.hide();
        waitForServer();
        const double next = millisecondsToShow(indicator);
        std::printf("first_show_ms %.1f next_show_ms %.1f\n", first, next);
        return 0;
    }
    if (mode == QLatin1String("bare") && duration > 0) {
        bare = std::make_unique<BareWidget>(workspace.isCompositing());
        bare->show();
        timer = scheduler.every(quenda::GradientEQView::tickInterval,
                                [&bare] { bare->update(kPainted); });
    } else if ((mode == QLatin1String("pill") || mode == QLatin1String("hidden")) && duration > 0) {
        indicator.show(RecordingIndicator::Mode::recording, [] { return 0.5F; });
    } else {
        std::fprintf(stderr, "pill-bench pill|bare|hidden SECONDS, or pill-bench show\n");
        return 2;
    }

    // The first second goes to starting up and is not counted.
    rusage before{};
    QTimer::singleShot(1000, &application, [&] {
        if (mode == QLatin1String("hidden"))
            indicator.hide();
        QTimer::singleShot(200, &application, [&] {
            before = used();
            QTimer::singleShot(duration * 1000, &application, &QCoreApplication::quit);
        });
    });
    QApplication::exec();
    const rusage after = used();
    const double cpu = seconds(after.ru_utime) + seconds(after.ru_stime) -
                       seconds(before.ru_utime) - seconds(before.ru_stime);
    // One of the sleeps is that from which the end of the measurement itself woke the program.
    std::printf("cpu_seconds %.4f percent_of_core %.3f wakeups %ld rss_kb %ld\n", cpu,
                100 * cpu / duration, after.ru_nvcsw - before.ru_nvcsw - 1, after.ru_maxrss);
    return 0;
}
