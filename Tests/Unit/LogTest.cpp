#include "Quenda/Log.h"

#include "Fakes/TestMain.h"
#include "Platform/Folders.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>
#include <QStringDecoder>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>

#include <cstdlib>
#include <thread>
#include <vector>

namespace quenda {

namespace {

constexpr int kStampLength = 19;
const QString kStampFormat = QStringLiteral("yyyy-MM-dd HH:mm:ss");

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

// The file without its lines' timestamps.
QList<QByteArray> messages() {
    QList<QByteArray> lines = contents(Log::fileURL()).split('\n');
    EXPECT_EQ(lines.takeLast(), QByteArray()) << "the last line ends";
    for (QByteArray &line : lines)
        line.remove(0, kStampLength + 1);
    return lines;
}

void logNow(const QString &message) {
    Log::log(message);
    Log::flush();
}

QString previousLog() {
    return Log::fileURL() + u".1"_qs;
}

TEST(Log, LocationsLieInTheLogsFolder) {
    EXPECT_EQ(Log::dir(), fakes::testHome() + u"/logs/Quenda"_qs);
    EXPECT_EQ(Log::fileURL(), fakes::testHome() + u"/logs/Quenda/quenda.log"_qs);
}

TEST(Log, TheFirstLineCreatesFolderAndFileForTheOwnerOnly) {
    const mode_t before = umask(0);
    const QDateTime earliest = QDateTime::currentDateTime().addSecs(-1);
    logNow(u"app: launched Quenda"_qs);
    const QDateTime latest = QDateTime::currentDateTime();
    umask(before);

    const QByteArray text = contents(Log::fileURL());
    const QDateTime stamp =
        QDateTime::fromString(QString::fromUtf8(text.left(kStampLength)), kStampFormat);
    EXPECT_TRUE(stamp.isValid()) << text.constData();
    EXPECT_GE(stamp, earliest);
    EXPECT_LE(stamp, latest);
    EXPECT_EQ(text.mid(kStampLength), " app: launched Quenda\n");
    EXPECT_EQ(QDir(Log::dir()).entryList(QDir::Files), QStringList{u"quenda.log"_qs});
    const auto others = QFile::Permissions(0x0077);
    EXPECT_EQ(QFile::permissions(Log::fileURL()) & others, QFile::Permissions());
    EXPECT_EQ(QFile::permissions(Log::dir()) & others, QFile::Permissions());
}

TEST(Log, LinesAreAppendedInOrderAsUtf8) {
    QList<QByteArray> expected;
    for (int i = 0; i < 500; ++i) {
        const QString message = u"hotkey: event tap dead — recreating 🎤 %1"_qs.arg(i);
        Log::log(message);
        expected << message.toUtf8();
    }
    Log::flush();
    EXPECT_EQ(messages(), expected);
}

TEST(Log, AMessageIsWrittenAsGiven) {
    logNow(u"app: first\nsecond\n"_qs);
    logNow(QString());
    logNow(u"half \xD83D pair"_qs);
    const QByteArray text = contents(Log::fileURL());
    EXPECT_EQ(text.count('\n'), 5);
    EXPECT_EQ(text.mid(kStampLength, 20), " app: first\nsecond\n\n");
    QStringDecoder utf8(QStringDecoder::Utf8);
    EXPECT_TRUE(QString(utf8(text)).contains(u"half "));
    EXPECT_FALSE(utf8.hasError());
}

TEST(Log, LongLinesAreWholeWhateverTheirLength) {
    QList<QByteArray> expected;
    for (const int length : {330, 338, 339, 340, 341, 342, 1000, 1023, 1024, 1025, 200'000}) {
        const QString message(length, QChar(u'ß'));
        Log::log(message);
        expected << message.toUtf8();
    }
    Log::flush();
    EXPECT_EQ(messages(), expected);
}

TEST(Log, ATextThatTheCallerOnlyLendsIsCopied) {
    std::u16string lent = u"lent text";
    Log::log(
        QString::fromRawData(reinterpret_cast<const QChar *>(lent.data()), qsizetype(lent.size())));
    lent.assign(lent.size(), u'X');
    Log::flush();
    EXPECT_EQ(messages(), QList<QByteArray>{"lent text"});
}

TEST(Log, TheTimestampIsInAsciiDigitsWhateverTheLocale) {
    const QLocale before;
    QLocale::setDefault(QLocale(QLocale::Arabic, QLocale::Egypt));
    logNow(u"x"_qs);
    QLocale::setDefault(before);
    static const QRegularExpression stamp(
        u"^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} x\n$"_qs);
    EXPECT_TRUE(stamp.match(QString::fromUtf8(contents(Log::fileURL()))).hasMatch());
}

TEST(Log, AFileOfExactlyAMillionBytesIsNotRotated) {
    put(Log::fileURL(), QByteArray(999'999, 'a') + '\n');
    logNow(u"x"_qs);
    EXPECT_EQ(QFileInfo(Log::fileURL()).size(), 1'000'000 + kStampLength + 3);
    EXPECT_FALSE(QFile::exists(previousLog()));

    logNow(u"y"_qs); // now it is above
    EXPECT_EQ(messages(), QList<QByteArray>{"y"});
    EXPECT_EQ(QFileInfo(previousLog()).size(), 1'000'000 + kStampLength + 3);
}

TEST(Log, AFileOfOneByteMoreIsRotatedBeforeTheLine) {
    const QByteArray old = QByteArray(1'000'000, 'a') + '\n';
    put(Log::fileURL(), old);
    put(previousLog(), "an older one");
    logNow(u"x"_qs);
    EXPECT_EQ(messages(), QList<QByteArray>{"x"});
    EXPECT_EQ(contents(previousLog()), old);
    EXPECT_EQ(QFile::permissions(Log::fileURL()) & QFile::Permissions(0x0077),
              QFile::Permissions());
    EXPECT_EQ(QDir(Log::dir()).entryList(QDir::Files),
              (QStringList{u"quenda.log"_qs, u"quenda.log.1"_qs}));
}

TEST(Log, RotationThatIsRefusedStillAppends) {
    put(Log::fileURL(), QByteArray(1'000'001, 'a'));
    put(previousLog() + u"/in the way"_qs, "x");
    logNow(u"y"_qs);
    EXPECT_EQ(QFileInfo(Log::fileURL()).size(), 1'000'001 + kStampLength + 3);
}

TEST(Log, ManyThreadsWriteWholeLines) {
    constexpr int kThreads = 8;
    constexpr int kEach = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kEach; ++i)
                Log::log(u"%1:%2:%3"_qs.arg(t).arg(i).arg(QString(i, QChar(u'a' + t))));
        });
    for (std::thread &thread : threads)
        thread.join();
    Log::flush();
    std::vector<int> next(kThreads, 0);
    for (const QByteArray &message : messages()) {
        const int thread = message.left(1).toInt();
        const int i = next.at(std::size_t(thread))++;
        EXPECT_EQ(message, QByteArray::number(thread) + ':' + QByteArray::number(i) + ':' +
                               QByteArray(i, char('a' + thread)));
    }
    EXPECT_EQ(next, std::vector<int>(kThreads, kEach));
}

TEST(Log, AFolderThatVanishesIsCreatedAgain) {
    logNow(u"one"_qs);
    QDir(Log::dir()).removeRecursively();
    logNow(u"two"_qs);
    EXPECT_EQ(messages(), QList<QByteArray>{"two"});
}

TEST(Log, FailuresAreSilentAndLaterLinesArrive) {
    put(Log::dir(), "a file where the folder belongs");
    logNow(u"lost"_qs);
    EXPECT_EQ(contents(Log::dir()), "a file where the folder belongs");
    QFile::remove(Log::dir());
    QDir().mkpath(Log::fileURL());
    logNow(u"lost"_qs);
    EXPECT_EQ(QDir(Log::dir()).entryList(QDir::Files), QStringList());
    QDir().rmdir(Log::fileURL());
    logNow(u"found"_qs);
    EXPECT_EQ(messages(), QList<QByteArray>{"found"});
}

TEST(Log, APipeInTheFilesPlaceDoesNotStopTheLog) {
    QDir().mkpath(Log::dir());
    ASSERT_EQ(mkfifo(QFile::encodeName(Log::fileURL()).constData(), 0600), 0);
    logNow(u"x"_qs);
    EXPECT_EQ(messages(), QList<QByteArray>{"x"});
}

// The exit is another process's: it runs this test again up to the exit, in the parent's home.
void useHomeOfParent() {
    const QByteArray home = qgetenv("QUENDA_LOG_TEST_HOME");
    Folders folders;
    folders.logs = QFile::decodeName(home);
    Folders::install(folders);
}

struct LogsWhenDestroyed {
    ~LogsWhenDestroyed() { Log::log(u"app: a static object is gone"_qs); }
};

class LogAtExit : public testing::Test {
protected:
    void SetUp() override {
        testing::FLAGS_gtest_death_test_style = "threadsafe";
        if (!qEnvironmentVariableIsSet("QUENDA_LOG_TEST_HOME"))
            qputenv("QUENDA_LOG_TEST_HOME", QFile::encodeName(fakes::testHome() + u"/logs"_qs));
    }
    void TearDown() override { qunsetenv("QUENDA_LOG_TEST_HOME"); }
};

TEST_F(LogAtExit, LinesThatWaitAreWritten) {
    EXPECT_EXIT(
        {
            useHomeOfParent();
            for (int i = 0; i < 3000; ++i)
                Log::log(QString::number(i));
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    const QList<QByteArray> lines = messages();
    ASSERT_EQ(lines.size(), 3000);
    EXPECT_EQ(lines.first(), "0");
    EXPECT_EQ(lines.last(), "2999");
}

TEST_F(LogAtExit, AStaticObjectThatOutlivesTheLogsThreadMayLog) {
    EXPECT_EXIT(
        {
            static const LogsWhenDestroyed object;
            useHomeOfParent();
            Log::log(u"app: leaving"_qs);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(messages(), (QList<QByteArray>{"app: leaving", "app: a static object is gone"}));
}

TEST_F(LogAtExit, AStaticObjectMayBeTheFirstToLog) {
    EXPECT_EXIT(
        {
            static const LogsWhenDestroyed object;
            useHomeOfParent();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(messages(), QList<QByteArray>{"app: a static object is gone"});
}

TEST(Log, AChangedTimeZoneShowsInTheNextSecond) {
    const QByteArray before = qgetenv("TZ");
    const auto stampIn = [](const char *zone) {
        qputenv("TZ", zone);
        tzset();
        QDir(Log::dir()).removeRecursively();
        std::thread([] { logNow(u"x"_qs); }).join(); // a thread that has formatted nothing yet
        return QDateTime::fromString(QString::fromUtf8(contents(Log::fileURL()).left(kStampLength)),
                                     kStampFormat);
    };
    const QDateTime west = stampIn("WST+10");
    const QDateTime east = stampIn("EST-10");
    qputenv("TZ", before);
    if (before.isEmpty())
        qunsetenv("TZ");
    tzset();
    const qint64 apart = west.secsTo(east);
    EXPECT_NEAR(double(apart), 20 * 3600, 60);
}

} // namespace

} // namespace quenda
