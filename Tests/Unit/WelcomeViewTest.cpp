// The welcome window: its three steps, the live checks and the way out.

#include "Quenda/WelcomeView.h"

#include "Fakes/ControllerFixture.h"
#include "Fakes/WidgetSearch.h"
#include "Quenda/DownloadBar.h"
#include "Quenda/ModelDownloader.h"
#include "Quenda/StepRow.h"

#include <QDir>
#include <QFile>

using namespace quenda;
using namespace std::chrono_literals;
using fakes::buttons;
using fakes::reads;

namespace {

class WelcomeViewTest : public fakes::ControllerFixture {
protected:
    void open() {
        Config settings = Config::defaults();
        settings.provider = TranscriptionProvider::openai; // no download of its own at launch
        writeConfig(settings);
        launch();
        controller->openWelcome();
    }
    WelcomeView &view() { return *controller->welcomeWindow(); }
    StepRow &step(int number) { return *view().findChildren<StepRow *>().at(number - 1); }
    void installModel() {
        QDir().mkpath(Config::modelsDir());
        QFile model(config().modelPath);
        ASSERT_TRUE(model.open(QIODevice::WriteOnly));
    }
    bool offers(const QString &text) { return buttons(view(), text).size() == 1; }
};

TEST_F(WelcomeViewTest, ShowsItsTexts) {
    open();
    EXPECT_EQ(view().windowTitle(), QStringLiteral("Welcome to Quenda"));
    EXPECT_EQ(view().width(), 440);
    EXPECT_TRUE(reads(view(), QStringLiteral("Welcome to Quenda")));
    EXPECT_TRUE(reads(view(), QStringLiteral("Fast, private dictation. Three quick steps and "
                                             "you're talking.")));
    EXPECT_TRUE(reads(step(1), QStringLiteral("Allow the microphone")));
    EXPECT_TRUE(reads(step(2), QStringLiteral("Enable Accessibility (for the dictation key)")));
    EXPECT_TRUE(reads(step(3), QStringLiteral("Get the speech model")));
}

TEST_F(WelcomeViewTest, AllDoneAtOnceWhenEverythingIsThere) {
    open();
    installModel();
    advance(1500ms);
    EXPECT_TRUE(view().allDone());
    for (int number = 1; number <= 3; ++number)
        EXPECT_TRUE(step(number).isDone()) << number;
    EXPECT_TRUE(offers(QStringLiteral("Start Dictating")));
    EXPECT_TRUE(reads(view(), QStringLiteral("Then click into any text field, <b>hold Right-Option "
                                             "(⌥)</b>, and speak.")));
    EXPECT_TRUE(reads(view(), QStringLiteral("Release to insert your words. Change the key anytime "
                                             "in Settings.")));
}

TEST_F(WelcomeViewTest, EachMissingPieceKeepsItFromBeingDone) {
    open();
    EXPECT_FALSE(view().allDone());
    EXPECT_TRUE(offers(QStringLiteral("Finish Later")));
    EXPECT_FALSE(
        reads(view(), QStringLiteral("Release to insert your words. Change the key anytime "
                                     "in Settings.")));
    installModel();
    advance(1500ms);
    EXPECT_TRUE(view().allDone());
    fake.accessibility->trusted = false;
    advance(1500ms);
    EXPECT_FALSE(view().allDone());
    EXPECT_FALSE(step(2).isDone());
    fake.accessibility->trusted = true;
    fake.microphonePermission->authorization = AuthorizationStatus::Denied;
    advance(1500ms);
    EXPECT_FALSE(view().allDone());
    EXPECT_FALSE(step(1).isDone());
    EXPECT_TRUE(offers(QStringLiteral("Finish Later")));
}

TEST_F(WelcomeViewTest, MicrophoneIsAskedForThenFixed) {
    fake.microphonePermission->authorization = AuthorizationStatus::NotDetermined;
    open();
    const int before = fake.microphonePermission->requests;
    ASSERT_TRUE(offers(QStringLiteral("Allow…")));
    buttons(view(), QStringLiteral("Allow…")).first()->click();
    EXPECT_EQ(fake.microphonePermission->requests, before + 1);
    for (const AuthorizationStatus status :
         {AuthorizationStatus::Denied, AuthorizationStatus::Restricted}) {
        fake.microphonePermission->authorization = status;
        advance(1500ms);
        EXPECT_TRUE(offers(QStringLiteral("Fix…")));
        EXPECT_FALSE(offers(QStringLiteral("Allow…")));
    }
    buttons(view(), QStringLiteral("Fix…")).first()->click();
    EXPECT_EQ(fake.workspace->resets, QStringList{QStringLiteral("Microphone")});
}

TEST_F(WelcomeViewTest, AccessibilityIsAskedForAndItsPaneOpened) {
    fake.accessibility->trusted = false;
    open();
    const int before = fake.accessibility->prompts;
    buttons(view(), QStringLiteral("Enable")).first()->click();
    EXPECT_EQ(fake.accessibility->prompts, before + 1);
    EXPECT_EQ(fake.workspace->panes, QStringList{QStringLiteral("Privacy_Accessibility")});
}

TEST_F(WelcomeViewTest, OffersTheCompactModel) {
    open();
    EXPECT_TRUE(reads(step(3), QStringLiteral("Large v3 Turbo (compact) — Near-best accuracy, "
                                              "smaller & faster to download")));
    buttons(view(), QStringLiteral("Download")).first()->click();
    EXPECT_TRUE(controller->downloader().progress.value().contains(
        QStringLiteral("ggml-large-v3-turbo-q5_0.bin")));
    EXPECT_FALSE(offers(QStringLiteral("Download")));
    EXPECT_TRUE(view().findChild<DownloadBar *>()->isVisibleTo(&view()));
    EXPECT_TRUE(reads(step(3), QStringLiteral("0%")));
}

TEST_F(WelcomeViewTest, ClosingButtonOnlyHides) {
    open();
    buttons(view(), QStringLiteral("Finish Later")).first()->click();
    EXPECT_FALSE(view().isVisible());
    EXPECT_EQ(terminations, 0);
    const WelcomeView *first = controller->welcomeWindow();
    controller->openWelcome();
    EXPECT_EQ(controller->welcomeWindow(), first);
    EXPECT_TRUE(view().isVisible());
}

TEST_F(WelcomeViewTest, TickerRunsOnlyWhileTheWindowIsShown) {
    open();
    const int shown = scheduler.repeatingTimers();
    view().close();
    EXPECT_EQ(scheduler.repeatingTimers(), shown - 1);
}

TEST(DownloadBarTest, DetailSaysWhatIsKnown) {
    EXPECT_EQ(DownloadBar::detail(120'000'000, 574'000'000, std::nullopt),
              QStringLiteral("120 MB of 574 MB"));
    EXPECT_EQ(DownloadBar::detail(120'000'000, 574'000'000, 8e6),
              QStringLiteral("120 MB of 574 MB, 8 MB/s, 57 s left"));
    EXPECT_EQ(DownloadBar::detail(0, 1'624'000'000, 1e6),
              QStringLiteral("0 kB of 1.62 GB, 1 MB/s, 27 min left"));
    EXPECT_EQ(DownloadBar::detail(500'000, 0, 1e5), QStringLiteral("500 kB, 100 kB/s"));
}

TEST(DownloadBarTest, ShowsWholePercentAndSpeedAfterAWhile) {
    DownloadBar bar(110);
    bar.showProgress(0.42999, 42, 100, 1000ms);
    EXPECT_TRUE(reads(bar, QStringLiteral("42%")));
    bar.showProgress(0.5, 10'000'000, 20'000'000, 1000ms);
    EXPECT_EQ(bar.toolTip(), QStringLiteral("10 MB of 20 MB"));
    bar.showProgress(0.75, 15'000'000, 20'000'000, 3000ms);
    EXPECT_EQ(bar.toolTip(), QStringLiteral("15 MB of 20 MB, 7 MB/s, 1 s left"));
    bar.showProgress(7.0, 0, 0, 3000ms);
    EXPECT_TRUE(reads(bar, QStringLiteral("100%")));
}

} // namespace
