// What the speech engine answers to a recording.
#include "Answers.h"
#include "Fakes/FakeHttpClient.h"
#include "Fakes/FakeProcessRunner.h"
#include "Fakes/VirtualScheduler.h"
#include "FuzzTarget.h"
#include "Platform/Desktop.h"
#include "Quenda/ConfigStore.h"
#include "Quenda/WhisperEngine.h"

#include <QDir>
#include <QFile>

#include <memory>
#include <optional>
#include <vector>

namespace {

using quenda::WhisperEngine;

class NoBundle final : public quenda::Bundle {
public:
    std::optional<QString> shortVersion() const override { return std::nullopt; }
    std::optional<QString> version() const override { return std::nullopt; }
    std::optional<QString> identifier() const override { return std::nullopt; }
    std::optional<QString> resourceDirectory() const override { return std::nullopt; }
};

QString emptyFile(const QString &name, QFile::Permissions permissions) {
    QFile file(quenda::fuzz::home() + QLatin1Char('/') + name);
    PROMISE(file.open(QIODevice::WriteOnly) && file.setPermissions(permissions));
    return file.fileName();
}

// A started engine whose server is a fake.
struct Bench {
    Bench() {
        const QFile::Permissions owner = QFile::ReadOwner | QFile::WriteOwner;
        store.update([owner](quenda::Config &config) {
            config.modelPath = emptyFile(QStringLiteral("model.bin"), owner);
            config.whisperServerPath = emptyFile(QStringLiteral("server"), owner | QFile::ExeOwner);
        });
        engine.start();
        http.answer(200);
        PROMISE(engine.state().kind == WhisperEngine::State::Kind::ready);
    }

    quenda::ConfigStore store;
    quenda::fakes::VirtualScheduler scheduler;
    quenda::fakes::FakeProcessRunner processes;
    quenda::fakes::FakeHttpClient http;
    NoBundle bundle;
    WhisperEngine engine{{store, scheduler, processes, http, bundle, {}}};
};

const auto kSamples = std::make_shared<const std::vector<float>>(1, 0.5F);

quenda::Result<QString> resultOf(const QByteArray &answer) {
    static Bench &bench = *new Bench;
    std::optional<quenda::Result<QString>> result;
    int completions = 0;
    bench.http.exchanges.clear();
    bench.engine.transcribe(kSamples, [&](const quenda::Result<QString> &given) {
        result = given;
        ++completions;
    });
    bench.http.answer(answer.size() % 2 ? 200 : 500, answer);
    PROMISE(completions == 1);
    return *result;
}

} // namespace

QUENDA_FUZZ_TARGET(engine_answer) {
    const quenda::Result<QString> result = resultOf(input.toByteArray());
    if (result)
        PROMISE(WhisperEngine::cleanTranscript(result.value()) == result.value());
    else
        PROMISE(
            result.error() ==
            quenda::quendaError(11, QStringLiteral("Unexpected response from whisper-server.")));

    // The same bytes as the text of a sound answer.
    const QString text = QString::fromUtf8(input);
    const quenda::Result<QString> sound = resultOf(quenda::fuzz::answerWith(text));
    PROMISE(sound.ok());
    PROMISE(sound.value() == WhisperEngine::cleanTranscript(text));
}
