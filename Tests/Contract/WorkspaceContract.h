#pragma once
// What every workspace keeps to, whatever the platform; the second contract needs a window system
// that tells the focused window from the others. A World names a backend on a desktop:
//   Workspace &workspace();
//   QUrl address();           // something that the desktop has a handler for
//   bool hasOpened();         // whether that handler has been given the address by now

#include "Platform/Desktop.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QWidget>
#include <QWindow>

#include <gtest/gtest.h>

#include <functional>

namespace quenda::contract {

template <typename World>
class WorkspaceContract : public testing::Test {
protected:
    static bool comesTrue(const std::function<bool()> &condition, int milliseconds = 5000) {
        QElapsedTimer waited;
        waited.start();
        while (!condition() && !waited.hasExpired(milliseconds))
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        return condition();
    }

    World world;
};
TYPED_TEST_SUITE_P(WorkspaceContract);

TYPED_TEST_P(WorkspaceContract, OpensWhatHasAHandler) {
    EXPECT_FALSE(this->world.hasOpened());
    EXPECT_TRUE(this->world.workspace().open(this->world.address()));
    EXPECT_TRUE(this->comesTrue([this] { return this->world.hasOpened(); }, 20000));
}

TYPED_TEST_P(WorkspaceContract, RefusesWhatHasNoHandler) {
    EXPECT_FALSE(this->world.workspace().open(QUrl()));
    EXPECT_FALSE(this->world.workspace().open(QUrl(QStringLiteral("quenda-unheard-of:page"))));
    EXPECT_FALSE(this->world.hasOpened());
}

TYPED_TEST_P(WorkspaceContract, AWindowOfTheProgramComesToTheFront) {
    QWidget window;
    window.show();
    this->world.workspace().activateProgram();
    EXPECT_TRUE(this->comesTrue([&] { return window.isActiveWindow(); }));
}

// The program ends right after the call, so it must not be held up.
TYPED_TEST_P(WorkspaceContract, ArrangingTheRelaunchDoesNotWait) {
    QElapsedTimer waited;
    waited.start();
    this->world.workspace().relaunchAfterExit();
    EXPECT_LT(waited.elapsed(), 500);
}

REGISTER_TYPED_TEST_SUITE_P(WorkspaceContract, OpensWhatHasAHandler, RefusesWhatHasNoHandler,
                            AWindowOfTheProgramComesToTheFront, ArrangingTheRelaunchDoesNotWait);

template <typename World>
class FloatingPanelContract : public WorkspaceContract<World> {};
TYPED_TEST_SUITE_P(FloatingPanelContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(FloatingPanelContract); // not every backend can

TYPED_TEST_P(FloatingPanelContract, AFloatingPanelLeavesTheFocusWhereItIs) {
    QWidget window;
    window.show();
    this->world.workspace().activateProgram();
    ASSERT_TRUE(this->comesTrue([&] { return window.isActiveWindow(); }));

    QWidget panel(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                               Qt::WindowDoesNotAcceptFocus);
    panel.setAttribute(Qt::WA_ShowWithoutActivating);
    panel.resize(320, 56);
    panel.winId(); // the native side
    this->world.workspace().makeFloatingPanel(panel.windowHandle(), 16);
    panel.show();
    EXPECT_TRUE(this->comesTrue([&] { return panel.windowHandle()->isExposed(); }));
    EXPECT_FALSE(this->comesTrue([&] { return panel.isActiveWindow(); }, 300));
    EXPECT_TRUE(window.isActiveWindow());
}

REGISTER_TYPED_TEST_SUITE_P(FloatingPanelContract, AFloatingPanelLeavesTheFocusWhereItIs);

} // namespace quenda::contract
