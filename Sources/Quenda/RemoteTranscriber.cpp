#include "Quenda/RemoteTranscriber.h"

#include "Quenda/AudioRecorder.h"
#include "Quenda/Config.h"
#include "Quenda/HttpClient.h"
#include "Quenda/MultipartBody.h"
#include "Quenda/WhisperEngine.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

#include <algorithm>
#include <utility>

namespace quenda {

namespace {

constexpr int kErrorCode = 20;

QString tr(const char *text) {
    return QCoreApplication::translate("quenda::RemoteTranscriber", text);
}

Error failure(const QString &description) {
    return quendaError(kErrorCode, description);
}

QString baseUrl(const Config &config) {
    switch (config.provider) {
    case TranscriptionProvider::local:
        return {};
    case TranscriptionProvider::openai:
        return QStringLiteral("https://api.openai.com/v1");
    case TranscriptionProvider::groq:
        return QStringLiteral("https://api.groq.com/openai/v1");
    case TranscriptionProvider::custom:
        return config.customBaseURL;
    }
    return {};
}

// The address that recordings go to: "audio/transcriptions" after the path of the base URL, before
// its query. Not valid where the base URL is no web address.
QUrl endpoint(const QString &base) {
    QUrl url(base, QUrl::StrictMode);
    const bool web =
        url.scheme() == QLatin1String("https") || url.scheme() == QLatin1String("http");
    if (!url.isValid() || !web || url.host().isEmpty())
        return {};
    QString path = url.path(QUrl::FullyEncoded);
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    url.setPath(path + QLatin1String("audio/transcriptions"), QUrl::StrictMode);
    return url;
}

// Whether a key can stand in a header as it is: visible ASCII and blanks. A line break, as pasting
// easily adds one, would end the header.
bool canBeSent(const QString &key) {
    return std::all_of(key.begin(), key.end(),
                       [](QChar c) { return c.unicode() >= 0x20 && c.unicode() < 0x7f; });
}

QByteArray requestBody(MultipartBody &body, const std::vector<float> &samples,
                       const Config &config) {
    body.addField("model", config.effectiveRemoteModel());
    body.addField("response_format", QStringLiteral("json"));
    if (config.language != QLatin1String("auto"))
        body.addField("language", config.language);
    if (!config.customVocabulary.isEmpty())
        body.addField("prompt", config.customVocabulary);
    body.addFile("file", "audio.wav", "audio/wav", AudioRecorder::wavData(samples));
    return body.finish();
}

Result<QString> transcript(const HttpResponse &response, const QString &service) {
    if (response.transportError)
        return *response.transportError;
    if (response.body.isEmpty())
        return failure(tr("Empty response from %1.").arg(service));
    const QJsonObject answer = QJsonDocument::fromJson(response.body).object();
    const QJsonValue text = answer.value(QLatin1String("text"));
    if (text.isString()) // whatever the status code
        return WhisperEngine::cleanTranscript(text.toString());
    const QJsonValue message =
        answer.value(QLatin1String("error")).toObject().value(QLatin1String("message"));
    if (message.isString())
        return failure(message.toString());
    return failure(tr("%1 request failed (HTTP %2).")
                       .arg(service, QString::number(response.status.value_or(0))));
}

} // namespace

void RemoteTranscriber::transcribe(const std::vector<float> &samples, const Config &config,
                                   HttpClient &http, const QObject *context,
                                   Completion completion) {
    const auto refuse = [&](const QString &description) {
        QMetaObject::invokeMethod(
            const_cast<QObject *>(context),
            [completion = std::move(completion), description] { completion(failure(description)); },
            Qt::QueuedConnection);
    };
    const QString service = title(config.provider);
    const QUrl url = endpoint(baseUrl(config));
    if (!url.isValid() || url.isEmpty())
        return refuse(tr("Set the base URL for the custom provider in Settings."));
    const QString key = config.apiKey();
    if (key.isEmpty())
        return refuse(tr("Add your %1 API key in Settings.").arg(service));
    if (!canBeSent(key))
        return refuse(tr("Your %1 API key contains characters that cannot be sent. "
                         "Enter it again in Settings.")
                          .arg(service));

    MultipartBody body;
    HttpRequest request;
    request.url = url;
    request.method = "POST";
    request.body = requestBody(body, samples, config);
    request.headers = {{"Authorization", "Bearer " + key.toLatin1()},
                       {"Content-Type", body.contentType()}};
    request.timeout = std::chrono::seconds(60);
    request.maxResponseBytes = WhisperEngine::kMaxAnswerBytes;
    http.send(request, context,
              [service, completion = std::move(completion)](const HttpResponse &response) {
                  completion(transcript(response, service));
              });
}

} // namespace quenda
