// The paste keystroke on a real X server. Run it by with-x-server --start openbox.

#include "Platform/Linux/X11KeyPoster.h"

#include "Platform/Linux/PrimarySelection.h"
#include "Platform/Linux/X11KeyTap.h"
#include "X11TestClient.h"
#include "X11TestServer.h"

#include <QThread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

namespace quenda {

void PrintTo(const KeyStroke &stroke, std::ostream *out) {
    *out << (stroke.press ? "press " : "release ") << stroke.keyCode << " state " << stroke.state;
}

namespace {

constexpr int kControl = 37;
constexpr int kShift = 50;
constexpr int kV = 55;
constexpr int kInsert = 118;
constexpr int kRightAlt = 108;
constexpr int kRightControl = 105;
constexpr int kRightSuper = 134;
constexpr int kCapsLock = 66;
constexpr int kNumLock = 77;

constexpr int kShiftMask = 1;
constexpr int kLockMask = 2;
constexpr int kControlMask = 4;
constexpr int kNumLockMask = 16;

class FakePrimary final : public PrimarySelection {
public:
    bool mirrorClipboardText() override {
        ++mirrored;
        return true;
    }
    int mirrored = 0;
};

class X11KeyPosterTest : public testing::Test {
protected:
    void SetUp() override {
        tap = factory.createTap([this](const KeyEvent &event) { events.push_back(event); });
        ASSERT_NE(tap, nullptr);
        tap->setEnabled(true);
        window = user.openWindow();
        user.strokes();
    }
    ~X11KeyPosterTest() override {
        if (window != 0)
            user.closeWindow(window);
        pass(20);
    }

    void replaceWindow(const QByteArray &instance, const QByteArray &windowClass) {
        user.closeWindow(window);
        window = user.openWindow(instance, windowClass);
        user.strokes();
    }
    /// Posts and gives what the window got.
    std::vector<KeyStroke> pasted() {
        EXPECT_EQ(poster.postPaste(), PostOutcome::Posted);
        pass(60);
        return user.strokes();
    }

    X11TestClient user;
    std::shared_ptr<SyntheticKeys> synthetic = std::make_shared<SyntheticKeys>();
    FakePrimary primary;
    X11KeyPoster poster{synthetic, &primary};
    X11KeyTapFactory factory{synthetic};
    std::vector<KeyEvent> events;
    std::unique_ptr<KeyTap> tap;
    std::uint32_t window = 0;
};

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<KeyStroke> controlAnd(int key, int control = kControl, int otherState = 0) {
    return {{true, control, otherState},
            {true, key, kControlMask | otherState},
            {false, key, kControlMask | otherState},
            {false, control, kControlMask | otherState}};
}

const std::vector<KeyStroke> kControlShiftV{
    {true, kControl, 0},
    {true, kShift, kControlMask},
    {true, kV, kControlMask | kShiftMask},
    {false, kV, kControlMask | kShiftMask},
    {false, kShift, kControlMask | kShiftMask},
    {false, kControl, kControlMask},
};
const std::vector<KeyStroke> kShiftInsert{
    {true, kShift, 0},
    {true, kInsert, kShiftMask},
    {false, kInsert, kShiftMask},
    {false, kShift, kShiftMask},
};

TEST_F(X11KeyPosterTest, TypesControlV) {
    EXPECT_EQ(pasted(), controlAnd(kV));
    EXPECT_EQ(pasted(), controlAnd(kV)) << "and again";
    EXPECT_TRUE(user.down().none());
    EXPECT_EQ(primary.mirrored, 0);
    EXPECT_THAT(events, IsEmpty()) << "not the user's strokes";
}

TEST_F(X11KeyPosterTest, HeldModifiersAreNotCarriedOverAndStayHeld) {
    for (const bool hardware : {false, true}) {
        for (const int held : {kRightAlt, kRightControl, kRightSuper, kControl, kShift}) {
            SCOPED_TRACE(testing::Message() << "held " << held << " hardware " << hardware);
            hardware ? user.pressHardware(held) : user.press(held);
            pass(30);
            user.strokes();
            events.clear();

            const std::vector<KeyStroke> strokes = pasted();
            ASSERT_EQ(strokes.size(), 6U);
            EXPECT_FALSE(strokes.front().press);
            EXPECT_EQ(strokes.front().keyCode, held);
            EXPECT_EQ(std::vector(strokes.begin() + 1, strokes.end() - 1), controlAnd(kV));
            EXPECT_EQ(strokes.back(), (KeyStroke{true, held, 0}));
            EXPECT_TRUE(user.isDown(held));
            EXPECT_THAT(events, IsEmpty());

            hardware ? user.releaseHardware(held) : user.release(held);
            pass(30);
            EXPECT_TRUE(user.down().none());
            EXPECT_EQ(events.size(), held == kShift ? 0U : 1U) << "the user's own release";
            user.strokes();
        }
    }
}

TEST_F(X11KeyPosterTest, AKeyboardThatHoldsOurOwnKeysSwallowsNothing) {
    for (const int stale : {kControl, kV}) {
        user.press(stale);
        user.pressHardware(stale);
        user.releaseHardware(stale); // up for all, but XTest's keyboard still has it down
        user.strokes();
        EXPECT_EQ(pasted(), controlAnd(kV));
        EXPECT_TRUE(user.down().none());
    }
    user.pressHardware(kV);
    user.strokes();
    std::vector<KeyStroke> strokes = pasted();
    ASSERT_EQ(strokes.size(), 5U);
    EXPECT_EQ(strokes.front(), (KeyStroke{false, kV, 0}));
    EXPECT_EQ(std::vector(strokes.begin() + 1, strokes.end()), controlAnd(kV));
    user.releaseHardware(kV);
}

TEST_F(X11KeyPosterTest, TheTapStillHearsTheUserAfterwards) {
    pasted();
    user.press(kRightAlt);
    user.tap(9);
    pass(60);
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].keyCode, keys::kRightOption);
    EXPECT_EQ(events[0].flags, keys::kFlagAlternate);
    EXPECT_EQ(events[1].keyCode, keys::kEscape);
    pass(600);
    pasted();
    pass(600);
    EXPECT_EQ(events.size(), 2U) << "neither the paste nor a look at the keyboard released it";
    user.release(kRightAlt);
    pass(60);
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[2].flags, 0U);
}

