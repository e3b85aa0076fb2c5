#include "Platform/Linux/LinuxLoginItem.h"

#include "Fakes/TestMain.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

using namespace quenda;

namespace {

class LinuxLoginItemTest : public testing::Test {
protected:
    QString folder = fakes::testHome() + QStringLiteral("/config/autostart");
    QString path = folder + QStringLiteral("/org.quenda.Quenda.desktop");
    LinuxLoginItem item{folder};

    void write(const QByteArray &text) const {
        QDir().mkpath(folder);
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }
    QByteArray read() const {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
};

TEST_F(LinuxLoginItemTest, IsOffWithoutAnEntry) {
    EXPECT_FALSE(item.isEnabled());
}

TEST_F(LinuxLoginItemTest, OnWritesAnEntryThatStartsThisProgram) {
    EXPECT_EQ(item.setEnabled(true), LoginItemOutcome::Done);
    EXPECT_TRUE(item.isEnabled());
    const QByteArray entry = read();
    EXPECT_TRUE(entry.startsWith("[Desktop Entry]\nType=Application\n"));
    EXPECT_TRUE(
        entry.contains("\nExec=\"" + QCoreApplication::applicationFilePath().toUtf8() + "\"\n"));
}

TEST_F(LinuxLoginItemTest, OffRemovesTheEntry) {
    item.setEnabled(true);
    EXPECT_EQ(item.setEnabled(false), LoginItemOutcome::Done);
    EXPECT_FALSE(item.isEnabled());
    EXPECT_FALSE(QFile::exists(path));
    EXPECT_EQ(item.setEnabled(false), LoginItemOutcome::Done);
}

TEST_F(LinuxLoginItemTest, EntrySwitchedOffByTheDesktopIsOff) {
    write("[Desktop Entry]\nExec=quenda\nHidden=true\n");
    EXPECT_FALSE(item.isEnabled());
    write("[Desktop Entry]\nExec=quenda\nX-GNOME-Autostart-enabled = false\n");
    EXPECT_FALSE(item.isEnabled());
    write("[Desktop Entry]\nExec=quenda\nHidden=false\n");
    EXPECT_TRUE(item.isEnabled());
}

TEST_F(LinuxLoginItemTest, BlanksCountInsideAKeyOrAValueButNotAround) {
    write("[Desktop Entry]\n Hidden =\ttrue \r\n");
    EXPECT_FALSE(item.isEnabled());
    for (const char *const other :
         {"Hid den=true", "Hidden=tr ue", "Hidden", "=true", "Hidden==true"}) {
        write(QByteArray("[Desktop Entry]\n") + other + '\n');
        EXPECT_TRUE(item.isEnabled()) << other;
    }
}

TEST_F(LinuxLoginItemTest, FolderThatCannotBeMadeIsARefusal) {
    QFile blocking(fakes::testHome() + QStringLiteral("/config"));
    ASSERT_TRUE(blocking.open(QIODevice::WriteOnly));
    EXPECT_EQ(item.setEnabled(true), LoginItemOutcome::Refused);
    EXPECT_FALSE(item.isEnabled());
}

} // namespace
