#include "Quenda/ConfigStore.h"

#include "Fakes/TestMain.h"
#include "Platform/Folders.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <limits>
#include <thread>

namespace quenda {

namespace {

constexpr QFile::Permissions kOwnerOnly =
    QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser;

QString inHome(const QString &path) {
    return fakes::testHome() + u'/' + path;
}

QByteArray contents(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

void put(const QString &path, const QByteArray &bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

// The former product's folder with a model and settings that point to it.
Config putFormerFolder() {
    Config former = Config::defaults();
    former.language = u"de"_qs;
    former.modelPath = inHome(u"data/Ostrel/models/small.bin"_qs);
    former.whisperServerPath = inHome(u"data/Ostrel/bin/whisper-server"_qs);
    put(inHome(u"data/Ostrel/config.json"_qs), former.encode());
    put(former.modelPath, "model");
    return former;
}

// Makes every new file as open as the system allows, so that a narrow one is no accident.
struct OpenMask {
    OpenMask() : before(umask(0)) {}
    ~OpenMask() { umask(before); }
    mode_t before;
};

// The superuser may do everything; a test of a refusal has to be somebody else.
struct Unprivileged {
    Unprivileged() {
        if (before == 0) {
            EXPECT_EQ(seteuid(65534), 0);
        }
    }
    ~Unprivileged() {
        if (before == 0) {
            EXPECT_EQ(seteuid(before), 0);
        }
    }
    uid_t before = geteuid();
};

// What goes to the system log meanwhile.
class Messages {
public:
    Messages() {
        collected.clear();
        m_before = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &text) { collected << text; });
    }
    ~Messages() { qInstallMessageHandler(m_before); }
    const QStringList &all() const { return collected; }

private:
    static inline QStringList collected;
    QtMessageHandler m_before;
};

// Lets no file grow, and notes the settings file's mode at the moment of the first try: the system
// sends a signal before the first byte is on the disk.
class FirstByte {
public:
    FirstByte() {
        path = QFile::encodeName(Config::configURL());
        mode = -1;
        m_handler = std::signal(SIGXFSZ, [](int) {
            struct stat file {};
            if (mode < 0 && stat(path.constData(), &file) == 0)
                mode = int(file.st_mode & 0777);
        });
        getrlimit(RLIMIT_FSIZE, &m_limit);
        const rlimit none{0, m_limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &none);
    }
    ~FirstByte() {
        setrlimit(RLIMIT_FSIZE, &m_limit);
        std::signal(SIGXFSZ, m_handler);
    }
    int modeThen() const { return mode; }

private:
    static inline QByteArray path;
    static inline volatile std::sig_atomic_t mode = -1;
    void (*m_handler)(int) = nullptr;
    rlimit m_limit{};
};

TEST(ConfigStore, LocationsLieInTheApplicationSupportFolder) {
    EXPECT_EQ(Config::dataFolder(), inHome(u"data/Quenda"_qs));
    EXPECT_EQ(Config::configURL(), inHome(u"data/Quenda/config.json"_qs));
    EXPECT_EQ(Config::modelsDir(), inHome(u"data/Quenda/models"_qs));
    EXPECT_FALSE(QFile::exists(inHome(u"data"_qs))) << "asking creates nothing";
}

TEST(ConfigStore, AFirstLaunchCreatesACompleteDefaultFile) {
    const OpenMask mask;
    const ConfigStore store;
    EXPECT_EQ(store.config(), Config::defaults());
    EXPECT_EQ(contents(Config::configURL()), Config::defaults().encode());
    EXPECT_EQ(QFile::permissions(Config::configURL()), kOwnerOnly);
    EXPECT_EQ(QFile::permissions(Config::dataFolder()) &
                  (QFile::ReadGroup | QFile::ReadOther | QFile::ExeGroup | QFile::ExeOther),
              QFile::Permissions());
    EXPECT_FALSE(QFile::exists(Config::modelsDir()));
}

TEST(ConfigStore, ALegibleFileIsLoadedAndLeftAsItIs) {
    const QByteArray json = R"({"serverPort": 9000, "note": "kept"})";
    put(Config::configURL(), json);
    const ConfigStore store;
    EXPECT_EQ(store.config().serverPort, 9000);
    EXPECT_EQ(contents(Config::configURL()), json);
}

TEST(ConfigStore, AnIllegibleFileIsReplacedByDefaults) {
    for (const QByteArray &json : {QByteArray(R"({"language": "de", "hotkey": "leftOption"})"),
                                   QByteArray("{"), QByteArray()}) {
        put(Config::configURL(), json);
        const ConfigStore store;
        EXPECT_EQ(store.config(), Config::defaults());
        EXPECT_EQ(contents(Config::configURL()), Config::defaults().encode());
        EXPECT_EQ(QFile::permissions(Config::configURL()), kOwnerOnly);
    }
}

TEST(ConfigStore, AFileThatIsTooLongIsReplacedByDefaults) {
    QByteArray json = R"({"language": "de"})";
    put(Config::configURL(), json.leftJustified(Config::kMaxFileBytes));
    EXPECT_EQ(ConfigStore().config().language, u"de");
    put(Config::configURL(), json.leftJustified(Config::kMaxFileBytes + 1));
    EXPECT_EQ(ConfigStore().config(), Config::defaults());
    EXPECT_EQ(contents(Config::configURL()), Config::defaults().encode());

    QFile sparse(Config::configURL());
    ASSERT_TRUE(sparse.resize(100'000'000));
    EXPECT_EQ(ConfigStore().config(), Config::defaults());
}

TEST(ConfigStore, AFolderOrAPipeInTheFilesPlaceStopsNothing) {
    QDir().mkpath(Config::configURL());
    EXPECT_EQ(ConfigStore().config(), Config::defaults());
    QDir().rmdir(Config::configURL());
    ASSERT_EQ(mkfifo(QFile::encodeName(Config::configURL()).constData(), 0600), 0);
    ConfigStore store;
    store.update([](Config &c) { c.language = u"de"_qs; });
    EXPECT_EQ(store.config().language, u"de");
}

TEST(ConfigStore, AChangedValueIsSavedAtOnceAndAnEqualOneNot) {
    ConfigStore store;
    store.update([](Config &c) { c.customVocabulary = u"QMX"_qs; });
    EXPECT_EQ(contents(Config::configURL()), store.config().encode());
    EXPECT_EQ(Config::load().value().customVocabulary, u"QMX");

    put(Config::configURL(), "untouched");
    int announced = 0;
    const Subscription subscription =
        store.observable().subscribe([&](const Config &) { ++announced; });
    store.setConfig(store.config());
    EXPECT_EQ(announced, 2) << "an equal value is announced, beside the one of the subscription";
    EXPECT_EQ(contents(Config::configURL()), "untouched");

    store.update([](Config &c) { c.customVocabulary = u"Alvero"_qs; });
    EXPECT_EQ(contents(Config::configURL()), store.config().encode());
}

TEST(ConfigStore, AnObserverThatAssignsAgainHasTheLastWordInTheFile) {
    ConfigStore store;
    const Subscription subscription = store.observable().subscribe([&](const Config &config) {
        if (config.serverPort == 1)
            store.update([](Config &c) { c.serverPort = 2; });
    });
    store.update([](Config &c) { c.serverPort = 1; });
    EXPECT_EQ(store.config().serverPort, 2);
    EXPECT_EQ(Config::load().value().serverPort, 2);
}

TEST(ConfigStore, AFileWithAWiderModeIsNarrowed) {
    put(Config::configURL(), Config::defaults().encode());
    QFile::setPermissions(Config::configURL(), kOwnerOnly | QFile::ReadGroup | QFile::ReadOther);
    ConfigStore store;
    store.update([](Config &c) { c.apiKeys.insert(u"groq"_qs, u"secret"_qs); });
    EXPECT_EQ(QFile::permissions(Config::configURL()), kOwnerOnly);
    EXPECT_EQ(Config::load().value(), store.config());
}

TEST(ConfigStore, NoByteIsEverReadableByOthers) {
    const OpenMask mask;
    QDir().mkpath(Config::dataFolder());
    {
        const FirstByte newFile;
        Config::defaults().save();
        EXPECT_EQ(newFile.modeThen(), 0600);
    }
    QFile::setPermissions(Config::configURL(), kOwnerOnly | QFile::ReadGroup | QFile::ReadOther);
    {
        const FirstByte oldFile;
        Config::defaults().save();
        EXPECT_EQ(oldFile.modeThen(), 0600);
    }
}

TEST(ConfigStore, ANewFileIsBornWithTheNarrowMode) {
    const OpenMask mask;
    QDir().mkpath(Config::dataFolder());
    const QByteArray path = QFile::encodeName(Config::configURL());
    std::atomic<bool> done = false;
    std::atomic<int> widest = 0;
    std::thread watcher([&] {
        struct stat file {};
        while (!done) {
            if (stat(path.constData(), &file) == 0)
                widest |= int(file.st_mode & 0777);
        }
    });
    for (int i = 0; i < 1000; ++i) {
        Config::defaults().save();
        QFile::remove(Config::configURL());
    }
    done = true;
    watcher.join();
    EXPECT_EQ(widest & 0177, 0);
}

TEST(ConfigStore, AFileThatRefusesTheWriteGetsItsModeAllTheSame) {
    QFile::setPermissions(fakes::testHome(), QFile::Permissions(0x7777));
    const Unprivileged user;
    ConfigStore store;
    QFile::setPermissions(Config::configURL(), QFile::ReadOwner | QFile::ReadOther);
    store.update([](Config &c) { c.language = u"de"_qs; });
    EXPECT_EQ(contents(Config::configURL()), Config::defaults().encode());
    EXPECT_EQ(QFile::permissions(Config::configURL()), kOwnerOnly);
    store.update([](Config &c) { c.language = u"fr"_qs; });
    EXPECT_EQ(contents(Config::configURL()), store.config().encode());
}

TEST(ConfigStore, AMaskThatTakesTheOwnersRightsIsOverruled) {
    QDir().mkpath(Config::dataFolder());
    const mode_t before = umask(0777);
    Config::defaults().save();
    umask(before);
    EXPECT_EQ(QFile::permissions(Config::configURL()), kOwnerOnly);
    EXPECT_EQ(contents(Config::configURL()), Config::defaults().encode());
}

TEST(ConfigStore, AShorterRecordLeavesNothingOfTheLongerOne) {
    ConfigStore store;
    store.update([](Config &c) { c.customVocabulary = QString(5000, u'x'); });
    store.update([](Config &c) { c.customVocabulary.clear(); });
    EXPECT_EQ(contents(Config::configURL()), Config::defaults().encode());
}

TEST(ConfigStore, ASymbolicLinkIsFollowed) {
    const QString target = inHome(u"dotfiles/quenda.json"_qs);
    put(target, R"({"language": "fr"})");
    QFile::setPermissions(target, kOwnerOnly | QFile::ReadOther);
    QDir().mkpath(Config::dataFolder());
    ASSERT_TRUE(QFile::link(target, Config::configURL()));
    ConfigStore store;
    EXPECT_EQ(store.config().language, u"fr");
    store.update([](Config &c) { c.language = u"it"_qs; });
    EXPECT_TRUE(QFileInfo(Config::configURL()).isSymLink());
    EXPECT_EQ(contents(target), store.config().encode());
    EXPECT_EQ(QFile::permissions(target), kOwnerOnly);
}

TEST(ConfigStore, ARecordThatCannotBeEncodedLeavesTheFile) {
    ConfigStore store;
    const QByteArray before = contents(Config::configURL());
    store.update([](Config &c) { c.minHoldSeconds = std::numeric_limits<double>::infinity(); });
    EXPECT_EQ(store.config().minHoldSeconds, std::numeric_limits<double>::infinity());
    EXPECT_EQ(contents(Config::configURL()), before);
}

TEST(ConfigStore, ADiskThatRefusesIsSilentAndTheValueStays) {
    put(inHome(u"data"_qs), "a file where the folder belongs");
    ConfigStore store;
    store.update([](Config &c) { c.language = u"de"_qs; });
    EXPECT_EQ(store.config().language, u"de");
    EXPECT_EQ(contents(inHome(u"data"_qs)), "a file where the folder belongs");
}

TEST(ConfigStore, TheFormerFolderIsMovedOnceWithItsModelsAndPaths) {
    const Config former = putFormerFolder();
    const ConfigStore store;
    EXPECT_FALSE(QFile::exists(inHome(u"data/Ostrel"_qs)));
    Config expected = former;
    expected.modelPath = inHome(u"data/Quenda/models/small.bin"_qs);
    expected.whisperServerPath = inHome(u"data/Quenda/bin/whisper-server"_qs);
    EXPECT_EQ(store.config(), expected);
    EXPECT_EQ(contents(expected.modelPath), "model");
    EXPECT_EQ(contents(Config::configURL()), expected.encode());
    EXPECT_EQ(QFile::permissions(Config::configURL()), kOwnerOnly);
}

TEST(ConfigStore, MigrationRewritesEveryOccurrenceInTheTwoPathsAlone) {
    const QString prefix = Folders::current().migratedPathPrefix;
    Config former = Config::defaults();
    former.modelPath = prefix + u"Ostrel/a"_qs + prefix + u"Ostrel/b"_qs;
    former.whisperServerPath = u"/opt/Ostrel/whisper-server"_qs;
    former.customVocabulary = prefix + u"Ostrel/"_qs;
    put(inHome(u"data/Ostrel/config.json"_qs), former.encode());
    Config expected = former;
    expected.modelPath = prefix + u"Quenda/a"_qs + prefix + u"Quenda/b"_qs;
    EXPECT_EQ(ConfigStore().config(), expected);
}

TEST(ConfigStore, MigrationIsCaseSensitiveAndMindsTheWholeFolderName) {
    const QString prefix = Folders::current().migratedPathPrefix;
    Config former = Config::defaults();
    former.modelPath = prefix + u"ostrel/a.bin"_qs;
    former.whisperServerPath = prefix + u"Ostrel2/server"_qs;
    put(inHome(u"data/Ostrel/config.json"_qs), former.encode());
    EXPECT_EQ(ConfigStore().config(), former);
}

TEST(ConfigStore, AnIllegibleFormerFileIsMovedAndThenReplacedByDefaults) {
    putFormerFolder();
    put(inHome(u"data/Ostrel/config.json"_qs), R"({"language": "de", "serverPort": "1"})");
    EXPECT_EQ(ConfigStore().config(), Config::defaults());
    EXPECT_FALSE(QFile::exists(inHome(u"data/Ostrel"_qs)));
    EXPECT_EQ(contents(inHome(u"data/Quenda/models/small.bin"_qs)), "model");
}

TEST(ConfigStore, NothingIsMovedWhereTheNewFolderExists) {
    const Config former = putFormerFolder();
    QDir().mkpath(Config::dataFolder());
    EXPECT_EQ(ConfigStore().config(), Config::defaults());
    EXPECT_EQ(contents(inHome(u"data/Ostrel/config.json"_qs)), former.encode());
    EXPECT_EQ(contents(former.modelPath), "model");
}

TEST(ConfigStore, WithoutAFormerFolderMigrationCreatesNothing) {
    Config::migrateLegacyDataIfNeeded();
    EXPECT_FALSE(QFile::exists(inHome(u"data"_qs)));
}

TEST(ConfigStore, AMoveThatFailsIsReportedAndTheProgramGoesOn) {
    const Config former = putFormerFolder();
    QFile::setPermissions(fakes::testHome(), QFile::Permissions(0x7755));
    QFile::setPermissions(inHome(u"data"_qs), QFile::Permissions(0x5555));
    {
        const Unprivileged user;
        const Messages messages;
        EXPECT_EQ(ConfigStore().config(), Config::defaults());
        EXPECT_EQ(messages.all(), QStringList{u"Quenda: legacy data migration failed: "_qs +
                                              qt_error_string(EACCES)});
    }
    QFile::setPermissions(inHome(u"data"_qs), QFile::Permissions(0x7755));
    EXPECT_EQ(contents(inHome(u"data/Ostrel/config.json"_qs)), former.encode());
    EXPECT_FALSE(QFile::exists(Config::dataFolder()));
}

} // namespace

} // namespace quenda
