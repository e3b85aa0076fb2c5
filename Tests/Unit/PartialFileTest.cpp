#include "Quenda/PartialFile.h"

#include "Fakes/TestMain.h"

#include <QDir>
#include <QFileInfo>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <memory>

using namespace quenda;

namespace {

class PartialFileTest : public testing::Test {
protected:
    QString support() const { return fakes::testHome() + QStringLiteral("/data/Quenda"); }
    QString folder() const { return support() + QStringLiteral("/models"); }
    QString destination() const { return folder() + QLatin1Char('/') + name; }
    std::unique_ptr<PartialFile> partial() const {
        return std::make_unique<PartialFile>(folder(), name);
    }

    static QStringList entries(const QString &path) {
        return QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                    QDir::NoDotAndDotDot);
    }
    static QByteArray contents(const QString &path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
    }
    static void put(const QString &path, const QByteArray &bytes) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }

    const QString name = QStringLiteral("ggml-small.bin");
};

} // namespace

TEST_F(PartialFileTest, GrowsHiddenBesideItsDestination) {
    QDir().mkpath(folder());
    auto file = partial();
    ASSERT_FALSE(file->open());
    ASSERT_FALSE(file->write("abc"));
    const QStringList found = entries(folder());
    ASSERT_EQ(found.size(), 1);
    EXPECT_TRUE(found[0].startsWith(QStringLiteral(".ggml-small.bin.")));
    EXPECT_FALSE(found[0].endsWith(QStringLiteral(".bin"))) << "it would pass for a model";
    EXPECT_EQ(contents(folder() + QLatin1Char('/') + found[0]), "abc") << "written at once";

    ASSERT_FALSE(file->write("def"));
    ASSERT_FALSE(file->finish());
    EXPECT_EQ(entries(folder()), QStringList{name});
    EXPECT_EQ(contents(destination()), "abcdef");
    file.reset();
    EXPECT_EQ(contents(destination()), "abcdef");
    EXPECT_EQ(entries(support()), QStringList{QStringLiteral("models")});
}

TEST_F(PartialFileTest, MakesTheFolderOnlyWhenTheFileIsWhole) {
    auto file = partial();
    ASSERT_FALSE(file->open());
    ASSERT_FALSE(file->write("abc"));
    EXPECT_FALSE(QFileInfo::exists(folder()));
    EXPECT_EQ(entries(support()).size(), 1);
    ASSERT_FALSE(file->finish());
    EXPECT_EQ(contents(destination()), "abc");
    EXPECT_EQ(entries(support()), QStringList{QStringLiteral("models")});
}

