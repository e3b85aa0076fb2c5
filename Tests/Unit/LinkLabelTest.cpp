// A link in the windows: one stop of the tab key, opened by mouse and keyboard.

#include "Quenda/LinkLabel.h"

#include <QAccessible>
#include <QApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QVBoxLayout>

#include <gtest/gtest.h>

using namespace quenda;

namespace {

const QString kTarget = QStringLiteral("https://example.org/page");

class LinkLabelTest : public testing::Test {
protected:
    LinkLabelTest() {
        auto *column = new QVBoxLayout(&window);
        for (QWidget *widget : {static_cast<QWidget *>(&before), static_cast<QWidget *>(&link),
                                static_cast<QWidget *>(&after)})
            column->addWidget(widget);
        QObject::connect(&link, &QLabel::linkActivated,
                         [this](const QString &target) { opened.append(target); });
        link.setAccessibleName(QStringLiteral("the page"));
        window.show();
        window.activateWindow();
        QCoreApplication::processEvents();
    }

    static void press(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QKeyEvent event(QEvent::KeyPress, key, modifiers);
        QCoreApplication::sendEvent(QApplication::focusWidget(), &event);
    }

    QWidget window;
    QLineEdit before;
    LinkLabel link{QStringLiteral("See <a href=\"x\">the page</a>."), kTarget};
    QLineEdit after;
    QStringList opened;
};

TEST_F(LinkLabelTest, TheTabKeyStopsThereOnceEitherWay) {
    before.setFocus();
    ASSERT_TRUE(before.hasFocus());
    press(Qt::Key_Tab);
    EXPECT_TRUE(link.hasFocus());
    press(Qt::Key_Tab);
    EXPECT_TRUE(after.hasFocus());
    press(Qt::Key_Backtab, Qt::ShiftModifier);
    EXPECT_TRUE(link.hasFocus());
    press(Qt::Key_Backtab, Qt::ShiftModifier);
    EXPECT_TRUE(before.hasFocus());
    EXPECT_TRUE(opened.isEmpty());
}

TEST_F(LinkLabelTest, ReturnAndTheSpaceBarOpenIt) {
    link.setFocus();
    int times = 0;
    for (const int key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) {
        press(key);
        EXPECT_EQ(opened.size(), ++times) << key;
        EXPECT_EQ(opened.constLast(), kTarget);
    }
    press(Qt::Key_A);
    EXPECT_EQ(opened.size(), times);
}

TEST_F(LinkLabelTest, ShowsThatItHasTheKeyboard) {
    before.setFocus();
    const QImage without = link.grab().toImage();
    press(Qt::Key_Tab);
    EXPECT_NE(link.grab().toImage(), without);
}

TEST_F(LinkLabelTest, AssistiveTechnologySeesALinkToPress) {
    QAccessibleInterface *seen = QAccessible::queryAccessibleInterface(&link);
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->role(), QAccessible::Link);
    EXPECT_EQ(seen->text(QAccessible::Name), QStringLiteral("the page"));
    ASSERT_TRUE(seen->actionInterface());
    seen->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_EQ(opened, QStringList(kTarget));
}

} // namespace
