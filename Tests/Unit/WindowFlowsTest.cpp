// Windows, first launch and updates through the controller.

#include "Fakes/ControllerFixture.h"
#include "Quenda/AboutView.h"
#include "Quenda/ModelCatalog.h"
#include "Quenda/ModelDownloader.h"
#include "Quenda/SettingsView.h"
#include "Quenda/WelcomeView.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QMenu>

using namespace quenda;
using namespace std::chrono_literals;

namespace {

const QString kSeenWelcome = QStringLiteral("hasSeenWelcome");
const QString kLastCheck = QStringLiteral("lastUpdateCheck");
const QString kCompact = QStringLiteral("ggml-large-v3-turbo-q5_0.bin");
const QByteArray kNewer =
    R"({"version":"2.0 & more","build":58,"url":"https://quenda.example/get","notes":"n"})";

class WindowFlows : public fakes::ControllerFixture {
protected:
    static bool shown(const QWidget *window) { return window && window->isVisible(); }
    QAction *entry(int number) { return controller->statusMenu()->actions().at(number - 1); }
    bool downloading() { return controller->downloader().progress.value().contains(kCompact); }
    int manifestRequests() const {
        int count = 0;
        for (const auto &exchange : http.exchanges)
            count += exchange.request.url.path() == QStringLiteral("/quenda-version.json") ? 1 : 0;
        return count;
    }
    void useCloud() {
        Config settings = Config::defaults();
        settings.provider = TranscriptionProvider::openai;
        writeConfig(settings);
    }
    static void touchModel(const QString &fileName) {
        QDir().mkpath(Config::modelsDir());
        QFile file(Config::modelsDir() + QLatin1Char('/') + fileName);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
};

TEST_F(WindowFlows, FirstLaunchWelcomesAfterASecondAndRemembersItFirst) {
    defaults->remove(kSeenWelcome);
    launch();
    advance(999ms);
    EXPECT_FALSE(controller->welcomeWindow());
    EXPECT_FALSE(defaults->value(kSeenWelcome).toBool());
    advance(1ms);
    EXPECT_TRUE(shown(controller->welcomeWindow()));
    EXPECT_TRUE(defaults->value(kSeenWelcome).toBool());
    EXPECT_FALSE(controller->settingsWindow());
}

TEST_F(WindowFlows, LaterLaunchWithBothPermissionsOpensNothing) {
    launch();
    advance(2s);
    EXPECT_FALSE(controller->welcomeWindow());
    EXPECT_FALSE(controller->settingsWindow());
}

TEST_F(WindowFlows, LaterLaunchWithoutMicrophoneOpensSettings) {
    fake.microphonePermission->authorization = AuthorizationStatus::Denied;
    launch();
    advance(1s);
    EXPECT_TRUE(shown(controller->settingsWindow()));
}

TEST_F(WindowFlows, LaterLaunchWithoutTrustOpensSettings) {
    fake.accessibility->trusted = false;
    launch();
    advance(1s);
    EXPECT_TRUE(shown(controller->settingsWindow()));
}

TEST_F(WindowFlows, MenuOpensSettingsAndAbout) {
    launch();
    entry(10)->trigger();
    EXPECT_TRUE(shown(controller->settingsWindow()));
    entry(13)->trigger();
    EXPECT_TRUE(shown(controller->aboutWindow()));
    EXPECT_EQ(controller->aboutWindow()->windowTitle(), QStringLiteral("About Quenda"));
    const AboutView *first = controller->aboutWindow();
    controller->aboutWindow()->close();
    entry(13)->trigger();
    EXPECT_EQ(controller->aboutWindow(), first);
}

TEST_F(WindowFlows, WindowsHaveACloseButtonOnly) {
    launch();
    controller->openSettings();
    controller->openWelcome();
    controller->openAbout();
    for (const QWidget *window : {static_cast<const QWidget *>(controller->settingsWindow()),
                                  static_cast<const QWidget *>(controller->welcomeWindow()),
                                  static_cast<const QWidget *>(controller->aboutWindow())}) {
        EXPECT_TRUE(window->windowFlags() & Qt::WindowCloseButtonHint);
        EXPECT_FALSE(window->windowFlags() & Qt::WindowMinimizeButtonHint);
        EXPECT_FALSE(window->windowFlags() & Qt::WindowMaximizeButtonHint);
        EXPECT_EQ(window->minimumSize(), window->maximumSize());
    }
}

TEST_F(WindowFlows, NotReadyCloudProviderOpensSettings) {
    useCloud();
    launch();
    pressKey();
    EXPECT_EQ(fake.sounds->beeps, 1);
    EXPECT_TRUE(shown(controller->settingsWindow()));
    EXPECT_FALSE(controller->isDictating());
}

TEST_F(WindowFlows, FirstLaunchDownloadsTheCompactModel) {
    launch();
    EXPECT_TRUE(downloading());
}

TEST_F(WindowFlows, CloudProviderDownloadsNothing) {
    useCloud();
    launch();
    EXPECT_FALSE(downloading());
}

TEST_F(WindowFlows, AnyModelInTheFolderIsEnough) {
    touchModel(QStringLiteral("mine.bin"));
    launch();
    EXPECT_FALSE(downloading());
}

TEST_F(WindowFlows, OtherFilesInTheFolderAreNotEnough) {
    touchModel(QStringLiteral("notes.txt"));
    launch();
    EXPECT_TRUE(downloading());
}

TEST_F(WindowFlows, ConfiguredModelElsewhereIsEnough) {
    Config settings = Config::defaults();
    settings.modelPath = fakes::testHome() + QStringLiteral("/model");
    writeConfig(settings);
    QFile model(settings.modelPath);
    ASSERT_TRUE(model.open(QIODevice::WriteOnly));
    launch();
    EXPECT_FALSE(downloading());
}

TEST_F(WindowFlows, InstalledModelIsAdoptedWhenTheConfiguredOneIsMissing) {
    launch();
    controller->downloader().onModelInstalled(WhisperModel::compact());
    EXPECT_EQ(config().modelPath, Config::modelsDir() + QLatin1Char('/') + kCompact);
}

TEST_F(WindowFlows, InstalledModelIsNotAdoptedWhenTheConfiguredOneExists) {
    installEngine();
    launch();
    const QString before = config().modelPath;
    controller->downloader().onModelInstalled(WhisperModel::compact());
    EXPECT_EQ(config().modelPath, before);
}

TEST_F(WindowFlows, AutomaticCheckComesFourSecondsAfterLaunch) {
    launch();
    advance(3999ms);
    EXPECT_EQ(manifestRequests(), 0);
    advance(1ms);
    EXPECT_EQ(manifestRequests(), 1);
}

TEST_F(WindowFlows, AutomaticCheckReadsTheSettingThen) {
    launch();
    advance(2s);
    controller->store().update([](Config &config) { config.checkForUpdates = false; });
    advance(10s);
    EXPECT_EQ(manifestRequests(), 0);
}

TEST_F(WindowFlows, FoundUpdateShowsInTheMenuAndOpens) {
    launch();
    entry(1)->trigger();
    EXPECT_TRUE(fake.workspace->opened.isEmpty());
    advance(4s);
    http.answer(200, kNewer);
    advance(0ms);
    EXPECT_TRUE(entry(1)->isVisible());
    EXPECT_TRUE(entry(2)->isVisible());
    EXPECT_EQ(entry(1)->text(), QStringLiteral("Update to 2.0 && more →"));
    entry(1)->trigger();
    EXPECT_EQ(fake.workspace->opened,
              QList<QUrl>{QUrl(QStringLiteral("https://quenda.example/get"))});
}

TEST_F(WindowFlows, CheckNowWithChecksOffSaysSoAndFetchesNothing) {
    launch();
    controller->store().update([](Config &config) { config.checkForUpdates = false; });
    entry(12)->trigger();
    EXPECT_EQ(alertTitle(), QStringLiteral("Update checks are turned off"));
    EXPECT_EQ(
        alertText(),
        QStringLiteral("Enable “Check for updates automatically” in Settings, or download the "
                       "latest version from quenda.example."));
    advance(10s);
    EXPECT_EQ(manifestRequests(), 0);
    EXPECT_FALSE(defaults->contains(kLastCheck));
}

TEST_F(WindowFlows, CheckNowSaysUpToDateAfterTwoAndAHalfSeconds) {
    launch();
    entry(12)->trigger();
    EXPECT_EQ(manifestRequests(), 1);
    EXPECT_EQ(defaults->value(kLastCheck).toDateTime(), scheduler.now());
    advance(2499ms);
    EXPECT_TRUE(alerts().isEmpty());
    advance(1ms);
    EXPECT_EQ(alertTitle(), QStringLiteral("You're up to date"));
    EXPECT_EQ(alertText(), QStringLiteral("Quenda 1.4.0 is the latest version."));
}

TEST_F(WindowFlows, CheckNowBypassesTheInterval) {
    launch();
    advance(4s);
    ASSERT_EQ(manifestRequests(), 1);
    http.answer(500);
    entry(12)->trigger();
    EXPECT_EQ(manifestRequests(), 2);
}

TEST_F(WindowFlows, LateAnswerStillShowsTheEntry) {
    launch();
    entry(12)->trigger();
    advance(3s);
    EXPECT_EQ(alerts().size(), 1);
    http.answer(200, kNewer);
    advance(0ms);
    EXPECT_TRUE(entry(1)->isVisible());
}

TEST_F(WindowFlows, CheckNowWithAnAnswerInTimeShowsNoAlert) {
    launch();
    entry(12)->trigger();
    http.answer(200, kNewer);
    advance(5s);
    EXPECT_TRUE(alerts().isEmpty());
    EXPECT_TRUE(entry(1)->isVisible());
}

TEST_F(WindowFlows, CheckNowWithAKnownUpdateOpensIt) {
    launch();
    advance(4s);
    http.answer(200, kNewer);
    advance(0ms);
    const int before = manifestRequests();
    entry(12)->trigger();
    EXPECT_EQ(fake.workspace->opened.size(), 1);
    EXPECT_EQ(manifestRequests(), before);
    advance(5s);
    EXPECT_TRUE(alerts().isEmpty());
}

} // namespace
