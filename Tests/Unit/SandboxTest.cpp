// Which sandbox the program runs in.

#include "Platform/Linux/Sandbox.h"

#include "Fakes/TestMain.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

using namespace quenda;

namespace {

class SandboxTest : public testing::Test {
protected:
    QString info = fakes::testHome() + QStringLiteral("/.flatpak-info");

    void write(const QByteArray &text) const {
        QDir().mkpath(fakes::testHome());
        QFile file(info);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }
};

TEST_F(SandboxTest, NoneByDefault) {
    EXPECT_EQ(sandboxedApplication(info, {}), std::nullopt);
}

TEST_F(SandboxTest, FlatpakNamesTheApplicationInItsFile) {
    write("[Instance]\nname=wrong\n\n[Application]\nruntime=r\n name = org.quenda.Quenda \n");
    EXPECT_EQ(sandboxedApplication(info, {}), QStringLiteral("org.quenda.Quenda"));
    EXPECT_EQ(sandboxedApplication(info, "other"), QStringLiteral("org.quenda.Quenda"));
}

TEST_F(SandboxTest, AFileThatNamesNothingIsASandboxAllTheSame) {
    for (const QByteArray &text :
         {QByteArray(), QByteArray("[Runtime]\nname=r\n"), QByteArray("[Application]\nname"),
          QByteArray("name=outside\n"), QByteArray(100000, '[')}) {
        write(text);
        EXPECT_EQ(sandboxedApplication(info, {}), QString()) << text.left(30).toStdString();
    }
}

TEST_F(SandboxTest, ASnapIsKnownByItsInstance) {
    EXPECT_EQ(sandboxedApplication(info, "quenda_work"), QStringLiteral("snap.quenda_work"));
}

} // namespace
