#pragma once
// What the tests of the engine share: a settings file, a model file and a server file in the test's
// home, and fakes for everything that the engine reaches for.

#include "Fakes/FakeHttpClient.h"
#include "Fakes/FakePlatform.h"
#include "Fakes/FakeProcessRunner.h"
#include "Fakes/TestMain.h"
#include "Fakes/VirtualScheduler.h"
#include "Quenda/ConfigStore.h"
#include "Quenda/Log.h"
#include "Quenda/WhisperEngine.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <vector>

namespace quenda::fakes {

inline const auto kNotFound =
    QStringLiteral("whisper-server not found. Reinstall Quenda or run: brew install whisper-cpp");
inline const auto kNoModel =
    QStringLiteral("No model installed yet. Open Settings to download one.");
inline const auto kRestarting = QStringLiteral("whisper-server crashed — restarting…");
inline const auto kKeepsCrashing =
    QStringLiteral("whisper-server keeps crashing — see ~/Library/Logs/Quenda/whisper-server.log");
inline const auto kNotInTime = QStringLiteral("whisper-server did not become ready in time");

inline void writeFile(const QString &path, bool executable = false) {
    ASSERT_TRUE(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner;
    if (executable)
        permissions |= QFile::ExeOwner;
    ASSERT_TRUE(file.setPermissions(permissions));
}

/// The log's lines without their time stamps, from "engine: " on.
inline QStringList engineLog() {
    Log::flush();
    QFile file(Log::fileURL());
    QStringList lines;
    if (file.open(QIODevice::ReadOnly)) {
        for (const QString &line : QString::fromUtf8(file.readAll()).split(u'\n')) {
            if (const qsizetype at = line.indexOf(QStringLiteral("engine: ")); at >= 0)
                lines.append(line.mid(at));
        }
    }
    return lines;
}

class EngineFixture : public testing::Test {
protected:
    void SetUp() override {
        previousFolder = QDir::currentPath();
        ASSERT_TRUE(QDir::setCurrent(testHome())); // no vendor folder lies here
        model = testHome() + QStringLiteral("/model.bin");
        server = testHome() + QStringLiteral("/bin/own-server");
        writeFile(model);
        writeFile(server, true);
        store.emplace();
        store->update([this](Config &config) {
            config.modelPath = model;
            config.whisperServerPath = server;
            config.serverPort = 8123;
            config.idleUnloadMinutes = 15;
        });
        make();
    }
    void TearDown() override {
        engine.reset();
        QDir::setCurrent(previousFolder);
    }

    void make() {
        WhisperEngine::Environment environment{*store, scheduler, processes,
                                               http,   bundle,    systemServers};
        engine = std::make_unique<WhisperEngine>(environment);
        engine->onStateChange = [this](const WhisperEngine::State &state) {
            EXPECT_EQ(state, engine->state());
            changes.push_back(state);
        };
    }

    void startUntilReady() {
        engine->start();
        http.answer(200);
        ASSERT_EQ(engine->state().kind, WhisperEngine::State::Kind::ready);
    }
    void refuse() {
        http.fail({QStringLiteral("Network"), 1, QStringLiteral("Connection refused")});
    }
    FakeProcessRunner::Child &child(size_t index) { return *processes.children.at(index); }
    void expectFailed(const QString &message) {
        EXPECT_EQ(engine->state(), WhisperEngine::State::failed(message))
            << qPrintable(engine->state().text());
    }

    void transcribe(std::vector<float> samples = {0.5F}) {
        engine->transcribe(std::make_shared<const std::vector<float>>(std::move(samples)),
                           [this](const Result<QString> &result) { results.push_back(result); });
    }
    void expectError(int code, const QString &text) {
        ASSERT_EQ(results.size(), 1u);
        ASSERT_FALSE(results[0].ok());
        EXPECT_EQ(results[0].error(), quendaError(code, text));
    }

    QString previousFolder;
    QString model;
    QString server;
    std::optional<ConfigStore> store;
    VirtualScheduler scheduler;
    FakeProcessRunner processes;
    FakeHttpClient http;
    FakeBundle bundle;
    QStringList systemServers;
    std::unique_ptr<WhisperEngine> engine;
    std::vector<WhisperEngine::State> changes;
    std::vector<Result<QString>> results;
};

} // namespace quenda::fakes
