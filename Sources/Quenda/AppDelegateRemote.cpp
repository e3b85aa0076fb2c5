// What other processes of the user ask the running program to do.

#include "Quenda/AppDelegate.h"

#include <QPointer>

namespace quenda {

namespace {

RemoteAnswer refused(const QString &why) {
    return {why, {}, {}};
}

QString engineWord(WhisperEngine::State::Kind kind) {
    using Kind = WhisperEngine::State::Kind;
    switch (kind) {
    case Kind::stopped:
        return QStringLiteral("stopped");
    case Kind::starting:
        return QStringLiteral("starting");
    case Kind::ready:
        return QStringLiteral("ready");
    case Kind::idle:
        return QStringLiteral("idle");
    case Kind::failed:
        return QStringLiteral("failed");
    }
    Q_UNREACHABLE();
}

} // namespace

void AppDelegate::takeRequests() {
    m_env.platform.remoteControl->setHandler(
        [self = QPointer<AppDelegate>(this)](const RemoteRequest &request) {
            return self ? self->carryOut(request) : refused(tr("Quenda is about to end."));
        });
}

RemoteAnswer AppDelegate::carryOut(const RemoteRequest &request) {
    switch (request.command) {
    case RemoteCommand::Start:
        return m_isDictating ? refused(tr("A dictation is running already.")) : begin(false);
    case RemoteCommand::Stop:
        return end(&AppDelegate::finishDictation);
    case RemoteCommand::Toggle:
        return m_isDictating ? end(&AppDelegate::finishDictation) : begin(true);
    case RemoteCommand::Cancel:
        return end(&AppDelegate::escapePressed);
    case RemoteCommand::Retry:
        return retry();
    case RemoteCommand::Status:
        return status();
    case RemoteCommand::History:
        return {{}, {}, m_history};
    case RemoteCommand::CopyHistory:
        return copyEntry(request.entry);
    case RemoteCommand::ShowSettings:
        openSettings();
        return {};
    case RemoteCommand::ShowWelcome:
        openWelcome();
        return {};
    case RemoteCommand::ShowAbout:
        openAbout();
        return {};
    case RemoteCommand::Quit:
        // Once the answer is out.
        m_env.scheduler.after(std::chrono::milliseconds(0), this, [this] { m_env.terminate(); });
        return {};
    }
    return refused(tr("Quenda does not know how to do that."));
}

// A dictation that no held key ends gets the cap of one that was switched on, whatever the mode.
RemoteAnswer AppDelegate::begin(bool capped) {
    hotkeyPressed();
    if (m_isDictating) {
        if (capped)
            startCap();
        return {};
    }
    if (!transcriberIsReady())
        return refused(tr("Quenda is not ready to dictate: %1").arg(statusLine()));
    return refused(tr("The recording could not be started."));
}

RemoteAnswer AppDelegate::end(void (AppDelegate::*how)()) {
    if (!m_isDictating)
        return refused(tr("No dictation is running."));
    (this->*how)();
    return {};
}

RemoteAnswer AppDelegate::retry() {
    switch (retryDictation()) {
    case RetryOutcome::started:
        return {};
    case RetryOutcome::nothingToRetry:
        return refused(tr("There is no failed dictation to send again."));
    case RetryOutcome::busy:
        return refused(tr("Not now: a dictation is being recorded or sent again already."));
    case RetryOutcome::notReady:
        return refused(tr("Quenda is not ready to dictate: %1").arg(statusLine()));
    }
    Q_UNREACHABLE();
}

RemoteAnswer AppDelegate::copyEntry(quint32 entry) {
    if (m_history.isEmpty())
        return refused(tr("There are no dictations yet."));
    if (entry < 1 || entry > quint32(m_history.size()))
        return refused(tr("There is no dictation number %1; the history holds %2.")
                           .arg(entry)
                           .arg(m_history.size()));
    copyHistoryItem(m_history.at(qsizetype(entry) - 1));
    return {};
}

RemoteAnswer AppDelegate::status() {
    const Config &config = m_store->config();
    QString state = engineWord(engine().state().kind);
    if (config.provider != TranscriptionProvider::local)
        state = config.apiKey().isEmpty() ? QStringLiteral("keyMissing") : QStringLiteral("ready");
    RemoteAnswer answer;
    answer.status = {
        {QStringLiteral("state"), state},
        {QStringLiteral("statusLine"), statusLine()},
        {QStringLiteral("recording"), m_isDictating},
        {QStringLiteral("transcribing"), m_transcriptions.use_count() > 1},
        {QStringLiteral("provider"), rawValue(config.provider)},
        {QStringLiteral("providerName"), title(config.provider)},
        {QStringLiteral("hotkey"), rawValue(config.hotkey)},
        {QStringLiteral("hotkeyHint"), hintText(config.hotkey, config.activationMode)},
        {QStringLiteral("activationMode"), rawValue(config.activationMode)},
        {QStringLiteral("keyHeard"), m_hotkey->isListening() && keyReach() == KeyReach::Everywhere},
        {QStringLiteral("version"),
         m_env.platform.bundle->shortVersion().value_or(QStringLiteral("dev"))},
    };
    return answer;
}

} // namespace quenda
