// The request to a cloud service, made of settings that may hold anything: it goes to a web address
// or nowhere, its headers hold no more than they should, and its body says what was meant.
#include "Fakes/FakeHttpClient.h"
#include "Forms.h"
#include "FuzzTarget.h"
#include "Input.h"
#include "Quenda/AudioRecorder.h"
#include "Quenda/Config.h"
#include "Quenda/HttpRules.h"
#include "Quenda/RemoteTranscriber.h"

#include <QCoreApplication>
#include <QObject>

namespace {

void expectSound(const quenda::HttpRequest &request, const quenda::Config &config) {
    PROMISE(!quenda::unfitness(request));
    PROMISE(request.method == "POST");
    PROMISE(request.route == quenda::HttpRequest::Route::SystemProxy);
    const QUrl base(config.customBaseURL, QUrl::StrictMode);
    PROMISE(request.url.scheme() == base.scheme() && request.url.authority() == base.authority());
    PROMISE(request.url.query(QUrl::FullyEncoded) == base.query(QUrl::FullyEncoded));
    const QString path = request.url.path(QUrl::FullyEncoded);
    PROMISE_SHOWING(path.endsWith(QStringLiteral("/audio/transcriptions")), path);
    PROMISE(path.startsWith(base.path(QUrl::FullyEncoded)));

    PROMISE(request.headers.size() == 2);
    PROMISE(request.headers[0].first == "Authorization");
    PROMISE(request.headers[0].second == "Bearer " + config.apiKey().toUtf8());
    PROMISE(request.headers[1].first == "Content-Type");

    std::vector<quenda::fuzz::FormPart> wanted{
        {"name=\"model\"", config.effectiveRemoteModel().toUtf8()},
        {"name=\"response_format\"", "json"}};
    if (config.language != QStringLiteral("auto"))
        wanted.push_back({"name=\"language\"", config.language.toUtf8()});
    if (!config.customVocabulary.isEmpty())
        wanted.push_back({"name=\"prompt\"", config.customVocabulary.toUtf8()});
    wanted.push_back({"name=\"file\"; filename=\"audio.wav\"",
                      quenda::AudioRecorder::wavData(std::vector<float>{0.5F})});
    const QByteArray type = request.headers[1].second;
    const QByteArray mark("multipart/form-data; boundary=");
    PROMISE(type.startsWith(mark));
    PROMISE(quenda::fuzz::formParts(request.body, type.mid(mark.size())) == wanted);
}

} // namespace

// Lines: base URL, key, model, language; the rest is the vocabulary.
QUENDA_FUZZ_TARGET(remote_request) {
    quenda::fuzz::Input parts(input);
    quenda::Config config = quenda::Config::defaults();
    config.provider = quenda::TranscriptionProvider::custom;
    config.customBaseURL = parts.textLine();
    QString key = parts.textLine();
    // Lines cannot hold what pasting adds most easily.
    config.apiKeys.insert(QStringLiteral("custom"), key.replace(u'\r', u'\n'));
    config.apiModelOverride = parts.textLine();
    config.language = parts.textLine();
    config.customVocabulary = QString::fromUtf8(parts.rest());

    quenda::fakes::FakeHttpClient http;
    const QObject context;
    std::optional<quenda::Result<QString>> result;
    quenda::RemoteTranscriber::transcribe(
        {0.5F}, config, http, &context,
        [&](const quenda::Result<QString> &given) { result = given; });
    PROMISE(http.exchanges.size() <= 1);
    if (!http.exchanges.empty()) {
        expectSound(http.exchanges[0].request, config);
        return;
    }
    PROMISE(!result); // not before the call has returned
    QCoreApplication::sendPostedEvents();
    PROMISE(result && !result->ok() && result->error().code == 20);
    PROMISE(key.isEmpty() || !result->error().localizedDescription.contains(key) ||
            key.size() < 12);
}
