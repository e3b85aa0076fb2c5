// Whether one of the program's own windows has the keyboard focus for a transcript, on a real X
// server. Run it by with-x-server, bare and with a window manager.

#include "Desktop/EventLoopWait.h"
#include "Desktop/XServer.h"
#include "Platform/Linux/LinuxWorkspace.h"
#include "Platform/Linux/X11Accessibility.h"
#include "Quenda/Alerts.h"

#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include <gtest/gtest.h>

namespace quenda {
namespace {

struct OwnWindowFocusTest : testing::Test {
    desktop::XServer server;
    LinuxWorkspace workspace;
    X11Accessibility accessibility;

    // Shows it and waits until the server gives it the keys.
    void bringToFront(QWidget &window) {
        window.show();
        window.activateWindow();
        ASSERT_TRUE(waitUntil([&] { return hasKeys(window); }));
    }

    bool hasKeys(const QWidget &window) {
        return window.isActiveWindow() && server.focus() == window.winId();
    }
};

TEST_F(OwnWindowFocusTest, countsWhileAFieldForTextHasTheFocus) {
    QWidget window;
    auto *layout = new QVBoxLayout(&window);
    auto *button = new QPushButton(QStringLiteral("Press"));
    auto *list = new QComboBox;
    auto *field = new QLineEdit;
    layout->addWidget(button);
    layout->addWidget(list);
    layout->addWidget(field);
    field->setFocus();
    bringToFront(window);

    EXPECT_TRUE(waitUntil([&] { return accessibility.focusedElementExists(); }));
    button->setFocus();
    EXPECT_FALSE(accessibility.focusedElementExists());
    list->setFocus();
    EXPECT_FALSE(accessibility.focusedElementExists());
    list->setEditable(true);
    EXPECT_TRUE(accessibility.focusedElementExists());
    field->setFocus();
    EXPECT_TRUE(accessibility.focusedElementExists());
    field->setReadOnly(true);
    EXPECT_FALSE(accessibility.focusedElementExists());
}

TEST_F(OwnWindowFocusTest, anAlertInFrontIsNothingToTypeInto) {
    showAlert(workspace, QStringLiteral("Title"), QStringLiteral("Text"));
    auto *alert = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
    ASSERT_NE(alert, nullptr);
    alert->activateWindow();
    ASSERT_TRUE(waitUntil([&] { return hasKeys(*alert); }));
    EXPECT_FALSE(accessibility.focusedElementExists());
    alert->close();
}

// Another window of ours is no reason.
TEST_F(OwnWindowFocusTest, onlyTheWindowWithTheFocusIsAsked) {
    QPushButton behind(QStringLiteral("Press"));
    bringToFront(behind);
    EXPECT_FALSE(accessibility.focusedElementExists());
    QLineEdit field;
    bringToFront(field);
    EXPECT_TRUE(waitUntil([&] { return accessibility.focusedElementExists(); }));
}

} // namespace
} // namespace quenda
