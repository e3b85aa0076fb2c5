#include "Platform/Linux/LinuxLoginItem.h"

#include "Contract/LoginItemContract.h"
#include "Fakes/TestMain.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

using namespace quenda;

namespace {

class LinuxLoginItemTest : public testing::Test {
protected:
    QString folder = fakes::testHome() + QStringLiteral("/config/autostart");
    QString path = folder + QStringLiteral("/org.quenda.Quenda.desktop");
    LinuxLoginItem item{folder};

    void write(const QByteArray &text) const { write(text, path); }
    static void write(const QByteArray &text, const QString &path) {
        QDir().mkpath(QFileInfo(path).path());
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

TEST_F(LinuxLoginItemTest, EntryIsTheOneThatIsInstalledAsAnExample) {
    item.setEnabled(true);
    QByteArray entry = read();
    EXPECT_EQ(
        entry.replace("\"" + QCoreApplication::applicationFilePath().toUtf8() + "\"", "quenda"),
        "[Desktop Entry]\nType=Application\nName=Quenda\n"
        "Comment=Dictate into any text field\nIcon=org.quenda.Quenda\nExec=quenda\n"
        "Terminal=false\n");
}

TEST_F(LinuxLoginItemTest, EverybodysEntryCountsUntilTheUserHasOne) {
    const QString first = fakes::testHome() + QStringLiteral("/first");
    const QString second = fakes::testHome() + QStringLiteral("/second");
    LinuxLoginItem shared(folder, {first, second});
    EXPECT_FALSE(shared.isEnabled());
    write("[Desktop Entry]\nExec=quenda\n", second + QStringLiteral("/org.quenda.Quenda.desktop"));
    EXPECT_TRUE(shared.isEnabled());

    EXPECT_EQ(shared.setEnabled(false), LoginItemOutcome::Done);
    EXPECT_FALSE(shared.isEnabled());
    EXPECT_TRUE(read().endsWith("\nHidden=true\n"));
    EXPECT_EQ(shared.setEnabled(true), LoginItemOutcome::Done);
    EXPECT_TRUE(shared.isEnabled());
    EXPECT_FALSE(read().contains("Hidden"));

    // The more important one hides the other, so there is nothing to be hidden by the user.
    write("[Desktop Entry]\nHidden=true\n", first + QStringLiteral("/org.quenda.Quenda.desktop"));
    EXPECT_EQ(shared.setEnabled(false), LoginItemOutcome::Done);
    EXPECT_FALSE(shared.isEnabled());
    EXPECT_FALSE(QFile::exists(path));
}

TEST_F(LinuxLoginItemTest, WithoutFoldersTheyAreTheEnvironments) {
    const QByteArray everybody = QFile::encodeName(fakes::testHome()) + "/xdg";
    const QByteArray saved = qgetenv("XDG_CONFIG_DIRS");
    qputenv("XDG_CONFIG_DIRS", everybody);
    const LinuxLoginItem shared;
    if (saved.isNull())
        qunsetenv("XDG_CONFIG_DIRS");
    else
        qputenv("XDG_CONFIG_DIRS", saved);
    EXPECT_FALSE(shared.isEnabled());
    write("[Desktop Entry]\nExec=quenda\n",
          QFile::decodeName(everybody) + QStringLiteral("/autostart/org.quenda.Quenda.desktop"));
    EXPECT_TRUE(shared.isEnabled());
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