TEST_F(X11KeyPosterTest, LocksAreNotTouched) {
    user.tap(kCapsLock);
    user.tap(kNumLock);
    user.strokes();
    const int locks = user.modifierState();
    ASSERT_EQ(locks, kLockMask | kNumLockMask);
    EXPECT_EQ(pasted(), controlAnd(kV, kControl, locks));
    EXPECT_EQ(user.modifierState(), locks);
    user.tap(kCapsLock);
    user.tap(kNumLock);
    user.strokes();

    user.press(kCapsLock); // held down, which is a lock all the same
    user.strokes();
    EXPECT_EQ(pasted(), controlAnd(kV, kControl, kLockMask));
    user.release(kCapsLock);
    user.tap(kCapsLock);
    EXPECT_EQ(user.modifierState(), 0);
}

TEST_F(X11KeyPosterTest, FindsTheKeysInTheLayout) {
    struct Row {
        QStringList layout;
        int control, v;
    };
    const Row rows[] = {
        {{QStringLiteral("ru")}, kControl, kV},
        {{QStringLiteral("us,ru")}, kControl, kV},
        {{QStringLiteral("ru,us")}, kControl, kV},
        {{QStringLiteral("gr")}, kControl, kV},
        {{QStringLiteral("us"), QStringLiteral("-variant"), QStringLiteral("dvorak")},
         kControl,
         60},
        {{QStringLiteral("ru,us"), QStringLiteral("-variant"), QStringLiteral(",dvorak")},
         kControl,
         60},
        {{QStringLiteral("us"), QStringLiteral("-option"), QStringLiteral("ctrl:swapcaps")},
         kCapsLock,
         kV},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(qPrintable(row.layout.join(u' ')));
        ASSERT_TRUE(runProgram(QStringList{QStringLiteral("setxkbmap"), QStringLiteral("-option"),
                                           QString(), QStringLiteral("-layout")} +
                               row.layout));
        pass(30);
        user.strokes();
        EXPECT_EQ(pasted(), controlAnd(row.v, row.control));
    }
    ASSERT_TRUE(runProgram({QStringLiteral("setxkbmap"), QStringLiteral("-option"), QString(),
                            QStringLiteral("-layout"), QStringLiteral("us"),
                            QStringLiteral("-variant"), QString()}));
}

TEST_F(X11KeyPosterTest, TheActiveLayoutGoesFirst) {
    ASSERT_TRUE(
        runProgram({QStringLiteral("setxkbmap"), QStringLiteral("-layout"), QStringLiteral("us,us"),
                    QStringLiteral("-variant"), QStringLiteral(",dvorak"),
                    QStringLiteral("-option"), QStringLiteral("grp:menu_toggle")}));
    pass(30);
    user.strokes();
    EXPECT_EQ(pasted(), controlAnd(kV));
    user.tap(135); // Menu: the other layout
    user.strokes();
    constexpr int kSecondLayoutMask = 128; // how the server tells old clients of it
    EXPECT_EQ(pasted(), controlAnd(60, kControl, kSecondLayoutMask));
    user.tap(135);
    ASSERT_TRUE(runProgram({QStringLiteral("setxkbmap"), QStringLiteral("-option"), QString(),
                            QStringLiteral("-layout"), QStringLiteral("us"),
                            QStringLiteral("-variant"), QString()}));
}

