#pragma once
// The one-click repair of a permission that is listed as granted but no longer applies: erase the
// system's record, relaunch, and ask afresh on the next launch. Its only state is one user default
// that survives the relaunch. Owned by the controller. Main thread only.

#include <QObject>
#include <QString>

#include <functional>

class QSettings;

namespace quenda {

class Scheduler;
struct Platform;

class PermissionFixer : public QObject {
    Q_OBJECT
public:
    struct Environment {
        Platform &platform;
        Scheduler &scheduler;
        QSettings &defaults;
        std::function<void()> terminate;
    };

    explicit PermissionFixer(Environment environment, QObject *parent = nullptr);

    /// Erases the permission `service` ("Microphone" or "Accessibility"), arranges a relaunch and
    /// ends the program. Does nothing at all where the program has no bundle identifier.
    void resetAndRelaunch(const QString &service);

    /// Called once at launch: asks again for the permission whose repair was begun before it.
    void completePendingFixIfNeeded();

    /// Opens the system's privacy settings at "Privacy_Microphone" or "Privacy_Accessibility".
    void openSystemSettings(const QString &pane);

    /// Asks for microphone access and ignores the answer.
    void requestMicrophone();

private:
    void relaunch();

    Environment m_env;
};

} // namespace quenda