TEST_F(PartialFileTest, IsReadableLikeAnyFile) {
    const mode_t before = umask(022);
    auto file = partial();
    ASSERT_FALSE(file->open());
    ASSERT_FALSE(file->finish());
    umask(before);
    EXPECT_EQ(QFileInfo(destination()).permissions() &
                  (QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::WriteGroup |
                   QFile::ReadOther | QFile::WriteOther),
              QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
}

TEST_F(PartialFileTest, LeavesNothingWithoutAFinish) {
    QDir().mkpath(folder());
    auto file = partial();
    ASSERT_FALSE(file->open());
    ASSERT_FALSE(file->write("abc"));
    file.reset();
    EXPECT_TRUE(entries(folder()).isEmpty());
    partial().reset(); // never opened
    EXPECT_TRUE(entries(folder()).isEmpty());
}

TEST_F(PartialFileTest, ReplacesAnOldFile) {
    QDir().mkpath(folder());
    put(destination(), "old and longer");
    auto file = partial();
    ASSERT_FALSE(file->open());
    ASSERT_FALSE(file->write("new"));
    EXPECT_EQ(contents(destination()), "old and longer") << "until the new one is whole";
    ASSERT_FALSE(file->finish());
    EXPECT_EQ(contents(destination()), "new");
}

TEST_F(PartialFileTest, ADirectoryInItsPlaceIsAnError) {
    QDir().mkpath(destination() + QStringLiteral("/precious"));
    const Failure failure = partial()->open();
    ASSERT_TRUE(failure);
    EXPECT_FALSE(failure->localizedDescription.isEmpty());
    EXPECT_EQ(entries(folder()), QStringList{name});

    // ... also when it appears while the file grows.
    QDir(destination()).removeRecursively();
    auto file = partial();
    ASSERT_FALSE(file->open());
    QDir().mkpath(destination() + QStringLiteral("/precious"));
    EXPECT_TRUE(file->finish());
    file.reset();
    EXPECT_EQ(entries(folder()), QStringList{name});
    EXPECT_EQ(entries(destination()), QStringList{QStringLiteral("precious")});
}

TEST_F(PartialFileTest, AFolderThatCannotBeMadeIsAnError) {
    QDir().mkpath(support());
    put(folder(), "a file where the folder should be");
    auto file = partial();
    const Failure failure = file->open();
    ASSERT_TRUE(failure);
    EXPECT_FALSE(failure->localizedDescription.isEmpty());
    file.reset();
    EXPECT_EQ(entries(support()), QStringList{QStringLiteral("models")});

    // The folder above it cannot be made either.
    QFile::remove(folder());
    QDir().rmdir(support());
    put(support(), "a file where the folder should be");
    EXPECT_TRUE(partial()->open());

    // It becomes impossible while the file grows.
    QFile::remove(support());
    file = partial();
    ASSERT_FALSE(file->open());
    put(folder(), "a file where the folder should be");
    EXPECT_TRUE(file->finish());
    file.reset();
    EXPECT_EQ(entries(support()), QStringList{QStringLiteral("models")});
}

// A limit on file sizes stands for a disk that fills up: a write that is short, then one that
// fails.
TEST_F(PartialFileTest, AFailedWriteIsAnErrorAndLeavesNothing) {
    QDir().mkpath(folder());
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    auto file = partial();
    ASSERT_FALSE(file->open());
    const rlimit small{100'000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_FALSE(file->write(QByteArray(90'000, 'x')));
    const Failure failure = file->write(QByteArray(20'000, 'x'));
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, previous);
    ASSERT_TRUE(failure);
    EXPECT_FALSE(failure->localizedDescription.isEmpty());
    file.reset();
    EXPECT_TRUE(entries(folder()).isEmpty());
}

TEST_F(PartialFileTest, TwoOfOneNameDoNotMeet) {
    auto one = partial();
    auto two = partial();
    ASSERT_FALSE(one->open());
    ASSERT_FALSE(two->open());
    ASSERT_FALSE(one->write("one"));
    ASSERT_FALSE(two->write("two"));
    ASSERT_FALSE(one->finish());
    EXPECT_EQ(contents(destination()), "one");
    two.reset();
    EXPECT_EQ(contents(destination()), "one");
}

TEST_F(PartialFileTest, AKilledProgramLeavesOneFileWhichTheNextRemoves) {
    for (const bool folderExists : {false, true}) {
        if (folderExists)
            QDir().mkpath(folder());
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            auto file = partial();
            const bool fine = !file->open() && !file->write("half a model");
            if (fine)
                raise(SIGKILL);
            _exit(1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));
        const QString place = folderExists ? folder() : support();
        EXPECT_EQ(entries(place).filter(QStringLiteral(".part")).size(), 1);
        PartialFile::removeAbandoned(PartialFile::begun(folder()));
        EXPECT_EQ(entries(place).filter(QStringLiteral(".part")).size(), 0);
    }
}

TEST_F(PartialFileTest, OnlyWhatIsAbandonedIsRemoved) {
    QDir().mkpath(folder());
    auto running = partial();
    ASSERT_FALSE(running->open());
    ASSERT_FALSE(running->write("abc"));
    const QStringList keep{QStringLiteral("ggml-small.en.bin"), QStringLiteral("notes.part"),
                           QStringLiteral(".hidden"), QStringLiteral(".x.part"),
                           QStringLiteral(".a.bin.0123456g.part")};
    for (const QString &each : keep)
        put(folder() + QLatin1Char('/') + each, "x");
    QDir(folder()).mkdir(QStringLiteral(".a.bin.01234567.part"));
    put(folder() + QStringLiteral("/.a.bin.0123abcd.part"), "left behind");
    PartialFile::removeAbandoned(PartialFile::begun(folder()));
    EXPECT_EQ(entries(folder()).size(), keep.size() + 2);
    EXPECT_FALSE(QFileInfo::exists(folder() + QStringLiteral("/.a.bin.0123abcd.part")));
    ASSERT_FALSE(running->finish());
    EXPECT_EQ(contents(destination()), "abc");
    EXPECT_TRUE(PartialFile::begun(QStringLiteral("/no/such/folder")).isEmpty());
}
