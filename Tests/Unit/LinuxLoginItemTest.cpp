#include "Platform/Linux/LinuxLoginItem.h"

#include "Contract/LoginItemContract.h"
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

TEST_F(LinuxLoginItemTest, FolderThatCannotBeMadeIsARefusal) {
    QFile blocking(fakes::testHome() + QStringLiteral("/config"));
    ASSERT_TRUE(blocking.open(QIODevice::WriteOnly));
    EXPECT_EQ(item.setEnabled(true), LoginItemOutcome::Refused);
    EXPECT_FALSE(item.isEnabled());
}

class LinuxLoginWorld {
public:
    LoginItem &item() { return m_item; }

private:
    LinuxLoginItem m_item{fakes::testHome() + QStringLiteral("/config/autostart")};
};

class BlockedLinuxLoginWorld {
public:
    BlockedLinuxLoginWorld() {
        QFile blocking(fakes::testHome() + QStringLiteral("/config"));
        EXPECT_TRUE(blocking.open(QIODevice::WriteOnly));
    }
    LoginItem &item() { return m_item; }

private:
    LinuxLoginItem m_item{fakes::testHome() + QStringLiteral("/config/autostart")};
};

using LinuxLoginItems = testing::Types<LinuxLoginWorld, BlockedLinuxLoginWorld>;

} // namespace

namespace quenda::contract {
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, LoginItemContract, LinuxLoginItems);
} // namespace quenda::contract