TEST_F(X11KeyPosterTest, TerminalsGetWhatTheyTake) {
    replaceWindow("xterm", "XTerm");
    EXPECT_EQ(pasted(), kShiftInsert);
    EXPECT_EQ(primary.mirrored, 1);
    replaceWindow("urxvt", "URxvt");
    EXPECT_EQ(pasted(), kShiftInsert);
    EXPECT_EQ(primary.mirrored, 2);
    replaceWindow("gnome-terminal-server", "Gnome-terminal");
    EXPECT_EQ(pasted(), kControlShiftV);
    replaceWindow("konsole", "konsole");
    EXPECT_EQ(pasted(), kControlShiftV);
    replaceWindow("mousepad", "Mousepad");
    EXPECT_EQ(pasted(), controlAnd(kV));
    EXPECT_EQ(primary.mirrored, 2);
}

TEST_F(X11KeyPosterTest, AnActiveWindowThatIsGoneCountsAsUnknown) {
    user.setActiveWindowProperty(0x1234567);
    EXPECT_EQ(pasted(), controlAnd(kV));
}

TEST_F(X11KeyPosterTest, WorksWithoutPrimarySelection) {
    replaceWindow("xterm", "XTerm");
    X11KeyPoster plain(synthetic, nullptr);
    EXPECT_EQ(plain.postPaste(), PostOutcome::Posted);
    pass(60);
    EXPECT_EQ(user.strokes(), kShiftInsert);
}

// The user lets go at any moment of the paste, again and again.
TEST_F(X11KeyPosterTest, NeverLeavesAKeyDownThatTheUserLetGoOf) {
    for (const bool hardware : {false, true}) {
        std::minstd_rand random(1);
        std::uniform_int_distribution<int> microseconds(0, 3000);
        for (int round = 0; round < 150; ++round) {
            hardware ? user.pressHardware(kRightAlt) : user.press(kRightAlt);
            waitUntil([this] { return !events.empty(); });
            events.clear();
            std::atomic<bool> go = false;
            const int delay = microseconds(random);
            std::thread hand([&] {
                while (!go) {
                }
                std::this_thread::sleep_for(std::chrono::microseconds(delay));
                hardware ? user.releaseHardware(kRightAlt) : user.release(kRightAlt);
            });
            go = true;
            EXPECT_EQ(poster.postPaste(), PostOutcome::Posted);
            hand.join();
            ASSERT_TRUE(user.down().none()) << "round " << round << ", after " << delay << " us";
            ASSERT_TRUE(waitUntil([this] { return !events.empty(); }));
            ASSERT_EQ(events.size(), 1U);
            ASSERT_EQ(events[0].flags, 0U) << "one release";
            events.clear();
        }
    }
}

TEST(X11KeyPosterWithoutServerTest, IsRefusedAndTriesAnew) {
    X11TestServer server;
    ASSERT_TRUE(server.start());
    const X11TestDisplay display(server.display());
    X11KeyPoster poster(std::make_shared<SyntheticKeys>(), nullptr);
    EXPECT_EQ(poster.postPaste(), PostOutcome::Posted);
    server.stop();
    EXPECT_EQ(poster.postPaste(), PostOutcome::Refused);
    EXPECT_EQ(poster.postPaste(), PostOutcome::Refused);
    ASSERT_TRUE(server.start());
    EXPECT_EQ(poster.postPaste(), PostOutcome::Posted);
}

TEST(PasteShortcutTest, IsToldByInstanceOrClass) {
    const auto shortcut = [](const QByteArray &instance, const QByteArray &windowClass) {
        return pasteShortcutFor(instance + '\0' + windowClass + '\0');
    };
    for (const auto *name : {"xterm", "UXTerm", "URxvt", "Rxvt", "mlterm"})
        EXPECT_EQ(shortcut("x", name), PasteShortcut::ShiftInsert) << name;
    for (const auto *name :
         {"Gnome-terminal", "Xfce4-terminal", "Mate-terminal", "Tilix", "Terminator", "Lxterminal",
          "Guake", "kitty", "Alacritty", "konsole", "qterminal", "st-256color"})
        EXPECT_EQ(shortcut("x", name), PasteShortcut::ControlShiftV) << name;
    EXPECT_EQ(shortcut("xterm", "Anything"), PasteShortcut::ShiftInsert);
    EXPECT_EQ(shortcut("xterminal", "Terminals"), PasteShortcut::ControlV);
    EXPECT_EQ(shortcut("", ""), PasteShortcut::ControlV);
    EXPECT_EQ(pasteShortcutFor(""), PasteShortcut::ControlV);
    EXPECT_EQ(pasteShortcutFor(QByteArray(256, '\xff')), PasteShortcut::ControlV);
    EXPECT_EQ(pasteShortcutFor("kitty"), PasteShortcut::ControlShiftV) << "no zero bytes at all";
}

} // namespace

} // namespace quenda
