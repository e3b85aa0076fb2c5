// Pictures of the program's windows, drawn off screen on the fake platform, for people to look at,
// in light and dark, with large letters and from right to left; and a check on the way that no
// text is cut off. The folder for the pictures comes from QUENDA_SHOTS; without it nothing is
// written. QT_SCALE_FACTOR scales, as for any program.

#include "Fakes/ControllerFixture.h"
#include "Quenda/AboutView.h"
#include "Quenda/ModelCatalog.h"
#include "Quenda/ModelDownloader.h"
#include "Quenda/SettingsView.h"
#include "Quenda/WelcomeView.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPalette>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QTranslator>

#include <algorithm>

using namespace quenda;
using namespace std::chrono_literals;

namespace {

QPalette darkPalette() {
    const QColor window(45, 45, 48);
    const QColor text(235, 235, 235);
    QPalette dark(QColor(62, 62, 66), window);
    dark.setColor(QPalette::Base, QColor(30, 30, 32));
    dark.setColor(QPalette::AlternateBase, QColor(53, 53, 57));
    for (const QPalette::ColorRole role :
         {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::ToolTipText})
        dark.setColor(role, text);
    dark.setColor(QPalette::PlaceholderText, QColor(170, 170, 175));
    dark.setColor(QPalette::Highlight, QColor(64, 120, 200));
    dark.setColor(QPalette::HighlightedText, Qt::white);
    dark.setColor(QPalette::Link, QColor(110, 170, 255));
    return dark;
}

constexpr double kLeastSize = 0.95; // at which a picker may write its entry

struct Look {
    const char *name;
    bool dark;
    double pointSize; // 0: the desktop's own
    Qt::LayoutDirection direction;
};

class WindowShots : public fakes::ControllerFixture, public testing::WithParamInterface<Look> {
protected:
    WindowShots() {
        QApplication::setStyle(QStringLiteral("Fusion"));
        QApplication::setPalette(GetParam().dark ? darkPalette()
                                                 : QApplication::style()->standardPalette());
        QFont mine(QStringLiteral("DejaVu Sans"));
        mine.setPointSizeF(GetParam().pointSize > 0 ? GetParam().pointSize : 9.5);
        QApplication::setFont(mine);
        QApplication::setLayoutDirection(GetParam().direction);
        if (m_words.load(QStringLiteral(":/wording/platform.qm")))
            QCoreApplication::installTranslator(&m_words);
    }
    ~WindowShots() override { QCoreApplication::removeTranslator(&m_words); }

    void SetUp() override { ASSERT_FALSE(m_words.isEmpty()); }

    void shoot(QWidget &window, const QString &name) {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        expectTextsFit(window, name);
        expectChoicesFit(window, name);
        const QString folder = qEnvironmentVariable("QUENDA_SHOTS");
        if (folder.isEmpty())
            return;
        QDir().mkpath(folder);
        const QString scale = window.devicePixelRatioF() > 1.5 ? QStringLiteral("@2x") : QString();
        const QString file = QStringLiteral("%1/%2-%3%4.png")
                                 .arg(folder, name, QLatin1String(GetParam().name), scale);
        EXPECT_TRUE(window.grab().save(file)) << qPrintable(file);
    }

    /// Every visible label has the room its text needs, and nothing stands outside its parent.
    static void expectTextsFit(QWidget &window, const QString &where) {
        for (const QWidget *widget : window.findChildren<QWidget *>()) {
            if (!widget->isVisible())
                continue;
            const auto *label = qobject_cast<const QLabel *>(widget);
            const auto *button = qobject_cast<const QAbstractButton *>(widget);
            const QString text = label ? label->text() : button ? button->text() : QString();
            if (text.isEmpty())
                continue;
            int width = widget->sizeHint().width();
            int height = widget->sizeHint().height();
            if (button && button->hasHeightForWidth()) {
                width = widget->minimumSizeHint().width();
                height = widget->heightForWidth(widget->width());
            }
            if (label && label->wordWrap()) {
                width = widget->minimumSizeHint().width();
                height = widget->heightForWidth(widget->width());
            }
            EXPECT_GE(widget->width(), width) << qPrintable(where + QStringLiteral(": ") + text);
            EXPECT_GE(widget->height(), height) << qPrintable(where + QStringLiteral(": ") + text);
            const QRect inParent = widget->geometry();
            EXPECT_TRUE(widget->parentWidget()->rect().contains(inParent))
                << qPrintable(where + QStringLiteral(": outside its place: ") + text);
        }
    }

