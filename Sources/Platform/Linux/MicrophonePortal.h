#pragma once
// What the desktop's portals say about this program and the microphone, where it runs in a sandbox:
// the permission that is on record, news of it, and the question to the user. Owned by the
// microphone permission. Main thread, which never waits for the bus: that is asked for a sign of
// life, then met on another thread; all questions are answered later.
//
// Of the portals' own documentation: org.freedesktop.portal.Device and .Request, and
// org.freedesktop.impl.portal.PermissionStore.

#include "Platform/MicrophonePermission.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QLocalSocket;

namespace quenda {

class MicrophonePortal final : public QObject {
    Q_OBJECT
public:
    struct Options {
        QString application;   ///< as the portals know it
        QByteArray busAddress; ///< of the session's bus
        // How long others may take until they are done without.
        std::chrono::milliseconds busLimit{3000};
        std::chrono::milliseconds storeLimit{5000};
        std::chrono::milliseconds questionLimit{25000}; ///< to begin asking; the user may take long
    };

    /// Begins to look; returns at once.
    static std::shared_ptr<MicrophonePortal> create(const Options &options);
    ~MicrophonePortal() override;

    /// What is known now. None where no portal governs the microphone: none is there, or it keeps
    /// silent, or it takes no questions from inside a sandbox and leaves them to the sound server.
    std::optional<AuthorizationStatus> status() const;
    /// Asks the user where the status is not determined. `settled` is called when the answer is
    /// there, or when none is to be expected.
    void request(std::function<void()> settled);
    /// Nothing is called any more.
    void stop();

public Q_SLOTS:
    /// Signals of the bus: they are for nobody else.
    void storeChanged(const QDBusMessage &signal);
    void userAnswered(const QDBusMessage &signal);
    void portalChangedHands(const QString &name, const QString &before, const QString &after);
    void busGone();

private:
    enum class Stage { connecting, lookingUp, known, asking };

    explicit MicrophonePortal(const Options &options);
    static void connectToBus(const std::shared_ptr<MicrophonePortal> &portal);
    void connected(bool succeeded);
    void lookUp();
    void lookedUp(const QDBusMessage &reply);
    void proceed();
    void ask();
    void questionTaken(const QDBusMessage &reply);
    void conclude(std::optional<AuthorizationStatus> status);
    void send(const QDBusMessage &call, std::chrono::milliseconds limit,
              std::function<void(const QDBusMessage &)> handler);

    Options m_options;
    QString m_connectionName;
    std::unique_ptr<QLocalSocket> m_signOfLife;
    Stage m_stage = Stage::connecting;
    std::optional<AuthorizationStatus> m_status = AuthorizationStatus::NotDetermined;
    QStringList m_record; ///< what the store holds for this program
    QString m_question;   ///< the object path of the request that is open, or was the last
    int m_questions = 0;
    std::vector<std::function<void()>> m_waiting;
};

} // namespace quenda
