#include "Quenda/WhisperEngine.h"

#include "Platform/Desktop.h"
#include "Quenda/ConfigStore.h"
#include "Quenda/HttpClient.h"
#include "Quenda/Log.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QUrl>

#include <utility>

namespace quenda {

using namespace std::chrono_literals;

namespace {

constexpr auto kIdleCheckInterval = 60s;
constexpr auto kPollInterval = 500ms;
constexpr auto kPollTimeout = 2s;
constexpr int kLastPoll = 240; // counted from 0: about two minutes
constexpr auto kCrashWindow = 60s;
constexpr int kCrashesToGiveUp = 4;
constexpr auto kRestartDelay = 2s;

const auto kServerName = QStringLiteral("bin/whisper-server");
const auto kVADModelName = QStringLiteral("ggml-silero-v5.1.2.bin");

bool isExecutableFile(const QString &path) {
    const QFileInfo file(path);
    return file.isFile() && file.isExecutable();
}

} // namespace

QString WhisperEngine::State::text() const {
    switch (kind) {
    case Kind::failed:
        return message;
    case Kind::stopped:
        return tr("Stopped");
    case Kind::starting:
        return tr("Loading model…");
    case Kind::ready:
        return tr("Ready");
    case Kind::idle:
        return tr("Idle — model unloaded (wakes on use)");
    }
    return {};
}

WhisperEngine::WhisperEngine(const Environment &environment, QObject *parent)
    : QObject(parent),
      m_env(environment),
      m_lastActivity(m_env.scheduler.uptime()),
      m_idleTimer(m_env.scheduler.every(kIdleCheckInterval, [this] { unloadIfIdle(); })),
      m_state(State::of(State::Kind::stopped)) {}

WhisperEngine::~WhisperEngine() = default;

void WhisperEngine::setState(const State &newState) {
    m_state.set(newState);
    if (newState.kind == State::Kind::ready)
        m_lastActivity = m_env.scheduler.uptime();
    Log::log(QStringLiteral("engine: ") + newState.text());
    announce(newState);
}

void WhisperEngine::announce(const State &newState) {
    const auto callback = onStateChange; // it may be replaced from inside the call
    if (callback)
        callback(newState);
}

std::optional<QString> WhisperEngine::resolveServerPath(const QString &configured) const {
    QStringList candidates;
    if (!configured.isEmpty())
        candidates.append(configured);
    if (const std::optional<QString> resources = m_env.bundle.resourceDirectory())
        candidates.append(QDir(*resources).filePath(kServerName));
    candidates.append(m_env.systemServerPaths);
    for (const QString &candidate : std::as_const(candidates)) {
        if (isExecutableFile(candidate))
            return candidate;
    }
    return std::nullopt;
}

std::optional<QString> WhisperEngine::bundledVADModelPath() const {
    QStringList candidates;
    if (const std::optional<QString> resources = m_env.bundle.resourceDirectory())
        candidates.append(QDir(*resources).filePath(QStringLiteral("bin/") + kVADModelName));
    // What a developer's checkout has beside it.
    candidates.append(QDir::currentPath() + QStringLiteral("/vendor/") + kVADModelName);
    for (const QString &candidate : std::as_const(candidates)) {
        if (QFileInfo::exists(candidate))
            return candidate;
    }
    return std::nullopt;
}

QStringList WhisperEngine::serverArguments(const QString &modelPath, qint64 port) const {
    QStringList arguments{QStringLiteral("-m"),
                          modelPath,
                          QStringLiteral("--host"),
                          QStringLiteral("127.0.0.1"),
                          QStringLiteral("--port"),
                          QString::number(port),
                          QStringLiteral("--no-timestamps")};
    if (const std::optional<QString> vadModel = bundledVADModelPath())
        arguments << QStringLiteral("--vad") << QStringLiteral("--vad-model") << *vadModel;
    return arguments;
}

// A server that an earlier run of the program left behind would take this one's requests: the port
// is opened for sharing.
void WhisperEngine::killStaleServers(qint64 port) {
    m_env.processes.runAndWait(
        QStringLiteral("/usr/bin/pkill"),
        {QStringLiteral("-f"), QStringLiteral("whisper-server.*--port %1").arg(port)});
}

void WhisperEngine::start() {
    if (is(State::Kind::starting) || is(State::Kind::ready))
        return;
    const Config config = m_env.store.config();
    const std::optional<QString> path = resolveServerPath(config.whisperServerPath);
    if (!path) {
        setState(State::failed(
            tr("whisper-server not found. Reinstall Quenda or run: brew install whisper-cpp")));
        return;
    }
    if (!QFileInfo::exists(config.modelPath)) {
        setState(State::failed(tr("No model installed yet. Open Settings to download one.")));
        return;
    }
    setState(State::of(State::Kind::starting));
    m_activePort = config.serverPort;
    killStaleServers(config.serverPort);

    LaunchRequest request;
    request.executable = *path;
    request.arguments = serverArguments(config.modelPath, config.serverPort);
    QDir().mkpath(Log::dir());
    request.outputFile = QDir(Log::dir()).filePath(QStringLiteral("whisper-server.log"));
    Result<std::unique_ptr<ChildProcess>> launched =
        m_env.processes.launch(request, [engine = QPointer<WhisperEngine>(this)](int status) {
            if (engine)
                engine->handleUnexpectedExit(status);
        });
    if (!launched) {
        setState(State::failed(tr("Could not launch whisper-server: ") +
                               launched.error().localizedDescription));
        return;
    }
    // An earlier child that is still there keeps its exit handler: killStaleServers() has ended it,
    // and its exit counts as a crash of this start. The crash window bounds that.
    m_process = std::move(launched).value();
    Log::log(QStringLiteral("engine: launched whisper-server pid=%1").arg(m_process->processId()));
    waitUntilReady(0, ++m_generation);
}

void WhisperEngine::releaseProcess() {
    if (!m_process)
        return;
    m_process->clearTerminationHandler();
    m_process->terminate();
    m_process.reset();
}

void WhisperEngine::stop() {
    const State stopped = State::of(State::Kind::stopped);
    m_state.set(stopped);
    announce(stopped);
    releaseProcess();
}

QString WhisperEngine::baseURL() const {
    return QStringLiteral("http://127.0.0.1:%1").arg(m_activePort);
}

void WhisperEngine::waitUntilReady(int attempt, quint64 generation) {
    // After a stop and a new start within a poll's time two chains would run side by side, and an
    // answer of the former server would make the new one ready.
    if (!is(State::Kind::starting) || generation != m_generation)
        return;
    if (attempt > kLastPoll) {
        setState(State::failed(tr("whisper-server did not become ready in time")));
        return;
    }
    HttpRequest request;
    request.url = QUrl(baseURL());
    request.timeout = kPollTimeout;
    request.route = HttpRequest::Route::Direct;
    m_env.http.send(request, this, [this, attempt, generation](const HttpResponse &response) {
        if (!is(State::Kind::starting) || generation != m_generation)
            return;
        if (!response.transportError && response.status && *response.status < 500) {
            setState(State::of(State::Kind::ready));
            return;
        }
        m_env.scheduler.after(kPollInterval, this, [this, attempt, generation] {
            waitUntilReady(attempt + 1, generation);
        });
    });
}

void WhisperEngine::handleUnexpectedExit(int status) {
    if (is(State::Kind::stopped))
        return;
    const std::chrono::milliseconds now = m_env.scheduler.uptime();
    const bool inWindow = m_lastCrashAt && now - *m_lastCrashAt < kCrashWindow;
    m_consecutiveCrashes = inWindow ? m_consecutiveCrashes + 1 : 1;
    m_lastCrashAt = now;
    Log::log(QStringLiteral("engine: whisper-server exited unexpectedly (status %1, crash %2 in "
                            "window)")
                 .arg(status)
                 .arg(m_consecutiveCrashes));
    if (m_consecutiveCrashes >= kCrashesToGiveUp) {
        setState(State::failed(tr("whisper-server keeps crashing — see "
                                  "~/Library/Logs/Quenda/whisper-server.log")));
        return;
    }
    setState(State::failed(tr("whisper-server crashed — restarting…")));
    m_env.scheduler.after(kRestartDelay, this, [this] {
        if (is(State::Kind::failed))
            start();
    });
}

void WhisperEngine::unloadIfIdle() {
    const qint64 minutes = m_env.store.config().idleUnloadMinutes;
    if (minutes < 1 || !is(State::Kind::ready))
        return;
    // "More than `minutes`" in whole milliseconds, without multiplying what the settings file says.
    const std::chrono::milliseconds unused = m_env.scheduler.uptime() - m_lastActivity;
    if ((unused - 1ms) / 1min < minutes)
        return;
    Log::log(QStringLiteral("engine: idle for %1m — unloading model to free memory").arg(minutes));
    releaseProcess();
    setState(State::of(State::Kind::idle));
}

} // namespace quenda
