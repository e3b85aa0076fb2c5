// The key tap on a real X server. Run it by with-x-server --start openbox.

#include "Platform/Linux/X11KeyTap.h"

#include "Quenda/HotkeyMonitor.h"
#include "Quenda/TimerScheduler.h"
#include "X11TestClient.h"
#include "X11TestServer.h"

#include <QAbstractEventDispatcher>
#include <QEventLoop>
#include <QTimer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <array>

namespace quenda {

void PrintTo(const KeyEvent &event, std::ostream *out) {
    *out << "{type " << std::uint32_t(event.type) << ", key " << event.keyCode << ", flags 0x"
         << std::hex << event.flags << std::dec << '}';
}

bool operator==(const KeyEvent &a, const KeyEvent &b) {
    return a.type == b.type && a.keyCode == b.keyCode && a.flags == b.flags;
}

namespace {

constexpr int kRightAlt = 108;
constexpr int kLeftAlt = 64;
constexpr int kRightControl = 105;
constexpr int kLeftControl = 37;
constexpr int kRightSuper = 134;
constexpr int kLeftSuper = 133;
constexpr int kWakeUp = 151;
constexpr int kEscape = 9;
constexpr int kUnusedKey = 248;
const QByteArray kListener = "Quenda key listener";

KeyEvent flags(int keyCode, std::uint64_t flags) {
    return {KeyEvent::Type::FlagsChanged, keyCode, flags};
}

const KeyEvent kEscapeDown{KeyEvent::Type::KeyDown, keys::kEscape, 0};
const KeyEvent kLost{KeyEvent::Type::TapDisabledByUserInput, 0, 0};

class X11KeyTapTest : public testing::Test {
protected:
    void SetUp() override {
        tap = factory.createTap([this](const KeyEvent &event) { events.push_back(event); });
        ASSERT_NE(tap, nullptr);
        tap->setEnabled(true);
        ASSERT_TRUE(tap->isEnabled());
    }

    /// What came since the last call, once everything sent has arrived.
    std::vector<KeyEvent> arrived() {
        pass(60);
        return std::exchange(events, {});
    }

