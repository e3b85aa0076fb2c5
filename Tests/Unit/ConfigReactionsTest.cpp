// What changed settings set off: the monitor's key, the hint, the engine, the status line.

#include "Fakes/ControllerFixture.h"

#include <QAction>
#include <QFile>
#include <QMenu>

using namespace quenda;
using namespace std::chrono_literals;
using Kind = WhisperEngine::State::Kind;

namespace {

class ConfigReactions : public fakes::ControllerFixture {
protected:
    QString statusLine() { return controller->statusMenu()->actions().at(2)->text(); }
    QString hint() { return controller->statusMenu()->actions().at(4)->text(); }
    size_t launches() const { return fake.processes->children.size(); }
    template <typename Change>
    void change(Change what) {
        controller->store().update(what);
    }
};

TEST_F(ConfigReactions, EngineIsStartedOnceAtLaunch) {
    launchReady();
    advance(10s);
    EXPECT_EQ(launches(), 1U);
    EXPECT_EQ(engineKind(), Kind::ready);
}

TEST_F(ConfigReactions, KeyAndHintFollowAtOnceWithoutANewTap) {
    launchReady();
    change([](Config &config) { config.hotkey = HotkeyChoice::rightControl; });
    EXPECT_EQ(controller->hotkey().key, HotkeyChoice::rightControl);
    EXPECT_EQ(hint(), QStringLiteral("Hold Right Control (⌃) to dictate"));
    change([](Config &config) { config.activationMode = ActivationMode::toggle; });
    EXPECT_EQ(hint(), QStringLiteral("Press Right Control (⌃) to start/stop dictating"));
    EXPECT_EQ(fake.keyTaps->created, 1);
}

TEST_F(ConfigReactions, PortRestartsTheEngineAfterASecondOfQuiet) {
    launchReady();
    advance(5s);
    change([](Config &config) { config.serverPort = 9000; });
    advance(600ms);
    change([](Config &config) { config.serverPort = 9001; });
    advance(999ms);
    EXPECT_EQ(launches(), 1U);
    advance(1ms);
    ASSERT_EQ(launches(), 2U);
    EXPECT_TRUE(fake.processes->children.at(0)->terminated);
    EXPECT_TRUE(fake.processes->children.at(1)->request.arguments.contains(QStringLiteral("9001")));
}

TEST_F(ConfigReactions, EachEngineSettingRestarts) {
    launchReady();
    advance(5s);
    size_t expected = 1;
    change([](Config &config) { config.whisperServerPath = QStringLiteral("/not/there"); });
    advance(1s);
    EXPECT_EQ(launches(), ++expected);
    change([](Config &config) { config.serverPort = 9000; });
    advance(1s);
    EXPECT_EQ(launches(), ++expected);
    const QString other = fakes::testHome() + QStringLiteral("/other.bin");
    QFile(Config::defaults().modelPath).copy(other);
    change([&](Config &config) { config.modelPath = other; });
    advance(1s);
    EXPECT_EQ(launches(), ++expected);
}

TEST_F(ConfigReactions, ChangedAndChangedBackWithinASecondRestartsNothing) {
    launchReady();
    advance(5s);
    change([](Config &config) { config.serverPort = 9000; });
    advance(500ms);
    change([](Config &config) { config.serverPort = 8698; });
    advance(5s);
    EXPECT_EQ(launches(), 1U);
}

TEST_F(ConfigReactions, OtherSettingsRestartNothing) {
    launchReady();
    advance(5s);
    change([](Config &config) { config.language = QStringLiteral("de"); });
    change([](Config &config) { config.customVocabulary = QStringLiteral("Alvero"); });
    change([](Config &config) { config.removeFillerWords = true; });
    change([](Config &config) { config.idleUnloadMinutes = 15; });
    change([](Config &config) { config.playSoundCues = true; });
    change([](Config &config) { config.checkForUpdates = false; });
    change([](Config &config) { config.minHoldSeconds = 0.5; });
    change([](Config &config) { config.maxDictationSeconds = 60; });
    advance(5s);
    EXPECT_EQ(launches(), 1U);
}

TEST_F(ConfigReactions, CloudProviderStopsTheEngineAfterASecondAndShowsAtOnce) {
    launchReady();
    advance(5s);
    change([](Config &config) { config.provider = TranscriptionProvider::openai; });
    EXPECT_EQ(statusLine(), QStringLiteral("OpenAI: add API key in Settings"));
    EXPECT_EQ(engineKind(), Kind::ready);
    advance(1s);
    EXPECT_EQ(engineKind(), Kind::stopped);
    EXPECT_TRUE(fake.processes->children.at(0)->terminated);
    change([](Config &config) { config.provider = TranscriptionProvider::local; });
    advance(1s);
    EXPECT_EQ(engineKind(), Kind::starting);
    EXPECT_EQ(launches(), 2U);
}

TEST_F(ConfigReactions, CloudProviderAtLaunchStartsNoEngine) {
    Config settings = Config::defaults();
    settings.provider = TranscriptionProvider::groq;
    writeConfig(settings);
    installEngine();
    launch();
    advance(5s);
    EXPECT_EQ(launches(), 0U);
    EXPECT_EQ(engineKind(), Kind::stopped);
}

TEST_F(ConfigReactions, RestartEngineRestartsWithoutAChange) {
    launchReady();
    advance(5s);
    controller->statusMenu()->actions().at(10)->trigger();
    EXPECT_EQ(launches(), 2U);
    EXPECT_EQ(engineKind(), Kind::starting);
    EXPECT_EQ(statusLine(), QStringLiteral("Loading model (ggml-large-v3-turbo.bin)…"));
}

TEST_F(ConfigReactions, RestartByHandCountsForTheDebouncedKey) {
    launchReady();
    advance(5s);
    change([](Config &config) { config.serverPort = 9000; });
    controller->restartEngine();
    advance(5s);
    EXPECT_EQ(launches(), 2U);
}

} // namespace