    /// Every Latin entry of every picker has the room its text needs, chosen or not, if need be
    /// written a little smaller.
    static void expectChoicesFit(QWidget &window, const QString &where) {
        for (const QComboBox *picker : window.findChildren<QComboBox *>()) {
            if (!picker->isVisible())
                continue;
            QStyleOptionComboBox option;
            option.initFrom(picker);
            option.subControls = QStyle::SC_All;
            const int room = picker->style()
                                 ->subControlRect(QStyle::CC_ComboBox, &option,
                                                  QStyle::SC_ComboBoxEditField, picker)
                                 .width() -
                             2; // which styles leave beside the text
            for (int row = 0; row < picker->count(); ++row) {
                const QString text = picker->itemText(row);
                const bool isLatin = std::all_of(text.begin(), text.end(), [](QChar letter) {
                    return letter.unicode() < 0x250;
                });
                if (!isLatin)
                    continue; // its font need not be there
                EXPECT_GE(room, picker->fontMetrics().horizontalAdvance(text) * kLeastSize)
                    << qPrintable(where + QStringLiteral(": ") + text);
            }
        }
    }

    void touch(const QString &path) {
        QDir().mkpath(Config::modelsDir());
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }

    void shootSettings(const QString &name) {
        SettingsView &view = *controller->settingsWindow();
        shoot(view, name);
        QScrollBar *bar = view.findChild<QScrollArea *>()->verticalScrollBar();
        for (int part = 2; bar->value() < bar->maximum(); ++part) {
            bar->setValue(bar->value() + bar->pageStep() - 40);
            shoot(view, QStringLiteral("%1-%2").arg(name).arg(part));
        }
        EXPECT_EQ(view.findChild<QScrollArea *>()->horizontalScrollBar()->maximum(), 0) << "hidden";
    }

private:
    QTranslator m_words;
};

TEST_P(WindowShots, Settings) {
    installEngine();
    touch(Config::modelsDir() + QStringLiteral("/ggml-base.en.bin"));
    touch(Config::modelsDir() + QStringLiteral("/ggml-of-my-own-with-a-rather-long-name.bin"));
    launch();
    becomeReady();
    fake.workspace->compositing = true;
    controller->openSettings();
    shootSettings(QStringLiteral("settings"));
}

TEST_P(WindowShots, SettingsWithEverythingShown) {
    installEngine();
    Config config = Config::defaults();
    config.provider = TranscriptionProvider::custom;
    config.hotkey = HotkeyChoice::fnGlobe;
    config.activationMode = ActivationMode::toggle;
    writeConfig(config);
    fake.microphonePermission->authorization = AuthorizationStatus::Denied;
    fake.accessibility->trusted = false;
    launch();
    controller->openSettings();
    shootSettings(QStringLiteral("settings-full"));
}

TEST_P(WindowShots, SettingsWithWarning) {
    Config config = Config::defaults();
    config.language = QStringLiteral("auto");
    config.modelPath = Config::modelsDir() + QStringLiteral("/ggml-base.en.bin");
    writeConfig(config);
    touch(config.modelPath);
    launch();
    controller->openSettings();
    shootSettings(QStringLiteral("settings-warning"));
}

// All that takes long: a model that loads, one that is downloaded, and one that could not be.
TEST_P(WindowShots, SettingsWithLongWork) {
    installEngine();
    launch();
    controller->openSettings();
    const std::size_t before = http.downloads.size();
    controller->downloader().download(WhisperModel::catalog().at(2));
    controller->downloader().download(WhisperModel::catalog().at(4));
    http.deliver(before, "bytes", 61'000'000, 488'000'000);
    advance(2s);
    http.deliver(before, "bytes", 82'000'000, 488'000'000);
    http.failDownload(before + 1, Error{QStringLiteral("Network"), 1,
                                        QStringLiteral("The Internet connection appears to be "
                                                       "offline.")});
    advance(0ms);
    shootSettings(QStringLiteral("settings-long-work"));
}

TEST_P(WindowShots, WelcomeFresh) {
    fake.microphonePermission->authorization = AuthorizationStatus::NotDetermined;
    fake.accessibility->trusted = false;
    Config config = Config::defaults();
    config.provider = TranscriptionProvider::openai; // no download at launch
    writeConfig(config);
    launch();
    controller->openWelcome();
    shoot(*controller->welcomeWindow(), QStringLiteral("welcome-fresh"));
}

TEST_P(WindowShots, WelcomeDownloading) {
    launch();
    http.deliver(0, "bytes", 241'000'000, 574'000'000);
    advance(0ms);
    controller->openWelcome();
    shoot(*controller->welcomeWindow(), QStringLiteral("welcome-downloading"));
}

TEST_P(WindowShots, WelcomeDone) {
    installEngine();
    launch();
    controller->openWelcome();
    shoot(*controller->welcomeWindow(), QStringLiteral("welcome-done"));
}

TEST_P(WindowShots, About) {
    launch();
    controller->openAbout();
    shoot(*controller->aboutWindow(), QStringLiteral("about"));
}

INSTANTIATE_TEST_SUITE_P(Looks, WindowShots,
                         testing::Values(Look{"light", false, 0, Qt::LeftToRight},
                                         Look{"dark", true, 0, Qt::LeftToRight},
                                         Look{"large", false, 20, Qt::LeftToRight},
                                         Look{"rtl", false, 0, Qt::RightToLeft}),
                         [](const auto &instance) { return std::string(instance.param.name); });

} // namespace
