// The settings window: every control both ways, every conditional text, every state of a model.

#include "Quenda/SettingsView.h"

#include "Fakes/ControllerFixture.h"
#include "Fakes/WidgetSearch.h"
#include "Quenda/DictationSection.h"
#include "Quenda/EngineSection.h"
#include "Quenda/Languages.h"
#include "Quenda/ModelDownloader.h"
#include "Quenda/ModelRow.h"
#include "Quenda/ProductSite.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QScrollArea>
#include <QSlider>
#include <QWheelEvent>

using namespace quenda;
using namespace std::chrono_literals;
using fakes::buttons;
using fakes::control;
using fakes::reads;

namespace {

class SettingsViewTest : public fakes::ControllerFixture {
protected:
    void open() {
        if (!controller)
            launch();
        controller->openSettings();
    }
    SettingsView &view() { return *controller->settingsWindow(); }
    QComboBox *picker(const QString &name) { return control<QComboBox>(view(), name); }
    QLineEdit *field(const QString &name) { return control<QLineEdit>(view(), name); }
    QSlider *slider(const QString &name) { return control<QSlider>(view(), name); }
    QCheckBox *toggle(const QString &text) {
        const auto found = buttons(view(), text);
        return found.size() == 1 ? qobject_cast<QCheckBox *>(found.first()) : nullptr;
    }
    static void choose(QComboBox *picker, const QString &title) {
        const int row = picker->findText(title);
        ASSERT_GE(row, 0) << qPrintable(title);
        picker->setCurrentIndex(row);
        Q_EMIT picker->activated(row);
    }
    static void type(QLineEdit *edit, const QString &text) {
        edit->setText(text);
        Q_EMIT edit->textEdited(text);
    }
    static QStringList titles(const QComboBox *picker) {
        QStringList all;
        for (int row = 0; row < picker->count(); ++row)
            all.append(picker->itemText(row));
        return all;
    }
    template <typename Change>
    void change(Change what) {
        controller->store().update(what);
    }
    void touch(const QString &fileName) {
        QDir().mkpath(Config::modelsDir());
        QFile file(Config::modelsDir() + QLatin1Char('/') + fileName);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    ModelRow *row(const QString &fileName) {
        for (ModelRow *each : view().findChildren<ModelRow *>()) {
            if (each->model().fileName == fileName)
                return each;
        }
        return nullptr;
    }
    bool rowOffers(const QString &fileName, const QString &button) {
        return buttons(*row(fileName), button).size() == 1;
    }
};

TEST_F(SettingsViewTest, SectionsStandInTheirOrder) {
    open();
    QStringList sections;
    for (const SettingsSection *section : view().findChildren<SettingsSection *>())
        sections.append(section->accessibleName());
    EXPECT_EQ(sections, (QStringList{QStringLiteral("Permissions"), QStringLiteral("Dictation"),
                                     QStringLiteral("Transcription"), QStringLiteral("Model"),
                                     QStringLiteral("Engine"), QStringLiteral("General")}));
}

TEST_F(SettingsViewTest, WindowHasItsSizeAndTitle) {
    open();
    EXPECT_EQ(view().windowTitle(), QStringLiteral("Quenda Settings"));
    EXPECT_EQ(view().size(), QSize(480, 580));
}

TEST_F(SettingsViewTest, NothingIsWiderThanTheWindow) {
    open();
    const QWidget *content = view().findChild<QScrollArea *>()->widget();
    EXPECT_LE(content->minimumSizeHint().width(), 480);
}

TEST_F(SettingsViewTest, OpeningTwiceShowsTheSameWindow) {
    open();
    const SettingsView *first = controller->settingsWindow();
    controller->settingsWindow()->close();
    controller->openSettings();
    EXPECT_EQ(controller->settingsWindow(), first);
    EXPECT_TRUE(first->isVisible());
}

TEST_F(SettingsViewTest, DictationKeyBothWays) {
    open();
    QComboBox *keys = picker(QStringLiteral("Dictation key"));
    EXPECT_EQ(
        titles(keys),
        (QStringList{QStringLiteral("Right Option (⌥)"), QStringLiteral("Right Command (⌘)"),
                     QStringLiteral("Right Control (⌃)"), QString::fromUtf8("Fn / Globe (🌐)")}));
    EXPECT_EQ(keys->currentText(), QStringLiteral("Right Option (⌥)"));
    choose(keys, QStringLiteral("Right Control (⌃)"));
    EXPECT_EQ(config().hotkey, HotkeyChoice::rightControl);
    change([](Config &config) { config.hotkey = HotkeyChoice::fnGlobe; });
    EXPECT_EQ(keys->currentText(), QString::fromUtf8("Fn / Globe (🌐)"));
}

TEST_F(SettingsViewTest, GlobeKeyHasATip) {
    open();
    const QString tip =
        QString::fromUtf8("Tip: set System Settings → Keyboard → “Press 🌐 key to” = Do Nothing, "
                          "or macOS will also trigger its own action.");
    EXPECT_FALSE(reads(view(), tip));
    change([](Config &config) { config.hotkey = HotkeyChoice::fnGlobe; });
    EXPECT_TRUE(reads(view(), tip));
    change([](Config &config) { config.hotkey = HotkeyChoice::rightCommand; });
    EXPECT_FALSE(reads(view(), tip));
}

TEST_F(SettingsViewTest, ActivationBothWaysWithItsExplanation) {
    open();
    const QString hold =
        QStringLiteral("Keep the key held while you speak; release to insert the text.");
    const QString press =
        QStringLiteral("Press once to start, speak as long as you like, press again to finish. "
                       "Click ✕ on the pill to discard.");
    QComboBox *modes = picker(QStringLiteral("Activation"));
    EXPECT_EQ(titles(modes), (QStringList{QStringLiteral("Hold to talk"),
                                          QStringLiteral("Press to start / stop")}));
    EXPECT_TRUE(reads(view(), hold));
    choose(modes, QStringLiteral("Press to start / stop"));
    EXPECT_EQ(config().activationMode, ActivationMode::toggle);
    EXPECT_TRUE(reads(view(), press));
    EXPECT_FALSE(reads(view(), hold));
    change([](Config &config) { config.activationMode = ActivationMode::hold; });
    EXPECT_EQ(modes->currentText(), QStringLiteral("Hold to talk"));
}

TEST_F(SettingsViewTest, MinimumHoldBothWays) {
    open();
    QSlider *hold = slider(QStringLiteral("Ignore taps shorter than"));
    EXPECT_EQ(hold->minimum(), 0);
    EXPECT_EQ(hold->maximum(), 20);
    EXPECT_EQ(hold->value(), 5);
    EXPECT_TRUE(reads(view(), QStringLiteral("0.25s")));
    hold->setValue(6);
    EXPECT_DOUBLE_EQ(config().minHoldSeconds, 0.3);
    EXPECT_TRUE(reads(view(), QStringLiteral("0.30s")));
    hold->setValue(20);
    EXPECT_DOUBLE_EQ(config().minHoldSeconds, 1.0);
    change([](Config &config) { config.minHoldSeconds = 0.33; });
    EXPECT_EQ(hold->value(), 7);
    EXPECT_TRUE(reads(view(), QStringLiteral("0.33s")));
    change([](Config &config) { config.minHoldSeconds = 0.125; });
    EXPECT_TRUE(reads(view(), QStringLiteral("0.12s"))); // half-way: to the even digit
    change([](Config &config) { config.minHoldSeconds = 0.33; });
    EXPECT_DOUBLE_EQ(config().minHoldSeconds, 0.33);
}

TEST_F(SettingsViewTest, AutoStopBothWays) {
    open();
    QSlider *cap = slider(QStringLiteral("Auto-stop after"));
    EXPECT_EQ(cap->maximum(), 8);
    EXPECT_TRUE(reads(view(), QStringLiteral("3m 0s")));
    cap->setValue(3);
    EXPECT_DOUBLE_EQ(config().maxDictationSeconds, 150);
    EXPECT_TRUE(reads(view(), QStringLiteral("2m 30s")));
    cap->setValue(0);
    EXPECT_DOUBLE_EQ(config().maxDictationSeconds, 60);
    change([](Config &config) { config.maxDictationSeconds = 1e300; });
    EXPECT_EQ(cap->value(), 8);
    EXPECT_DOUBLE_EQ(config().maxDictationSeconds, 1e300);
}

TEST_F(SettingsViewTest, LanguageBothWays) {
    open();
    QComboBox *languages = picker(QStringLiteral("Language"));
    ASSERT_EQ(languages->count(), 29);
    EXPECT_EQ(languages->itemText(0), QStringLiteral("Auto-detect"));
    EXPECT_EQ(languages->itemText(11), QStringLiteral("Filipino"));
    EXPECT_EQ(languages->itemText(12), QStringLiteral("Spanish"));
    EXPECT_EQ(languages->itemText(28), QString::fromUtf8("Punjabi (ਪੰਜਾਬੀ)"));
    choose(languages, QStringLiteral("German"));
    EXPECT_EQ(config().language, QStringLiteral("de"));
    change([](Config &config) { config.language = QStringLiteral("auto"); });
    EXPECT_EQ(languages->currentText(), QStringLiteral("Auto-detect"));
}

TEST_F(SettingsViewTest, UnknownLanguageFromTheFileIsLeftAlone) {
    open();
    change([](Config &config) { config.language = QStringLiteral("xx"); });
    EXPECT_EQ(picker(QStringLiteral("Language"))->currentIndex(), -1);
    EXPECT_EQ(config().language, QStringLiteral("xx"));
}

TEST_F(SettingsViewTest, EnglishOnlyWarning) {
    open();
    const QString warning =
        QStringLiteral("The current model (ggml-base.en.bin) is English-only. Switch to a "
                       "multilingual model below (Large v3 Turbo handles Chinese, Malay, Tamil and "
                       "90+ others).");
    change([](Config &config) { config.modelPath = QStringLiteral("/m.en/ggml-base.en.bin"); });
    EXPECT_FALSE(reads(view(), warning));
    change([](Config &config) { config.language = QStringLiteral("auto"); });
    EXPECT_TRUE(reads(view(), warning));
    change([](Config &config) { config.provider = TranscriptionProvider::openai; });
    EXPECT_FALSE(reads(view(), warning));
    change([](Config &config) {
        config.provider = TranscriptionProvider::local;
        config.modelPath = QStringLiteral("/m.en/ggml-base.bin");
    });
    EXPECT_FALSE(DictationSection::englishOnlyModelMismatch(config()));
}

TEST_F(SettingsViewTest, TogglesBothWays) {
    open();
    const QList<QPair<QString, bool Config::*>> toggles{
        {QStringLiteral("Remove filler words (um, uh, erm)"), &Config::removeFillerWords},
        {QStringLiteral("Play sound cues when recording starts/stops"), &Config::playSoundCues},
        {QStringLiteral("Check for updates automatically"), &Config::checkForUpdates},
    };
    for (const auto &[text, member] : toggles) {
        QCheckBox *box = toggle(text);
        ASSERT_TRUE(box) << qPrintable(text);
        EXPECT_EQ(box->isChecked(), config().*member);
        const bool before = config().*member;
        box->click();
        EXPECT_EQ(config().*member, !before) << qPrintable(text);
        change([field = member, before](Config &config) { config.*field = before; });
        EXPECT_EQ(box->isChecked(), before) << qPrintable(text);
    }
}

TEST_F(SettingsViewTest, TextFieldsBothWays) {
    open();
    change([](Config &config) { config.provider = TranscriptionProvider::custom; });
    const QList<QPair<QString, QString Config::*>> fields{
        {QStringLiteral("Custom words & names"), &Config::customVocabulary},
        {QStringLiteral("Model"), &Config::apiModelOverride},
        {QStringLiteral("Base URL"), &Config::customBaseURL},
        {QStringLiteral("whisper-server path"), &Config::whisperServerPath},
    };
    for (const auto &[name, member] : fields) {
        QLineEdit *edit = field(name);
        ASSERT_TRUE(edit) << qPrintable(name);
        EXPECT_EQ(edit->text(), config().*member);
        type(edit, QStringLiteral("typed"));
        EXPECT_EQ(config().*member, QStringLiteral("typed")) << qPrintable(name);
        change([field = member](Config &config) { config.*field = QStringLiteral("elsewhere"); });
        EXPECT_EQ(edit->text(), QStringLiteral("elsewhere")) << qPrintable(name);
    }
}

TEST_F(SettingsViewTest, TypingIsNotDisturbedByTheChangeItMakes) {
    open();
    QLineEdit *edit = field(QStringLiteral("Custom words & names"));
    type(edit, QStringLiteral("Alvero QMX"));
    edit->setCursorPosition(6);
    edit->insert(QStringLiteral(","));
    Q_EMIT edit->textEdited(edit->text());
    EXPECT_EQ(config().customVocabulary, QStringLiteral("Alvero, QMX"));
    EXPECT_EQ(edit->cursorPosition(), 7);
    edit->setSelection(2, 3);
    change([](Config &config) { config.playSoundCues = true; });
    EXPECT_EQ(edit->selectedText(), QStringLiteral("ver"));
}

TEST_F(SettingsViewTest, CloudFieldsShowWithTheirProvider) {
    open();
    const auto shown = [&](const QString &name) { return field(name)->isVisibleTo(&view()); };
    QComboBox *services = picker(QStringLiteral("Service"));
    EXPECT_EQ(titles(services),
              (QStringList{QStringLiteral("On-device (private)"), QStringLiteral("OpenAI"),
                           QStringLiteral("Groq"), QStringLiteral("Custom (OpenAI-compatible)")}));
    EXPECT_FALSE(shown(QStringLiteral("API key")));
    EXPECT_FALSE(shown(QStringLiteral("Model")));
    EXPECT_FALSE(shown(QStringLiteral("Base URL")));
    EXPECT_TRUE(reads(view(), QStringLiteral("Everything runs on this Mac — no audio or text ever "
                                             "leaves the machine.")));
    struct Row {
        QString title;
        TranscriptionProvider provider;
        QString placeholder;
        bool base;
    };
    for (const Row &expected :
         {Row{QStringLiteral("OpenAI"), TranscriptionProvider::openai, QStringLiteral("whisper-1"),
              false},
          Row{QStringLiteral("Groq"), TranscriptionProvider::groq,
              QStringLiteral("whisper-large-v3-turbo"), false},
          Row{QStringLiteral("Custom (OpenAI-compatible)"), TranscriptionProvider::custom,
              QStringLiteral("whisper-large-v3-turbo"), true}}) {
        choose(services, expected.title);
        EXPECT_EQ(config().provider, expected.provider);
        EXPECT_TRUE(shown(QStringLiteral("API key")));
        EXPECT_TRUE(shown(QStringLiteral("Model")));
        EXPECT_EQ(shown(QStringLiteral("Base URL")), expected.base);
        EXPECT_EQ(field(QStringLiteral("Model"))->placeholderText(), expected.placeholder);
        EXPECT_TRUE(reads(view(), QStringLiteral("Your audio is sent to %1 for transcription. Keys "
                                                 "are stored in Quenda's config file, readable "
                                                 "only by your user account.")
                                      .arg(expected.title)));
    }
    EXPECT_EQ(field(QStringLiteral("API key"))->placeholderText(), QStringLiteral("sk-…"));
    EXPECT_EQ(field(QStringLiteral("API key"))->echoMode(), QLineEdit::Password);
    EXPECT_EQ(field(QStringLiteral("Base URL"))->placeholderText(),
              QStringLiteral("https://your-host/v1"));
}

TEST_F(SettingsViewTest, EachProviderHasItsOwnKey) {
    open();
    change([](Config &config) { config.provider = TranscriptionProvider::openai; });
    QLineEdit *key = field(QStringLiteral("API key"));
    EXPECT_EQ(key->text(), QString());
    type(key, QStringLiteral("sk-one"));
    change([](Config &config) { config.provider = TranscriptionProvider::groq; });
    EXPECT_EQ(key->text(), QString());
    type(key, QStringLiteral("gsk-two"));
    EXPECT_EQ(config().apiKeys.value(QStringLiteral("openai")), QStringLiteral("sk-one"));
    EXPECT_EQ(config().apiKeys.value(QStringLiteral("groq")), QStringLiteral("gsk-two"));
    change([](Config &config) { config.provider = TranscriptionProvider::openai; });
    EXPECT_EQ(key->text(), QStringLiteral("sk-one"));
}

TEST_F(SettingsViewTest, ModelRowActionIsDecidedInItsOrder) {
    using Action = ModelRow::Action;
    EXPECT_EQ(ModelRow::actionFor({0.5, true, true}), Action::progress);
    EXPECT_EQ(ModelRow::actionFor({std::nullopt, false, true}), Action::download);
    EXPECT_EQ(ModelRow::actionFor({std::nullopt, false, false}), Action::download);
    EXPECT_EQ(ModelRow::actionFor({std::nullopt, true, true}), Action::inUse);
    EXPECT_EQ(ModelRow::actionFor({std::nullopt, true, false}), Action::use);
}

TEST_F(SettingsViewTest, ModelsInTheFolderCanBeUsed) {
    touch(QStringLiteral("ggml-small.bin"));
    open();
    EXPECT_TRUE(rowOffers(QStringLiteral("ggml-small.bin"), QStringLiteral("Use")));
    EXPECT_TRUE(rowOffers(QStringLiteral("ggml-large-v3-turbo.bin"), QStringLiteral("Download")));
    buttons(*row(QStringLiteral("ggml-small.bin")), QStringLiteral("Use")).first()->click();
    EXPECT_EQ(config().modelPath, Config::modelsDir() + QStringLiteral("/ggml-small.bin"));
    EXPECT_TRUE(reads(*row(QStringLiteral("ggml-small.bin")), QStringLiteral("In use")));
    EXPECT_FALSE(rowOffers(QStringLiteral("ggml-small.bin"), QStringLiteral("Use")));
    EXPECT_TRUE(
        reads(view(), QStringLiteral("Near-best accuracy, smaller & faster to download ·\u00a0"
                                     "574\u00a0MB")));
}

TEST_F(SettingsViewTest, AmpersandInALabelIsNoAccessKey) {
    open();
    // Doubled: shown once, and no key is taken by it.
    EXPECT_TRUE(reads(view(), QStringLiteral("Custom words && names")));
    EXPECT_TRUE(field(QStringLiteral("Custom words & names")));
}

TEST_F(SettingsViewTest, ExtraModelsAreListedWhenTheWindowAppears) {
    touch(QStringLiteral("my-finetune.bin"));
    touch(QStringLiteral("notes.txt"));
    open();
    ASSERT_TRUE(row(QStringLiteral("my-finetune.bin")));
    EXPECT_FALSE(row(QStringLiteral("notes.txt")));
    EXPECT_TRUE(reads(*row(QStringLiteral("my-finetune.bin")), QStringLiteral("Custom model")));
    touch(QStringLiteral("another.bin"));
    view().close();
    controller->openSettings();
    ASSERT_TRUE(row(QStringLiteral("another.bin")));
    buttons(*row(QStringLiteral("another.bin")), QStringLiteral("Use")).first()->click();
    EXPECT_EQ(config().modelPath, Config::modelsDir() + QStringLiteral("/another.bin"));
    EXPECT_TRUE(reads(*row(QStringLiteral("another.bin")), QStringLiteral("In use")));
}

TEST_F(SettingsViewTest, ModelLinksLeadToFolderAndPage) {
    open();
    buttons(view(), QStringLiteral("Open Models Folder")).first()->click();
    EXPECT_EQ(fake.workspace->opened.last(), QUrl::fromLocalFile(Config::modelsDir()));
    QLabel *browse = control<QLabel>(view(), QStringLiteral("Browse all models…"));
    ASSERT_TRUE(browse);
    Q_EMIT browse->linkActivated(kModelPageUrl);
    EXPECT_EQ(fake.workspace->opened.last(), QUrl(kModelPageUrl));
    EXPECT_TRUE(kModelPageUrl.endsWith(QStringLiteral("/tree/main")));
}

TEST_F(SettingsViewTest, EngineStatusFollowsTheEngine) {
    installEngine();
    open();
    QLabel *status = view().findChild<QLabel *>(QStringLiteral("engineStatus"));
    EXPECT_EQ(status->text(), QStringLiteral("Loading model…"));
    becomeReady();
    EXPECT_EQ(status->text(), QStringLiteral("Ready"));
    controller->engine().stop();
    EXPECT_EQ(status->text(), QStringLiteral("Stopped"));
    change([](Config &config) { config.modelPath = QStringLiteral("/nowhere"); });
    controller->startEngine();
    EXPECT_EQ(status->text(),
              QStringLiteral("No model installed yet. Open Settings to download one."));
}

TEST_F(SettingsViewTest, IdleMinutesBothWays) {
    open();
    QComboBox *idle = picker(QStringLiteral("Free memory when idle for"));
    EXPECT_EQ(titles(idle), (QStringList{QStringLiteral("Never"), QStringLiteral("5 minutes"),
                                         QStringLiteral("15 minutes"), QStringLiteral("30 minutes"),
                                         QStringLiteral("1 hour")}));
    for (const auto &[text, minutes] :
         QList<QPair<QString, int>>{{QStringLiteral("1 hour"), 60},
                                    {QStringLiteral("Never"), 0},
                                    {QStringLiteral("5 minutes"), 5},
                                    {QStringLiteral("15 minutes"), 15},
                                    {QStringLiteral("30 minutes"), 30}}) {
        choose(idle, text);
        EXPECT_EQ(config().idleUnloadMinutes, minutes);
    }
    change([](Config &config) { config.idleUnloadMinutes = 60; });
    EXPECT_EQ(idle->currentText(), QStringLiteral("1 hour"));
}

TEST_F(SettingsViewTest, PortIsTakenOnlyWithinItsRange) {
    open();
    QLineEdit *port = field(QStringLiteral("Server port"));
    QLabel *refusal = view().findChild<QLabel *>(QStringLiteral("portRefusal"));
    EXPECT_EQ(port->text(), QStringLiteral("8698"));
    EXPECT_FALSE(refusal->isVisibleTo(&view()));
    for (const QString &wrong :
         {QStringLiteral("0"), QStringLiteral("65536"), QStringLiteral("-1"), QString(),
          QStringLiteral("80a"), QStringLiteral("1.5"), QStringLiteral("99999999999999999999")}) {
        type(port, wrong);
        EXPECT_EQ(config().serverPort, 8698) << qPrintable(wrong);
        EXPECT_TRUE(refusal->isVisibleTo(&view())) << qPrintable(wrong);
        change([](Config &config) { config.playSoundCues = !config.playSoundCues; });
        EXPECT_EQ(port->text(), wrong);
    }
    for (const int right : {1, 65535, 9000}) {
        type(port, QString::number(right));
        EXPECT_EQ(config().serverPort, right);
        EXPECT_FALSE(refusal->isVisibleTo(&view()));
    }
    change([](Config &config) { config.serverPort = 7000; });
    EXPECT_EQ(port->text(), QStringLiteral("7000"));
}

TEST_F(SettingsViewTest, RestartButtonRestarts) {
    installEngine();
    open();
    becomeReady();
    ASSERT_EQ(fake.processes->children.size(), 1U);
    buttons(view(), QStringLiteral("Restart Engine")).first()->click();
    EXPECT_EQ(fake.processes->children.size(), 2U);
}

TEST_F(SettingsViewTest, MicrophoneRowByStatus) {
    open();
    const auto offered = [&](const QString &text) { return !buttons(view(), text).isEmpty(); };
    struct Row {
        AuthorizationStatus status;
        QString detail;
        bool enable;
        bool mend;
    };
    for (const Row &expected :
         {Row{AuthorizationStatus::Authorized, QStringLiteral("Granted"), false, false},
          Row{AuthorizationStatus::Restricted, QStringLiteral("Restricted by a management profile"),
              false, true},
          Row{AuthorizationStatus::Denied, QStringLiteral("Denied or stuck — use Reset & Relaunch"),
              false, true},
          Row{AuthorizationStatus::NotDetermined,
              QStringLiteral("Not requested yet — click Enable"), true, false},
          Row{AuthorizationStatus(9), QStringLiteral("Unknown"), false, true}}) {
        fake.microphonePermission->authorization = expected.status;
        advance(2s);
        EXPECT_TRUE(reads(view(), expected.detail)) << qPrintable(expected.detail);
        EXPECT_EQ(offered(QStringLiteral("Enable")), expected.enable);
        EXPECT_EQ(offered(QStringLiteral("Open Settings")), expected.mend);
        EXPECT_EQ(offered(QStringLiteral("Fix Microphone")), expected.mend);
    }
}

TEST_F(SettingsViewTest, MicrophoneActions) {
    fake.microphonePermission->authorization = AuthorizationStatus::NotDetermined;
    open();
    const int before = fake.microphonePermission->requests;
    buttons(view(), QStringLiteral("Enable")).first()->click();
    EXPECT_EQ(fake.microphonePermission->requests, before + 1);
    fake.microphonePermission->authorization = AuthorizationStatus::Denied;
    advance(2s);
    buttons(view(), QStringLiteral("Open Settings")).first()->click();
    EXPECT_EQ(fake.workspace->panes, QStringList{QStringLiteral("Privacy_Microphone")});
    buttons(view(), QStringLiteral("Fix Microphone")).first()->click();
    EXPECT_EQ(fake.workspace->resets, QStringList{QStringLiteral("Microphone")});
    EXPECT_EQ(terminations, 1);
}

TEST_F(SettingsViewTest, AccessibilityRowTurnsGreenByItself) {
    fake.accessibility->trusted = false;
    open();
    const int before = fake.accessibility->prompts;
    buttons(view(), QStringLiteral("Enable")).first()->click();
    EXPECT_EQ(fake.accessibility->prompts, before + 1);
    buttons(view(), QStringLiteral("Open Settings")).first()->click();
    EXPECT_EQ(fake.workspace->panes, QStringList{QStringLiteral("Privacy_Accessibility")});
    EXPECT_EQ(buttons(view(), QStringLiteral("Fix Accessibility")).size(), 1);
    fake.accessibility->trusted = true;
    advance(2s);
    EXPECT_TRUE(buttons(view(), QStringLiteral("Fix Accessibility")).isEmpty());
    EXPECT_TRUE(buttons(view(), QStringLiteral("Enable")).isEmpty());
}

TEST_F(SettingsViewTest, FixAccessibilityResetsThatService) {
    fake.accessibility->trusted = false;
    open();
    buttons(view(), QStringLiteral("Fix Accessibility")).first()->click();
    EXPECT_EQ(fake.workspace->resets, QStringList{QStringLiteral("Accessibility")});
}

TEST_F(SettingsViewTest, InputDeviceIsNamed) {
    open();
    EXPECT_TRUE(reads(view(), QStringLiteral("Fake Microphone")));
    fake.audioInput->deviceName.reset();
    advance(2s);
    EXPECT_TRUE(reads(view(), QStringLiteral("None found")));
}

TEST_F(SettingsViewTest, TickerRunsOnlyWhileTheWindowIsShown) {
    open();
    const int shown = scheduler.repeatingTimers();
    view().close();
    EXPECT_EQ(scheduler.repeatingTimers(), shown - 1);
    controller->openSettings();
    EXPECT_EQ(scheduler.repeatingTimers(), shown);
}

TEST_F(SettingsViewTest, LaunchAtLoginShowsWhatIsReallyThere) {
    fake.loginItem->enabled = true;
    open();
    QCheckBox *box = toggle(QStringLiteral("Launch at login"));
    EXPECT_TRUE(box->isChecked());
    box->click();
    EXPECT_FALSE(fake.loginItem->enabled);
    box->click();
    EXPECT_TRUE(fake.loginItem->enabled);
    fake.loginItem->refuse = true;
    box->click();
    EXPECT_TRUE(box->isChecked());
    EXPECT_TRUE(fake.loginItem->enabled);
}

TEST_F(SettingsViewTest, WheelOverAControlScrollsInsteadOfChangingIt) {
    open();
    QComboBox *languages = picker(QStringLiteral("Language"));
    view().setFocus();
    QWheelEvent wheel(QPointF(5, 5), languages->mapToGlobal(QPointF(5, 5)), QPoint(),
                      QPoint(0, -120), Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(languages, &wheel);
    EXPECT_EQ(config().language, QStringLiteral("en"));
    EXPECT_EQ(languages->currentText(), QStringLiteral("English"));
}

TEST_F(SettingsViewTest, EveryControlHasAnAccessibleName) {
    open();
    change([](Config &config) { config.provider = TranscriptionProvider::custom; });
    for (const QWidget *widget : view().findChildren<QWidget *>()) {
        const bool isControl = qobject_cast<const QComboBox *>(widget) ||
                               qobject_cast<const QLineEdit *>(widget) ||
                               qobject_cast<const QSlider *>(widget);
        if (isControl) {
            EXPECT_FALSE(widget->accessibleName().isEmpty()) << widget->metaObject()->className();
        }
        const auto *button = qobject_cast<const QAbstractButton *>(widget);
        if (button && button->isVisibleTo(&view())) {
            EXPECT_FALSE(button->text().isEmpty());
        }
    }
}

TEST_F(SettingsViewTest, ControlsStandInOneColumn) {
    open();
    QCoreApplication::processEvents();
    const int column = picker(QStringLiteral("Dictation key"))->mapTo(&view(), QPoint()).x();
    for (const auto *name : {"Activation", "Language", "Service", "Free memory when idle for"})
        EXPECT_EQ(picker(QLatin1String(name))->mapTo(&view(), QPoint()).x(), column) << name;
    for (const auto *name : {"Custom words & names", "Server port", "whisper-server path"})
        EXPECT_EQ(field(QLatin1String(name))->mapTo(&view(), QPoint()).x(), column) << name;
}

TEST_F(SettingsViewTest, TabOrderFollowsTheEye) {
    open();
    change([](Config &config) { config.provider = TranscriptionProvider::custom; });
    QCoreApplication::processEvents();
    int lowest = -1;
    const QWidget *first = picker(QStringLiteral("Dictation key"));
    for (const QWidget *widget = first;;) {
        const bool stops = (widget->focusPolicy() & Qt::TabFocus) && widget->isVisibleTo(&view()) &&
                           widget->isEnabled() && !widget->focusProxy();
        if (stops && widget != &view()) {
            const int y = widget->mapTo(&view(), QPoint(0, widget->height() / 2)).y();
            EXPECT_GE(y, lowest - 20) << qPrintable(widget->accessibleName());
            lowest = y;
        }
        widget = widget->nextInFocusChain();
        if (widget == first || widget == &view())
            break;
    }
    EXPECT_GT(lowest, 0);
}

} // namespace
