// What a cloud service answers to a recording.
#include "Answers.h"
#include "Fakes/FakeHttpClient.h"
#include "FuzzTarget.h"
#include "Input.h"
#include "Quenda/Config.h"
#include "Quenda/RemoteTranscriber.h"
#include "Quenda/WhisperEngine.h"

#include <QObject>

namespace {

using quenda::RemoteTranscriber;
using quenda::WhisperEngine;

quenda::Result<QString> resultOf(int status, const QByteArray &answer) {
    quenda::Config config = quenda::Config::defaults();
    config.provider = quenda::TranscriptionProvider::groq;
    config.apiKeys.insert(QStringLiteral("groq"), QStringLiteral("sk-1"));
    quenda::fakes::FakeHttpClient http;
    const QObject context;
    std::optional<quenda::Result<QString>> result;
    int completions = 0;
    RemoteTranscriber::transcribe({0.5F}, config, http, &context,
                                  [&](const quenda::Result<QString> &given) {
                                      result = given;
                                      ++completions;
                                  });
    http.answer(status, answer);
    PROMISE(completions == 1);
    return *result;
}

} // namespace

// A line with the status, then the body.
QUENDA_FUZZ_TARGET(remote_answer) {
    quenda::fuzz::Input parts(input);
    const int status = parts.line().toInt();
    const QByteArray body = parts.rest();
    const quenda::Result<QString> result = resultOf(status, body);
    if (result) {
        PROMISE(WhisperEngine::cleanTranscript(result.value()) == result.value());
    } else {
        const quenda::Error &error = result.error();
        PROMISE(error.domain == QStringLiteral("Quenda") && error.code == 20);
        // Words of the service are taken from nowhere but its own error object.
        const bool own =
            error.localizedDescription == QStringLiteral("Empty response from Groq.") ||
            error.localizedDescription ==
                QStringLiteral("Groq request failed (HTTP %1).").arg(status);
        PROMISE(own || (body.contains("error") || body.contains("\\u")));
        PROMISE(!body.isEmpty() ||
                error.localizedDescription == QStringLiteral("Empty response from Groq."));
        PROMISE(!error.localizedDescription.contains(QStringLiteral("sk-1")) ||
                body.contains("sk-1") || body.contains("\\u"));
    }

    const QString text = QString::fromUtf8(body);
    const quenda::Result<QString> sound = resultOf(status, quenda::fuzz::answerWith(text));
    PROMISE(sound.ok());
    PROMISE(sound.value() == WhisperEngine::cleanTranscript(text));
}
