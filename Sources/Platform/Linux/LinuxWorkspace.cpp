#include "Platform/Linux/LinuxWorkspace.h"

#include "Platform/Linux/X11DesktopWatch.h"
#include "Platform/Linux/X11Windows.h"

#include <QApplication>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QProcess>
#include <QScreen>
#include <QStandardPaths>
#include <QTimer>
#include <QWidget>

#include <array>
#include <utility>

namespace quenda {

namespace {

struct SoundSettings {
    const char *desktop; ///< as XDG_CURRENT_DESKTOP names it; null: any
    const char *program;
    const char *argument; ///< null: none
};

// The desktops' own settings refuse to run elsewhere; the mixers at the end run everywhere.
constexpr std::array kSoundSettings = {
    SoundSettings{"GNOME", "gnome-control-center", "sound"},
    SoundSettings{"Unity", "gnome-control-center", "sound"},
    SoundSettings{"Budgie", "gnome-control-center", "sound"},
    SoundSettings{"KDE", "systemsettings", "kcm_pulseaudio"},
    SoundSettings{"KDE", "systemsettings5", "kcm_pulseaudio"},
    SoundSettings{"X-Cinnamon", "cinnamon-settings", "sound"},
    SoundSettings{"MATE", "mate-volume-control", nullptr},
    SoundSettings{"LXQt", "pavucontrol-qt", nullptr},
    SoundSettings{nullptr, "pavucontrol", nullptr},
    SoundSettings{nullptr, "pavucontrol-qt", nullptr},
    SoundSettings{nullptr, "xfce4-mixer", nullptr},
};

bool startDetached(const QString &program, const QStringList &arguments) {
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    return process.startDetached();
}

bool openSoundSettings() {
    const QStringList desktops = qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':');
    for (const SoundSettings &settings : kSoundSettings) {
        if (settings.desktop && !desktops.contains(QLatin1String(settings.desktop)))
            continue;
        const QString program =
            QStandardPaths::findExecutable(QString::fromLatin1(settings.program));
        if (program.isEmpty())
            continue;
        QStringList arguments;
        if (settings.argument)
            arguments.append(QString::fromLatin1(settings.argument));
        if (startDetached(program, arguments))
            return true;
    }
    return false;
}

// A window that a person works with: not the pill, a menu or a tool tip.
bool isWorkWindow(const QWidget &window) {
    return window.isVisible() && !window.windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus) &&
           (window.windowType() == Qt::Window || window.windowType() == Qt::Dialog ||
            window.windowType() == Qt::Sheet);
}

void activate(QWidget &window) {
    if (window.isMinimized())
        window.setWindowState((window.windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    window.raise();
    window.activateWindow();
    x11::activate(window.windowHandle());
}

void activateWindows() {
    QWidget *last = QApplication::activeModalWidget();
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        if (!isWorkWindow(*window))
            continue;
        window->raise();
        if (!last)
            last = window;
    }
    if (last)
        activate(*last);
}

} // namespace

LinuxWorkspace::LinuxWorkspace(QString executable)
    : m_executable(std::move(executable)),
      m_desktop(X11DesktopWatch::create()) {
    if (m_desktop)
        m_desktop->onRestacked = [this] { raisePanels(); };
}

LinuxWorkspace::~LinuxWorkspace() = default;

bool LinuxWorkspace::open(const QUrl &url) {
    static const QStringList opened = {QStringLiteral("https"), QStringLiteral("http"),
                                       QStringLiteral("file")};
    return url.isValid() && opened.contains(url.scheme()) && QDesktopServices::openUrl(url);
}

bool LinuxWorkspace::openPrivacyPane(const QString &pane) {
    return pane == QLatin1String("Privacy_Microphone") && openSoundSettings();
}

// Once now, and once more after this round of the event loop: an alert that the caller is about to
// show comes to the front too.
void LinuxWorkspace::activateProgram() {
    activateWindows();
    QTimer::singleShot(0, this, [] { activateWindows(); });
}

// The shell belongs to a session of its own and so outlives this process. The path is its argument,
// never part of the command's text: no character in it means anything to the shell.
void LinuxWorkspace::relaunchAfterExit() {
    startDetached(QStringLiteral("/bin/sh"),
                  {QStringLiteral("-c"), QStringLiteral("sleep 0.7; exec \"$0\""), m_executable});
}

void LinuxWorkspace::makeFloatingPanel(QWindow *window, int cornerRadius) {
    m_panels.removeAll(nullptr);
    m_panels.append(window);
    const bool compositing = isCompositing();
    const auto shape = [window, cornerRadius, compositing] {
        x11::cutCorners(window, cornerRadius, !compositing);
    };
    x11::markAsFloating(window);
    shape();
    // Another screen may have another density, and the shape counts device pixels.
    connect(window, &QWindow::screenChanged, window, shape);
    connect(window, &QWindow::visibleChanged, window, shape);
}

void LinuxWorkspace::raisePanels() {
    for (const QPointer<QWindow> &panel : std::as_const(m_panels))
        if (panel && panel->isVisible())
            panel->raise();
}

bool LinuxWorkspace::isCompositing() const {
    return !m_desktop || m_desktop->isCompositing();
}

void LinuxWorkspace::setCompositingHandler(std::function<void()> handler) {
    if (m_desktop)
        m_desktop->onCompositingChanged = std::move(handler);
}

} // namespace quenda
