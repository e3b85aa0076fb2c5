#pragma once
// Supervises the local speech recogniser, a whisper-server child process on the loopback interface,
// and sends it recordings. Created by the controller on first use; lives as long as the program.
// Main thread only.

#include "Platform/Error.h"
#include "Platform/ProcessRunner.h"
#include "Platform/Scheduler.h"
#include "Quenda/Observable.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace quenda {

class Bundle;
class ConfigStore;
class HttpClient;

class WhisperEngine : public QObject {
    Q_OBJECT
public:
    struct State {
        enum class Kind { failed, stopped, starting, ready, idle };
        Kind kind = Kind::stopped;
        QString message; ///< of `failed` only

        static State failed(const QString &message) { return {Kind::failed, message}; }
        static State of(Kind kind) { return {kind, QString()}; }
        bool operator==(const State &) const = default;
        /// What the log and the settings window say of it.
        QString text() const;
    };

    /// What the engine needs of the rest of the program; all outlive it.
    struct Environment {
        ConfigStore &store;
        Scheduler &scheduler;
        ProcessRunner &processes;
        HttpClient &http;
        Bundle &bundle;
        /// Where a whisper-server that was installed by itself may lie, in order of preference.
        QStringList systemServerPaths{QStringLiteral("/opt/homebrew/bin/whisper-server"),
                                      QStringLiteral("/usr/local/bin/whisper-server")};
    };

    using Completion = std::function<void(const Result<QString> &)>;
    using Samples = std::shared_ptr<const std::vector<float>>;

    explicit WhisperEngine(const Environment &environment, QObject *parent = nullptr);
    ~WhisperEngine() override;

    std::function<void(const State &)> onStateChange;

    const State &state() const { return m_state.value(); }
    Observable<State> &observableState() { return m_state; }

    /// Brings the engine up from `stopped`, `idle` or `failed`; in `starting` and `ready` it does
    /// nothing. Blocks while stale servers on the port are ended.
    void start();
    /// Stops the server on purpose. Waits for nothing.
    void stop();

    /// "http://127.0.0.1:" and the port that the running server was given.
    QString baseURL() const;

    /// Recognises 16 kHz mono samples, which it shares until they are sent. `completion` gets the
    /// cleaned text or an error (codes 10 to 12, or the transport's own) exactly once, later or at
    /// once, unless the engine goes away.
    void transcribe(const Samples &samples, Completion completion);

    /// Removes annotations, folds white space and drops known hallucinations. Any thread; time
    /// linear in the length.
    static QString cleanTranscript(const QString &text);
    /// Strips um, uh, erm, er, hmm and mends the punctuation around them. Any thread; time linear
    /// in the length.
    static QString removeFillerWords(const QString &text);

private:
    void setState(const State &state);
    void announce(const State &state);
    bool is(State::Kind kind) const { return state().kind == kind; }
    std::optional<QString> resolveServerPath(const QString &configured) const;
    std::optional<QString> bundledVADModelPath() const;
    QStringList serverArguments(const QString &modelPath, qint64 port) const;
    void killStaleServers(qint64 port);
    void waitUntilReady(int attempt, quint64 generation);
    void handleUnexpectedExit(int status);
    void unloadIfIdle();
    void releaseProcess();
    void waitThenTranscribe(const Samples &samples, std::chrono::milliseconds deadline,
                            const Completion &completion);
    void performTranscription(const std::vector<float> &samples, Completion completion);

    Environment m_env;
    std::unique_ptr<ChildProcess> m_process; ///< the latest child; it may have ended
    qint64 m_activePort = 0;
    std::chrono::milliseconds m_lastActivity; ///< uptime of the last use or of getting ready
    Scheduler::TimerHandle m_idleTimer;
    Observable<State> m_state;
    std::optional<std::chrono::milliseconds> m_lastCrashAt; ///< uptime
    int m_consecutiveCrashes = 0;
    quint64 m_generation = 0; ///< of the launched servers; polls of an earlier one are void
};

} // namespace quenda
