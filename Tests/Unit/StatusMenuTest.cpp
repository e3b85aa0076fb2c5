// The status menu: its entries, the status line for every state, the hint and the history.

#include "Fakes/ControllerFixture.h"
#include "Quenda/StatusItem.h"

#include <QAction>
#include <QMenu>

using namespace quenda;
using namespace std::chrono_literals;
using Kind = WhisperEngine::State::Kind;

namespace {

class StatusMenu : public fakes::ControllerFixture {
protected:
    QAction *entry(int number) { return controller->statusMenu()->actions().at(number - 1); }
    QString statusLine() { return entry(3)->text(); }
    void open() { Q_EMIT controller->statusMenu()->aboutToShow(); }
    QList<QAction *> historyEntries() {
        open();
        return entry(8)->menu()->actions();
    }
    void transcribed(const QString &text) {
        dictate();
        answerTranscript(text);
    }
};

TEST_F(StatusMenu, HasFifteenEntriesInTheirOrder) {
    launch();
    const QList<QAction *> entries = controller->statusMenu()->actions();
    ASSERT_EQ(entries.size(), 15);
    const QStringList titles{
        QStringLiteral("Update available"),
        {},
        QStringLiteral("Engine problem — open Settings"),
        {},
        QStringLiteral("Hold Right Option (⌥) to dictate"),
        QStringLiteral("Mic: —"),
        {},
        QStringLiteral("Recent Dictations"),
        {},
        QStringLiteral("Settings…"),
        QStringLiteral("Restart Engine"),
        QStringLiteral("Check for Updates…"),
        QStringLiteral("About Quenda"),
        {},
        QStringLiteral("Quit Quenda"),
    };
    for (int number = 1; number <= 15; ++number) {
        const QString expected = titles.at(number - 1);
        EXPECT_EQ(entry(number)->isSeparator(), expected.isEmpty()) << number;
        EXPECT_EQ(entry(number)->text(), expected) << number;
        EXPECT_EQ(entry(number)->isVisible(), number > 2) << number;
        const bool informs = number == 3 || number == 5 || number == 6;
        if (!expected.isEmpty() && number > 2) { // a hidden entry answers as disabled
            EXPECT_EQ(entry(number)->isEnabled(), !informs) << number;
        }
    }
    EXPECT_EQ(entry(10)->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));
    EXPECT_EQ(entry(15)->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));
    for (const int number : {1, 11, 12, 13})
        EXPECT_TRUE(entry(number)->shortcut().isEmpty()) << number;
    EXPECT_FALSE(entry(1)->icon().isNull());
}

TEST_F(StatusMenu, StatusLineFollowsTheEngine) {
    Config settings = Config::defaults();
    settings.idleUnloadMinutes = 1;
    writeConfig(settings);
    installEngine();
    launch();
    EXPECT_EQ(statusLine(), QStringLiteral("Loading model (ggml-large-v3-turbo.bin)…"));
    becomeReady();
    EXPECT_EQ(statusLine(), QStringLiteral("Ready — ggml-large-v3-turbo.bin"));
    advance(3min);
    EXPECT_EQ(statusLine(), QStringLiteral("Idle — wakes on dictation"));
    controller->engine().stop();
    EXPECT_EQ(statusLine(), QStringLiteral("Engine stopped"));
    controller->store().update(
        [](Config &config) { config.modelPath = QStringLiteral("/nowhere"); });
    controller->startEngine();
    EXPECT_EQ(statusLine(), QStringLiteral("Engine problem — open Settings"));
}

TEST_F(StatusMenu, StatusLineFollowsTheCloudSettings) {
    installEngine();
    launch();
    struct Row {
        TranscriptionProvider provider;
        QString name;
        QString model;
    };
    for (const Row &row :
         {Row{TranscriptionProvider::openai, QStringLiteral("OpenAI"), QStringLiteral("whisper-1")},
          Row{TranscriptionProvider::groq, QStringLiteral("Groq"),
              QStringLiteral("whisper-large-v3-turbo")},
          Row{TranscriptionProvider::custom, QStringLiteral("Custom (OpenAI-compatible)"),
              QStringLiteral("whisper-1")}}) {
        controller->store().update([&](Config &config) {
            config.provider = row.provider;
            config.apiModelOverride.clear();
        });
        EXPECT_EQ(statusLine(), row.name + QStringLiteral(": add API key in Settings"));
        controller->store().update(
            [&](Config &config) { config.apiKeys.insert(rawValue(row.provider), QString()); });
        EXPECT_EQ(statusLine(), row.name + QStringLiteral(": add API key in Settings"));
        controller->store().update([&](Config &config) {
            config.apiKeys.insert(rawValue(row.provider), QStringLiteral("key"));
        });
        EXPECT_EQ(statusLine(),
                  QStringLiteral("Ready — ") + row.name + QStringLiteral(" (%1)").arg(row.model));
        controller->store().update(
            [&](Config &config) { config.apiModelOverride = QStringLiteral("mine"); });
        EXPECT_EQ(statusLine(), QStringLiteral("Ready — ") + row.name + QStringLiteral(" (mine)"));
    }
}

TEST_F(StatusMenu, HintForEveryKeyAndMode) {
    const QList<QPair<HotkeyChoice, QString>> labels{
        {HotkeyChoice::rightOption, QStringLiteral("Right Option (⌥)")},
        {HotkeyChoice::rightCommand, QStringLiteral("Right Command (⌘)")},
        {HotkeyChoice::rightControl, QStringLiteral("Right Control (⌃)")},
        {HotkeyChoice::fnGlobe, QStringLiteral("Fn / Globe (🌐)")},
    };
    for (const auto &[key, label] : labels) {
        EXPECT_EQ(AppDelegate::hintText(key, ActivationMode::hold),
                  QStringLiteral("Hold ") + label + QStringLiteral(" to dictate"));
        EXPECT_EQ(AppDelegate::hintText(key, ActivationMode::toggle),
                  QStringLiteral("Press ") + label + QStringLiteral(" to start/stop dictating"));
    }
}