    X11TestClient user;
    std::shared_ptr<SyntheticKeys> synthetic = std::make_shared<SyntheticKeys>();
    X11KeyTapFactory factory{synthetic};
    std::vector<KeyEvent> events;
    std::unique_ptr<KeyTap> tap;
};

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(X11KeyTapTest, ReportsEachKeyOfInterestOnceWithItsFlag) {
    struct Row {
        int xKey, macKey;
        std::uint64_t flag;
    };
    constexpr std::array rows{
        Row{kRightAlt, 61, keys::kFlagAlternate},   Row{kLeftAlt, 58, keys::kFlagAlternate},
        Row{kRightControl, 62, keys::kFlagControl}, Row{kLeftControl, 59, keys::kFlagControl},
        Row{kRightSuper, 54, keys::kFlagCommand},   Row{kLeftSuper, 55, keys::kFlagCommand},
        Row{kWakeUp, 63, keys::kFlagSecondaryFn},
    };
    for (const Row &row : rows) {
        user.press(row.xKey);
        EXPECT_THAT(arrived(), ElementsAre(flags(row.macKey, row.flag)));
        user.release(row.xKey);
        EXPECT_THAT(arrived(), ElementsAre(flags(row.macKey, 0)));
        user.pressHardware(row.xKey);
        EXPECT_THAT(arrived(), ElementsAre(flags(row.macKey, row.flag)));
        user.releaseHardware(row.xKey);
        EXPECT_THAT(arrived(), ElementsAre(flags(row.macKey, 0)));
    }
}

TEST_F(X11KeyTapTest, FlagsDoNotTellTheSidesApart) {
    user.press(kRightAlt);
    user.press(kLeftAlt);
    user.release(kRightAlt);
    user.release(kLeftAlt);
    EXPECT_THAT(arrived(),
                ElementsAre(flags(61, keys::kFlagAlternate), flags(58, keys::kFlagAlternate),
                            flags(61, keys::kFlagAlternate), flags(58, 0)));
}

TEST_F(X11KeyTapTest, FlagsOfSeveralModifiersAddUp) {
    user.press(kLeftControl);
    user.press(kRightSuper);
    user.press(kWakeUp);
    user.release(kLeftControl);
    user.tap(kEscape);
    user.release(kWakeUp);
    user.release(kRightSuper);
    const std::uint64_t three = keys::kFlagControl | keys::kFlagCommand | keys::kFlagSecondaryFn;
    EXPECT_THAT(arrived(), ElementsAre(flags(59, keys::kFlagControl),
                                       flags(54, keys::kFlagControl | keys::kFlagCommand),
                                       flags(63, three), flags(59, three & ~keys::kFlagControl),
                                       KeyEvent{KeyEvent::Type::KeyDown, keys::kEscape,
                                                keys::kFlagCommand | keys::kFlagSecondaryFn},
                                       flags(63, keys::kFlagCommand), flags(54, 0)));
}

TEST_F(X11KeyTapTest, EscapeIsReportedAndOtherKeysAreNot) {
    for (int key = 10; key < 36; ++key)
        user.tap(key);
    user.tap(kEscape);
    user.tap(50); // Shift
    EXPECT_THAT(arrived(), ElementsAre(kEscapeDown));
}

TEST_F(X11KeyTapTest, AHeldKeyIsReportedOnce) {
    const std::uint32_t window = user.openWindow();
    user.strokes();
    user.press(kEscape);
    pass(1000); // the server repeats keys after 660 ms
    int presses = 0;
    for (const KeyStroke &stroke : user.strokes())
        presses += stroke.press && stroke.keyCode == kEscape ? 1 : 0;
    EXPECT_GT(presses, 1) << "the server did not repeat the key";
    user.release(kEscape);
    EXPECT_THAT(arrived(), ElementsAre(kEscapeDown));
    user.press(kRightAlt);
    pass(1000);
    EXPECT_THAT(arrived(), ElementsAre(flags(61, keys::kFlagAlternate)));
    user.release(kRightAlt);
    EXPECT_THAT(arrived(), ElementsAre(flags(61, 0)));
    user.closeWindow(window);
}

TEST_F(X11KeyTapTest, AKeyWithTheSymbolOfFnIsFn) {
    user.tap(kUnusedKey);
    EXPECT_THAT(arrived(), IsEmpty());
    user.setSymbol(kUnusedKey, XKB_KEY_XF86Fn);
    user.press(kUnusedKey);
    EXPECT_THAT(arrived(), ElementsAre(flags(63, keys::kFlagSecondaryFn)));
    user.release(kUnusedKey);
    EXPECT_THAT(arrived(), ElementsAre(flags(63, 0)));
    user.setSymbol(kUnusedKey, XKB_KEY_NoSymbol);
    user.tap(kUnusedKey);
    EXPECT_THAT(arrived(), IsEmpty());
}

TEST_F(X11KeyTapTest, HearsKeysDuringAnotherClientsGrab) {
    ASSERT_TRUE(user.grabKeyboard());
    user.press(kRightAlt);
    user.release(kRightAlt);
    EXPECT_THAT(arrived(), ElementsAre(flags(61, keys::kFlagAlternate), flags(61, 0)));
    user.ungrabKeyboard();
}

TEST_F(X11KeyTapTest, KeepsNothingFromTheFocusedProgram) {
    const std::uint32_t window = user.openWindow();
    user.strokes();
    user.tap(kRightControl);
    user.tap(kEscape);
    pass(60);
    EXPECT_THAT(user.strokes(),
                ElementsAre(KeyStroke{true, kRightControl, 0}, KeyStroke{false, kRightControl, 4},
                            KeyStroke{true, kEscape, 0}, KeyStroke{false, kEscape, 0}));
    user.closeWindow(window);
}

TEST_F(X11KeyTapTest, HearsNothingUntilItIsEnabled) {
    std::vector<KeyEvent> heard;
    const auto other = factory.createTap([&](const KeyEvent &event) { heard.push_back(event); });
    ASSERT_NE(other, nullptr);
    EXPECT_FALSE(other->isEnabled());
    user.tap(kEscape);
    pass(60);
    EXPECT_THAT(heard, IsEmpty());

    other->setEnabled(true);
    user.tap(kEscape);
    pass(60);
    EXPECT_THAT(heard, ElementsAre(kEscapeDown));

    other->setEnabled(false);
    EXPECT_FALSE(other->isEnabled());
    user.tap(kEscape);
    pass(60);
    EXPECT_THAT(heard, ElementsAre(kEscapeDown));
}

TEST_F(X11KeyTapTest, AKeyHeldBeforeItWasEnabledIsNoPressButCounts) {
    user.press(kLeftAlt);
    std::vector<KeyEvent> heard;
    const auto late = factory.createTap([&](const KeyEvent &event) { heard.push_back(event); });
    late->setEnabled(true);
    pass(60);
    EXPECT_THAT(heard, IsEmpty());
    user.tap(kRightAlt);
    user.release(kLeftAlt);
    pass(60);
    EXPECT_THAT(heard, ElementsAre(flags(61, keys::kFlagAlternate), flags(61, keys::kFlagAlternate),
                                   flags(58, 0)));
}

TEST_F(X11KeyTapTest, AReleaseThatWasLostIsNoticed) {
    user.press(kRightAlt);
    EXPECT_THAT(arrived(), ElementsAre(flags(61, keys::kFlagAlternate)));
    pass(600);
    EXPECT_THAT(arrived(), IsEmpty()) << "held for real";

    // The tap takes the release for a stroke of the program's own: to it, none has come.
    synthetic->announce(kRightAlt, false);
    user.release(kRightAlt);
    EXPECT_TRUE(waitUntil([this] { return !events.empty(); }, 1000));
    EXPECT_THAT(arrived(), ElementsAre(flags(61, 0)));
}

TEST_F(X11KeyTapTest, AReleaseLostAtOnceIsNoticedToo) {
    user.press(kRightControl);
    synthetic->announce(kRightControl, false);
    user.release(kRightControl);
    EXPECT_THAT(arrived(), ElementsAre(flags(62, keys::kFlagControl)));
    EXPECT_TRUE(waitUntil([this] { return !events.empty(); }, 1000));
    EXPECT_THAT(arrived(), ElementsAre(flags(62, 0)));
}

TEST_F(X11KeyTapTest, IdleItNeverWakesTheProgram) {
    const auto wakeUps = [](int milliseconds) {
        int count = 0;
        QEventLoop loop;
        QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
        const auto connection =
            QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake,
                             &loop, [&count] { ++count; });
        loop.exec();
        QObject::disconnect(connection);
        return count;
    };
    user.tap(kRightAlt);
    arrived();
    EXPECT_LE(wakeUps(1500), 2) << "one for the loop's own start, one for its end";
    user.press(kRightAlt);
    arrived();
    EXPECT_LE(wakeUps(1000), 2 + 2 * 4) << "a question and an answer four times a second";
}

TEST_F(X11KeyTapTest, LostConnectionReleasesHeldKeysAndCanBeReplaced) {
    user.press(kRightAlt);
    user.press(kLeftAlt);
    arrived();
    ASSERT_TRUE(user.killOwnerOf(kListener));
    EXPECT_TRUE(waitUntil([this] { return !tap->isEnabled(); }));
    EXPECT_THAT(arrived(), ElementsAre(flags(58, keys::kFlagAlternate), flags(61, 0), kLost));
    pass(600);
    EXPECT_THAT(arrived(), IsEmpty()) << "told once";

    user.releaseAll();
    tap->setEnabled(true);
    EXPECT_TRUE(tap->isEnabled());
    user.tap(kRightAlt);
    EXPECT_THAT(arrived(), ElementsAre(flags(61, keys::kFlagAlternate), flags(61, 0)));
}

TEST_F(X11KeyTapTest, DiesInItsOwnHandler) {
    int heard = 0;
    std::unique_ptr<KeyTap> mortal;
    mortal = factory.createTap([&](const KeyEvent &) {
        ++heard;
        mortal.reset();
    });
    mortal->setEnabled(true);
    user.tap(kRightAlt);
    EXPECT_TRUE(waitUntil([&] { return heard > 0; }));
    pass(60);
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(arrived().size(), 2U) << "the other tap lives";
}

class MonitorOnX11Test : public testing::Test {
protected:
    void SetUp() override {
        monitor.onPress = [this] { calls += QLatin1Char('P'); };
        monitor.onRelease = [this] { calls += QLatin1Char('R'); };
        ASSERT_TRUE(monitor.start());
    }
    QString arrived() {
        pass(60);
        return std::exchange(calls, {});
    }

