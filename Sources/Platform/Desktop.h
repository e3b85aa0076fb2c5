#pragma once
// The smaller things that a desktop gives: sounds, session events, launch at login, opening things,
// and what the program's own bundle says. Main thread only.

#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <optional>

class QIcon;
class QWindow;

namespace quenda {

class Sounds {
public:
    virtual ~Sounds() = default;
    /// Starts the named cue ("Pop", "Tink", "Bottle") and returns at once. A name without a sound,
    /// or a desktop without a sound system, plays nothing.
    virtual void play(const QString &name) = 0;
    /// The desktop's alert sound.
    virtual void beep() = 0;
};

class SessionEvents {
public:
    virtual ~SessionEvents() = default;
    /// Called after the machine woke from sleep. Replaces an earlier handler.
    virtual void setWakeHandler(std::function<void()> handler) = 0;
    /// Called for each SIGTERM and SIGINT; from then on neither signal ends the process by itself.
    /// Child processes start with both signals at their defaults. Replaces an earlier handler.
    virtual void setTerminateHandler(std::function<void()> handler) = 0;
};

enum class LoginItemOutcome {
    Done,
    Refused, ///< the system did not take the change; isEnabled() tells what holds
};

class LoginItem {
public:
    virtual ~LoginItem() = default;
    /// Whether the system will start the program at login, as the system has it now.
    virtual bool isEnabled() const = 0;
    virtual LoginItemOutcome setEnabled(bool enabled) = 0;
};

class Workspace {
public:
    virtual ~Workspace() = default;
    /// Opens a web address or a file address with the system's default handler.
    /// False where there is none.
    virtual bool open(const QUrl &url) = 0;
    /// Opens the system's privacy settings at "Privacy_Microphone" or "Privacy_Accessibility".
    /// False where the desktop has no such place.
    virtual bool openPrivacyPane(const QString &pane) = 0;
    /// Brings the program to the front.
    virtual void activateProgram() = 0;
    /// Erases the system's record of the permission `service` ("Microphone", "Accessibility") for
    /// this program and waits until that is done. Failures are ignored.
    virtual void resetPermission(const QString &service) = 0;
    /// Arranges that the program is started again once this process has ended.
    virtual void relaunchAfterExit() = 0;
    /// Makes `window` float above full-screen windows on every workspace without ever taking the
    /// keyboard focus. Outside of corners of `cornerRadius` (device-independent pixels) it takes
    /// no clicks and, while the desktop is not compositing, shows nothing. Called after each
    /// creation of the window's native side, before that is shown.
    virtual void makeFloatingPanel(QWindow *window, int cornerRadius) = 0;
    /// Whether the desktop blends translucent windows with what lies below them.
    virtual bool isCompositing() const = 0;
    /// Called when the answer of isCompositing() has changed. Replaces an earlier handler.
    virtual void setCompositingHandler(std::function<void()> handler) = 0;
    /// Where a person binds keys to command lines on this desktop, and how, in a sentence or two;
    /// empty where that is not known.
    virtual QString keyBindingAdvice() const = 0;
};

/// What the program's own package says of it.
class Bundle {
public:
    virtual ~Bundle() = default;
    virtual std::optional<QString> shortVersion() const = 0; ///< such as "1.4.0"
    virtual std::optional<QString> version() const = 0;      ///< the build, such as "57"
    virtual std::optional<QString> identifier() const = 0;
    virtual std::optional<QString> resourceDirectory() const = 0;
};

} // namespace quenda
