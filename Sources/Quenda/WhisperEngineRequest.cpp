// The engine's other half: one recording's way to the server and back.

#include "Quenda/AudioRecorder.h"
#include "Quenda/ConfigStore.h"
#include "Quenda/HttpClient.h"
#include "Quenda/MultipartBody.h"
#include "Quenda/WhisperEngine.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QUrl>

#include <utility>

namespace quenda {

using namespace std::chrono_literals;

namespace {

constexpr auto kLoadingTime = 90s; // how long a request waits for the model
constexpr auto kWaitInterval = 500ms;
constexpr auto kRequestTimeout = 120s;

constexpr int kNotReady = 10;
constexpr int kUnexpectedResponse = 11;
constexpr int kLoadingTooLong = 12;

} // namespace

void WhisperEngine::transcribe(const Samples &samples, Completion completion) {
    m_lastActivity = m_env.scheduler.uptime(); // a request that waits keeps the model loaded
    switch (state().kind) {
    case State::Kind::ready:
        performTranscription(*samples, std::move(completion));
        return;
    case State::Kind::idle:
        start();
        [[fallthrough]];
    case State::Kind::starting:
        waitThenTranscribe(samples, m_env.scheduler.uptime() + kLoadingTime, std::move(completion));
        return;
    case State::Kind::stopped:
    case State::Kind::failed:
        completion(quendaError(kNotReady, tr("Transcription engine is not ready yet.")));
        return;
    }
}

void WhisperEngine::waitThenTranscribe(const Samples &samples, std::chrono::milliseconds deadline,
                                       const Completion &completion) {
    m_env.scheduler.after(kWaitInterval, this, [=, this] {
        switch (state().kind) {
        case State::Kind::ready:
            performTranscription(*samples, completion);
            return;
        case State::Kind::starting:
        case State::Kind::idle:
            if (m_env.scheduler.uptime() < deadline)
                waitThenTranscribe(samples, deadline, completion);
            else
                completion(quendaError(kLoadingTooLong, tr("The model took too long to load.")));
            return;
        case State::Kind::stopped:
        case State::Kind::failed:
            completion(quendaError(kNotReady, tr("Transcription engine is not ready.")));
            return;
        }
    });
}

void WhisperEngine::performTranscription(const std::vector<float> &samples, Completion completion) {
    const Config &config = m_env.store.config();
    MultipartBody body;
    body.addField("response_format", QStringLiteral("json"));
    body.addField("temperature", QStringLiteral("0.0"));
    body.addField("language", config.language);
    if (!config.customVocabulary.isEmpty())
        body.addField("prompt", config.customVocabulary);
    body.addFile("file", "audio.wav", "audio/wav", AudioRecorder::wavData(samples));

    HttpRequest request;
    request.url = QUrl(baseURL() + QStringLiteral("/inference"));
    request.method = "POST";
    request.headers = {{"Content-Type", body.contentType()}};
    request.body = body.finish();
    request.timeout = kRequestTimeout;
    request.route = HttpRequest::Route::Direct;
    m_env.http.send(
        request, this, [completion = std::move(completion)](const HttpResponse &response) {
            if (response.transportError) {
                completion(*response.transportError);
                return;
            }
            // The status is not looked at: an error's body has no text.
            const QJsonValue text =
                QJsonDocument::fromJson(response.body).object().value(QLatin1String("text"));
            if (text.isString())
                completion(cleanTranscript(text.toString()));
            else
                completion(quendaError(kUnexpectedResponse,
                                       tr("Unexpected response from whisper-server.")));
        });
}

} // namespace quenda
