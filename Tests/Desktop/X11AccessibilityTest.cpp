// Trust and focus on a real X server. Run it by with-x-server --start openbox.

#include "Platform/Linux/X11Accessibility.h"

#include "X11TestClient.h"
#include "X11TestServer.h"

#include <gtest/gtest.h>
#include <xcb/xcb.h>

namespace quenda {

namespace {

TEST(X11AccessibilityTest, IsTrustedWhereTheServerAnswers) {
    const X11Accessibility accessibility;
    EXPECT_TRUE(accessibility.isTrusted());
    EXPECT_TRUE(accessibility.isTrusted(TrustPrompt::Ask));
}

TEST(X11AccessibilityTest, FollowsTheServer) {
    X11TestServer server;
    ASSERT_TRUE(server.start());
    const X11TestDisplay display(server.display());
    const X11Accessibility accessibility;
    EXPECT_TRUE(accessibility.isTrusted());
    server.stop();
    EXPECT_FALSE(accessibility.isTrusted());
    EXPECT_FALSE(accessibility.focusedElementExists());
    ASSERT_TRUE(server.start());
    EXPECT_TRUE(accessibility.isTrusted());
}

TEST(X11AccessibilityTest, FocusIsTheManagersActiveWindow) {
    X11TestClient user;
    const X11Accessibility accessibility;
    EXPECT_TRUE(waitUntil([&] { return !accessibility.focusedElementExists(); }));
    const std::uint32_t window = user.openWindow();
    EXPECT_TRUE(accessibility.focusedElementExists());
    user.closeWindow(window);
    EXPECT_TRUE(waitUntil([&] { return !accessibility.focusedElementExists(); }));
}

TEST(X11AccessibilityTest, WithoutAManagerItIsTheInputFocus) {
    X11TestServer server;
    ASSERT_TRUE(server.start());
    const X11TestDisplay display(server.display());
    X11TestClient user;
    const X11Accessibility accessibility;
    user.setInputFocus(XCB_INPUT_FOCUS_NONE);
    EXPECT_FALSE(accessibility.focusedElementExists());
    user.setInputFocus(XCB_INPUT_FOCUS_POINTER_ROOT);
    EXPECT_FALSE(accessibility.focusedElementExists());
    user.setInputFocus(user.connection().root());
    EXPECT_TRUE(accessibility.focusedElementExists());
    user.setActiveWindowProperty(XCB_WINDOW_NONE); // left behind by a manager that is gone
    EXPECT_TRUE(accessibility.focusedElementExists());
}

} // namespace

} // namespace quenda
