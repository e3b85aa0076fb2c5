// One dictation, from key press to inserted text.

#include "Quenda/Alerts.h"
#include "Quenda/AppDelegate.h"
#include "Quenda/DecimalText.h"
#include "Quenda/GraphemeText.h"
#include "Quenda/Log.h"
#include "Quenda/RemoteTranscriber.h"
#include "Quenda/StatusItem.h"
#include "Quenda/Trace.h"

#include <QPointer>

#include <algorithm>
#include <cmath>
#include <utility>

namespace quenda {

namespace {

constexpr qsizetype kMinimumSamples = 4800; // 0.3 s of audio
constexpr float kQuietPeak = 0.015F;        // linear amplitude

double seconds(std::chrono::milliseconds span) {
    return double(span.count()) / 1000.0;
}

// The cap of toggle mode within what a timer can hold (24 days), whatever the settings file says.
double boundedCap(const Config &config) {
    return std::clamp(config.maxDictationSeconds, 0.0, 2.0e6);
}

// A service may quote the key back in its error message; the log must not hold it.
QString withoutSecrets(QString text, const Config &config) {
    for (const QString &key : config.apiKeys) {
        if (!key.isEmpty())
            text.replace(key, QStringLiteral("…"));
    }
    return text;
}

} // namespace

bool AppDelegate::transcriberIsReady() {
    const Config &config = m_store->config();
    if (config.provider != TranscriptionProvider::local)
        return !config.apiKey().isEmpty();
    using Kind = WhisperEngine::State::Kind;
    const Kind kind = engine().state().kind;
    return kind == Kind::starting || kind == Kind::ready || kind == Kind::idle;
}

void AppDelegate::hotkeyPressed() {
    Trace::mark("press");
    if (m_store->config().activationMode == ActivationMode::toggle && m_isDictating)
        finishDictation();
    else
        beginDictation();
}

void AppDelegate::hotkeyReleased() {
    Trace::mark("release");
    if (m_store->config().activationMode == ActivationMode::hold)
        finishDictation();
}

void AppDelegate::escapePressed() {
    cancelWithNotice(tr("Cancelled"));
}

void AppDelegate::cancelWithNotice(const QString &notice) {
    if (!m_isDictating)
        return;
    cancelDictation();
    m_indicator->showTransient(notice);
}

void AppDelegate::beginDictation() {
    if (m_isDictating)
        return;
    const Config config = m_store->config();
    if (!transcriberIsReady()) {
        m_env.platform.sounds->beep();
        if (config.provider != TranscriptionProvider::local)
            openSettings();
        return;
    }
    if (config.provider == TranscriptionProvider::local &&
        engine().state().kind == WhisperEngine::State::Kind::idle)
        engine().start();
    m_pressStartedAt = m_env.scheduler.uptime();
    m_isDictating = true;
    if (const Failure failure = m_recorder->start()) {
        m_isDictating = false;
        Log::log(QStringLiteral("audio: recording failed to start — ") +
                 failure->localizedDescription);
        showAlert(*m_env.platform.workspace, tr("Could not start recording"),
                  failure->localizedDescription);
        return;
    }
    const QPointer<AppDelegate> self(this);
    m_indicator->show(RecordingIndicator::Mode::recording,
                      [self] { return self ? self->m_recorder->currentLevel() : 0.0F; });
    Trace::mark("pill");
    setIcon(true);
    m_hotkey->escapeEnabled = true;
    playCue(QStringLiteral("Pop"));
    if (config.activationMode == ActivationMode::toggle)
        startCap();
}

void AppDelegate::startCap() {
    const std::chrono::milliseconds cap(std::llround(boundedCap(m_store->config()) * 1000.0));
    m_maxDurationTimer = m_env.scheduler.once(cap, [this] { maxDurationReached(); });
}

void AppDelegate::maxDurationReached() {
    if (!m_isDictating)
        return;
    const auto cap = qint64(boundedCap(m_store->config()));
    Log::log(QStringLiteral("dictation: auto-stopped at %1s cap").arg(cap));
    finishDictation();
}

// What finishing and cancelling have in common; the recorder is still running afterwards.
void AppDelegate::endRecordingState(const QString &cue) {
    m_isDictating = false;
    m_maxDurationTimer.reset();
    m_hotkey->escapeEnabled = false;
    playCue(cue);
}

void AppDelegate::finishDictation() {
    if (!m_isDictating)
        return;
    endRecordingState(QStringLiteral("Tink"));
    const double held =
        m_pressStartedAt ? seconds(m_env.scheduler.uptime() - *m_pressStartedAt) : 0.0;
    std::vector<float> samples = m_recorder->stop();
    const float peak = m_recorder->sessionPeak();
    setIcon(false);

    const Config &config = m_store->config();
    const bool tooBrief =
        config.activationMode == ActivationMode::hold && held < config.minHoldSeconds;
    if (tooBrief || qsizetype(samples.size()) < kMinimumSamples) {
        m_indicator->hide();
        return;
    }
    if (peak == 0.0F) {
        m_indicator->hide();
        showAlert(*m_env.platform.workspace, tr("Quenda can't hear anything"),
                  tr("The microphone is delivering pure silence, which usually means macOS revoked "
                     "Quenda's Microphone permission after an update. Toggle Quenda off and on in "
                     "System Settings → Privacy & Security → Microphone, then try again."));
        return;
    }
    if (peak < kQuietPeak) {
        m_indicator->showTransient(tr("Didn't hear anything"));
        return;
    }
    transcribe(
        {++m_dictationCount, std::make_shared<const std::vector<float>>(std::move(samples))});
}

AppDelegate::RetryOutcome AppDelegate::retryDictation() {
    if (!m_failedDictation)
        return RetryOutcome::nothingToRetry;
    if (m_isDictating || m_retried == m_failedDictation->number)
        return RetryOutcome::busy;
    if (!transcriberIsReady())
        return RetryOutcome::notReady;
    m_retried = m_failedDictation->number;
    transcribe(Dictation(*m_failedDictation));
    return RetryOutcome::started;
}

void AppDelegate::cancelDictation() {
    if (!m_isDictating)
        return;
    endRecordingState(QStringLiteral("Bottle"));
    m_recorder->stop();
    setIcon(false);
    m_indicator->hide();
}

void AppDelegate::transcribe(const Dictation &dictation) {
    m_indicator->show(RecordingIndicator::Mode::transcribing);
    const std::chrono::milliseconds started = m_env.scheduler.uptime();
    auto done = [self = QPointer<AppDelegate>(this), dictation, started,
                 underWay = m_transcriptions](const Result<QString> &result) {
        if (!self)
            return;
        self->keepIfFailed(dictation, result.ok());
        self->transcriptionDone(
            result, double(dictation.samples->size()) / AudioRecorder::kSampleRate, started);
    };
    const Config &config = m_store->config();
    if (config.provider == TranscriptionProvider::local)
        engine().transcribe(dictation.samples, std::move(done));
    else
        RemoteTranscriber::transcribe(*dictation.samples, config, m_env.http, this,
                                      std::move(done));
    m_injector->prepare();
}

// What was said last and not understood stays until it is, or until a later dictation fails.
void AppDelegate::keepIfFailed(const Dictation &dictation, bool recognised) {
    if (m_retried == dictation.number)
        m_retried.reset();
    if (!recognised) {
        if (!m_failedDictation || m_failedDictation->number < dictation.number)
            m_failedDictation = dictation;
    } else if (m_failedDictation && m_failedDictation->number == dictation.number) {
        m_failedDictation.reset();
    }
}

void AppDelegate::transcriptionDone(const Result<QString> &result, double audioSeconds,
                                    std::chrono::milliseconds started) {
    const QString elapsed = decimalText(seconds(m_env.scheduler.uptime() - started), 1);
    if (!result) {
        const QString description = result.error().localizedDescription;
        Log::log(QStringLiteral("dictation: failed after %1s — ").arg(elapsed) +
                 withoutSecrets(description, m_store->config()));
        m_indicator->hide();
        showAlert(*m_env.platform.workspace, tr("Transcription failed"), description);
        return;
    }
    QString text = result.value();
    const QString audio = decimalText(audioSeconds, 1);
    if (text.isEmpty()) {
        Log::log(QStringLiteral("dictation: %1s audio → empty in %2s").arg(audio, elapsed));
        m_indicator->hide();
        return;
    }
    if (m_store->config().removeFillerWords)
        text = WhisperEngine::removeFillerWords(text);
    if (text.isEmpty()) {
        m_indicator->hide();
        return;
    }
    Log::log(QStringLiteral("dictation: %1s audio → %2 chars in %3s")
                 .arg(audio)
                 .arg(graphemeCount(text))
                 .arg(elapsed));
    const TextInjector::Outcome outcome = m_injector->insert(text);
    m_history.prepend(text);
    if (m_history.size() > kHistoryLimit)
        m_history.removeLast();
    m_indicator->showTransient(outcome == TextInjector::Outcome::pasted
                                   ? tr("Inserted ✓")
                                   : tr("No text field — copied to clipboard"));
}

void AppDelegate::playCue(const QString &name) {
    if (m_store->config().playSoundCues)
        m_env.platform.sounds->play(name);
}

void AppDelegate::setIcon(bool recording) {
    if (m_statusItem)
        m_statusItem->setRecording(recording);
}

} // namespace quenda