TEST_F(StatusMenu, MicrophoneLineIsMadeOnOpening) {
    launch();
    open();
    EXPECT_EQ(entry(6)->text(), QStringLiteral("Mic: Fake Microphone"));
    fake.audioInput->deviceName.reset();
    EXPECT_EQ(entry(6)->text(), QStringLiteral("Mic: Fake Microphone"));
    open();
    EXPECT_EQ(entry(6)->text(), QStringLiteral("Mic: no input device"));
}

TEST_F(StatusMenu, AmpersandInANameIsNoMnemonic) {
    launch();
    fake.audioInput->deviceName = QStringLiteral("Rock & Roll");
    open();
    EXPECT_EQ(entry(6)->text(), QStringLiteral("Mic: Rock && Roll"));
}

TEST_F(StatusMenu, EmptyHistorySaysSo) {
    launch();
    const QList<QAction *> entries = historyEntries();
    ASSERT_EQ(entries.size(), 1);
    EXPECT_EQ(entries.first()->text(), QStringLiteral("No dictations yet"));
    EXPECT_FALSE(entries.first()->isEnabled());
}

TEST_F(StatusMenu, HistoryIsNewestFirstAndRebuiltOnOpening) {
    launchReady();
    transcribed(QStringLiteral("One."));
    transcribed(QStringLiteral("Two."));
    EXPECT_EQ(entry(8)->menu()->actions().size(), 1); // not yet opened
    const QList<QAction *> entries = historyEntries();
    ASSERT_EQ(entries.size(), 4);
    EXPECT_EQ(entries.at(0)->text(), QStringLiteral("Two."));
    EXPECT_EQ(entries.at(1)->text(), QStringLiteral("One."));
    EXPECT_EQ(entries.at(0)->toolTip(), QStringLiteral("Click to copy the full text"));
    EXPECT_TRUE(entries.at(2)->isSeparator());
    EXPECT_EQ(entries.at(3)->text(), QStringLiteral("Clear History"));
}

TEST_F(StatusMenu, LongEntriesAreCutAtFiftyCharacters) {
    launchReady();
    const QString fifty(50, QLatin1Char('a'));
    transcribed(fifty);
    transcribed(fifty + QLatin1Char('b'));
    const QList<QAction *> entries = historyEntries();
    EXPECT_EQ(entries.at(0)->text(), fifty + QStringLiteral("…"));
    EXPECT_EQ(entries.at(1)->text(), fifty);
    entries.at(0)->trigger();
    EXPECT_EQ(fake.pasteboard->string(), fifty + QLatin1Char('b'));
    entries.at(1)->trigger();
    EXPECT_EQ(fake.pasteboard->string(), fifty);
}

TEST_F(StatusMenu, CharactersOfAnEntryAreNotCutApart) {
    launchReady();
    const QString family = QString::fromUtf8("👩‍👩‍👧");
    transcribed(family.repeated(51));
    EXPECT_EQ(historyEntries().first()->text(), family.repeated(50) + QStringLiteral("…"));
}

TEST_F(StatusMenu, CopyClearsThePasteboardFirstAndTellsIt) {
    launchReady();
    transcribed(QStringLiteral("Copy & paste."));
    advance(5s);
    QAction *item = historyEntries().first();
    EXPECT_EQ(item->text(), QStringLiteral("Copy && paste."));
    fake.journal.clear();
    item->trigger();
    EXPECT_EQ(fake.journal,
              (QStringList{QStringLiteral("clear"), QStringLiteral("setString Copy & paste.")}));
    EXPECT_EQ(pillText(), QStringLiteral("Copied ✓"));
}

TEST_F(StatusMenu, ClearHistoryEmptiesIt) {
    launchReady();
    transcribed(QStringLiteral("One."));
    historyEntries().last()->trigger();
    EXPECT_TRUE(controller->history().isEmpty());
    EXPECT_EQ(historyEntries().first()->text(), QStringLiteral("No dictations yet"));
}

TEST_F(StatusMenu, QuitTerminatesThroughTheOnePath) {
    launch();
    entry(15)->trigger();
    EXPECT_EQ(terminations, 1);
}

TEST_F(StatusMenu, ItemIsMadeAnewWhenTheHostChanges) {
    launchReady();
    pressKey();
    ASSERT_TRUE(fake.statusTray->hostChanged);
    fake.statusTray->hostChanged();
    EXPECT_TRUE(controller->statusItemShowsRecording());
    releaseKey();
    EXPECT_FALSE(controller->statusItemShowsRecording());
}

TEST_F(StatusMenu, ItemIsMadeOnlyWhileThereIsAHost) {
    fakes::FakeStatusTray tray;
    tray.host = false;
    QMenu menu;
    StatusItem item(menu, tray);
    EXPECT_FALSE(item.isMade());
    item.setRecording(true);
    tray.hostChanged();
    EXPECT_FALSE(item.isMade());
    tray.host = true;
    tray.hostChanged();
    EXPECT_TRUE(item.isMade());
    EXPECT_TRUE(item.isRecording());
    tray.host = false;
    tray.hostChanged();
    EXPECT_FALSE(item.isMade());
}

} // namespace
