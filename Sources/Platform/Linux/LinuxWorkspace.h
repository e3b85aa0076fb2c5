#pragma once
// The desktop around the program: opening things, coming to the front, starting again, floating
// panels. Built with the platform, after the application object; works on X11, and with what Qt
// alone can do on other window systems. Main thread only.

#include "Platform/Desktop.h"

#include <QCoreApplication>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QWindow>

#include <memory>

namespace quenda {

class X11DesktopWatch;

class LinuxWorkspace final : public QObject, public Workspace {
    Q_OBJECT
public:
    /// `executable` is what relaunchAfterExit() starts.
    explicit LinuxWorkspace(QString executable = QCoreApplication::applicationFilePath());
    ~LinuxWorkspace() override;

    /// Only web and file addresses are opened; others are refused. The handler (xdg-open) is
    /// started detached, so that true means "started", not "shown".
    bool open(const QUrl &url) override;
    /// "Privacy_Microphone" opens the desktop's sound settings where they are installed. No desktop
    /// here has a place for "Privacy_Accessibility".
    bool openPrivacyPane(const QString &pane) override;
    void activateProgram() override;
    /// Nothing to erase: neither the sound server nor X11 keeps permissions per program.
    void resetPermission(const QString &) override {}
    void relaunchAfterExit() override;
    void makeFloatingPanel(QWindow *window, int cornerRadius) override;
    bool isCompositing() const override;
    void setCompositingHandler(std::function<void()> handler) override;
    QString keyBindingAdvice() const override;

private:
    void raisePanels();

    QString m_executable; ///< known from the start: an update may replace the file meanwhile
    std::unique_ptr<X11DesktopWatch> m_desktop; ///< null without an X server
    QList<QPointer<QWindow>> m_panels;
};

} // namespace quenda