    X11TestClient user;
    TimerScheduler scheduler;
    X11KeyTapFactory factory{std::make_shared<SyntheticKeys>()};
    HotkeyMonitor monitor{factory, scheduler};
    QString calls;
};

TEST_F(MonitorOnX11Test, HearsTheChosenKey) {
    user.tap(kRightAlt);
    EXPECT_EQ(arrived(), QStringLiteral("PR"));
    user.tap(kLeftAlt);
    EXPECT_EQ(arrived(), QString());
    monitor.key = HotkeyChoice::rightControl;
    user.tap(kRightAlt);
    user.tap(kRightControl);
    EXPECT_EQ(arrived(), QStringLiteral("PR"));
}

TEST_F(MonitorOnX11Test, ListensOnAfterItsConnectionWasCutWhileTheKeyWasHeld) {
    user.press(kRightAlt);
    EXPECT_EQ(arrived(), QStringLiteral("P"));
    ASSERT_TRUE(user.killOwnerOf(kListener));
    EXPECT_EQ(arrived(), QStringLiteral("R"));
    user.release(kRightAlt);
    EXPECT_EQ(arrived(), QString());
    user.tap(kRightAlt);
    EXPECT_EQ(arrived(), QStringLiteral("PR")) << "the notice alone has enabled the tap again";
}

TEST(X11KeyTapWithoutServerTest, IsRefused) {
    const X11TestDisplay display(QByteArrayLiteral(":987"));
    X11KeyTapFactory factory(std::make_shared<SyntheticKeys>());
    EXPECT_EQ(factory.createTap([](const KeyEvent &) {}), nullptr);
}

TEST(X11KeyTapRestartedServerTest, IsEnabledAgainOnceTheServerIsBack) {
    X11TestServer server;
    ASSERT_TRUE(server.start());
    const X11TestDisplay display(server.display());
    std::vector<KeyEvent> events;
    X11KeyTapFactory factory(std::make_shared<SyntheticKeys>());
    const auto tap = factory.createTap([&](const KeyEvent &event) { events.push_back(event); });
    ASSERT_NE(tap, nullptr);
    tap->setEnabled(true);
    server.stop();
    EXPECT_TRUE(waitUntil([&] { return !tap->isEnabled(); }));
    pass(20);
    EXPECT_THAT(events, ElementsAre(kLost));
    tap->setEnabled(true);
    EXPECT_FALSE(tap->isEnabled()) << "there is no server";
    EXPECT_EQ(factory.createTap([](const KeyEvent &) {}), nullptr);

    ASSERT_TRUE(server.start());
    tap->setEnabled(true);
    EXPECT_TRUE(tap->isEnabled());
    events.clear();
    X11TestClient user;
    user.tap(kRightAlt);
    pass(60);
    EXPECT_THAT(events, ElementsAre(flags(61, keys::kFlagAlternate), flags(61, 0)));
}

} // namespace

} // namespace quenda
