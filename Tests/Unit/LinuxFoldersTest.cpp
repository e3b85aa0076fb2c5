#include "Platform/Folders.h"
#include "Platform/Platform.h"

#include <gtest/gtest.h>

namespace quenda {

namespace {

class LinuxFolders : public testing::Test {
protected:
    void SetUp() override { set("/home/u", nullptr, nullptr); }
    void TearDown() override {
        restore("HOME", m_home);
        restore("XDG_DATA_HOME", m_data);
        restore("XDG_STATE_HOME", m_state);
    }

    static void set(const char *home, const char *data, const char *state) {
        restore("HOME", home);
        restore("XDG_DATA_HOME", data);
        restore("XDG_STATE_HOME", state);
    }

private:
    static void restore(const char *name, const QByteArray &value) {
        if (value.isNull())
            qunsetenv(name);
        else
            qputenv(name, value);
    }

    const QByteArray m_home = qgetenv("HOME");
    const QByteArray m_data = qgetenv("XDG_DATA_HOME");
    const QByteArray m_state = qgetenv("XDG_STATE_HOME");
};

TEST_F(LinuxFolders, WithoutVariablesTheyLieInTheHomeFolder) {
    const Folders folders = platformFolders();
    EXPECT_EQ(folders.applicationSupport, u"/home/u/.local/share");
    EXPECT_EQ(folders.logs, u"/home/u/.local/state");
    EXPECT_EQ(folders.migratedPathPrefix, u"/home/u/.local/share/");
}

TEST_F(LinuxFolders, AbsoluteVariablesCount) {
    set("/home/u", "/data//of u/", "/state/ü");
    const Folders folders = platformFolders();
    EXPECT_EQ(folders.applicationSupport, u"/data/of u");
    EXPECT_EQ(folders.logs, u"/state/ü");
    EXPECT_EQ(folders.migratedPathPrefix, u"/data/of u/");
}

TEST_F(LinuxFolders, EmptyAndRelativeVariablesDoNot) {
    for (const char *value : {"", "data", "./data", "~/data", ":/data"}) {
        set("/home/u", value, value);
        EXPECT_EQ(platformFolders().applicationSupport, u"/home/u/.local/share") << value;
        EXPECT_EQ(platformFolders().logs, u"/home/u/.local/state") << value;
    }
}

TEST_F(LinuxFolders, WithoutAHomeTheUserDatabaseNamesIt) {
    for (const char *home : {static_cast<const char *>(nullptr), "", "relative"}) {
        set(home, nullptr, nullptr);
        const QString support = platformFolders().applicationSupport;
        EXPECT_TRUE(support.startsWith(u'/')) << qPrintable(support);
        EXPECT_TRUE(support.endsWith(u"/.local/share")) << qPrintable(support);
        EXPECT_FALSE(support.contains(u"relative")) << qPrintable(support);
    }
}

} // namespace

} // namespace quenda
