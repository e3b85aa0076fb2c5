// What the windows cost, on the real platform. Opens the settings window twice, then the other
// windows once, closes each again, and prints
//
//   settings_first_ms T settings_second_ms T pss_before_kb N pss_after_kb N
//
// where opening lasts from the wish to the moment the server has the painted window.

#include "Platform/Folders.h"
#include "Platform/Platform.h"
#include "Quenda/AboutView.h"
#include "Quenda/ConfigStore.h"
#include "Quenda/ModelDownloader.h"
#include "Quenda/NetworkHttpClient.h"
#include "Quenda/PermissionFixer.h"
#include "Quenda/SettingsView.h"
#include "Quenda/TimerScheduler.h"
#include "Quenda/WelcomeView.h"
#include "Quenda/WhisperEngine.h"
#include "Quenda/WindowFrame.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSettings>
#include <QTimer>

#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>

namespace {

using namespace quenda;

struct PaintWatch final : QObject {
    bool seen = false;
    bool eventFilter(QObject *, QEvent *event) override {
        seen = seen || event->type() == QEvent::Paint;
        return false;
    }
};

void waitForServer() {
    xcb_connection_t *server =
        qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
    std::free(xcb_get_input_focus_reply(server, xcb_get_input_focus(server), nullptr));
}

// `window` makes the window where there is none yet.
double millisecondsToOpen(const std::function<QWidget &()> &window) {
    PaintWatch paint;
    QElapsedTimer elapsed;
    elapsed.start();
    QWidget &opened = window();
    opened.installEventFilter(&paint);
    presentWindow(opened);
    while (!paint.seen)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    waitForServer();
    const double spent = double(elapsed.nsecsElapsed()) / 1e6;
    opened.removeEventFilter(&paint);
    return spent;
}

void settle(int milliseconds) {
    QTimer::singleShot(milliseconds, qApp, [] { QCoreApplication::exit(0); });
    QCoreApplication::exec();
}

long proportionalKilobytes() {
    QFile file(QStringLiteral("/proc/self/smaps_rollup"));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("Pss:"))
            return line.mid(4).trimmed().split(' ').first().toLong();
    }
    return -1;
}

} // namespace

int main(int argc, char **argv) {
    prepareApplication();
    Folders::install(platformFolders());
    QApplication application(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Quenda"));
    QApplication::setApplicationName(QStringLiteral("Quenda"));
    QApplication::setQuitOnLastWindowClosed(false);

    Platform platform = createPlatform();
    TimerScheduler scheduler;
    NetworkHttpClient http;
    QSettings defaults;
    ConfigStore store;
    ModelDownloader downloader(http);
    PermissionFixer fixer({platform, scheduler, defaults, [] {}});
    WhisperEngine engine({store, scheduler, *platform.processes, http, *platform.bundle});
    settle(1000);
    const long before = proportionalKilobytes();

    std::unique_ptr<SettingsView> settings;
    const auto openSettings = [&]() -> QWidget & {
        if (!settings) {
            settings = std::make_unique<SettingsView>(SettingsView::Environment{
                store, engine, downloader, fixer, platform, scheduler, [] {}});
            frameWindow(*settings, QStringLiteral("Quenda Settings"),
                        QSize(SettingsView::kContentWidth, SettingsView::kContentHeight));
        }
        return *settings;
    };
    const double first = millisecondsToOpen(openSettings);
    settle(500);
    settings->close();
    settle(500);
    const double second = millisecondsToOpen(openSettings);
    settle(500);
    settings->close();

    WelcomeView welcome({store, downloader, fixer, platform, scheduler, [] {}});
    frameWindow(welcome, QStringLiteral("Welcome to Quenda"));
    AboutView about(*platform.bundle, *platform.workspace);
    frameWindow(about, QStringLiteral("About Quenda"));
    for (QWidget *window : {static_cast<QWidget *>(&welcome), static_cast<QWidget *>(&about)}) {
        millisecondsToOpen([window]() -> QWidget & { return *window; });
        settle(500);
        window->close();
    }
    settle(1000);
    std::printf("settings_first_ms %.1f settings_second_ms %.1f pss_before_kb %ld "
                "pss_after_kb %ld\n",
                first, second, before, proportionalKilobytes());
    return 0;
}
