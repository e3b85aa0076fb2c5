#include "Quenda/UpdateChecker.h"

#include "Fakes/FakeHttpClient.h"
#include "Fakes/FakePlatform.h"
#include "Fakes/TestHttpServer.h"
#include "Fakes/TestMain.h"
#include "Fakes/VirtualScheduler.h"
#include "Quenda/Log.h"
#include "Quenda/NetworkHttpClient.h"

#include <QFile>
#include <QSettings>

#include <gtest/gtest.h>

using namespace quenda;
using namespace std::chrono_literals;
using Available = UpdateChecker::Available;

namespace {

class UpdateCheckerTest : public testing::Test {
protected:
    UpdateCheckerTest() {
        checker.onUpdateFound = [this](const Available &a) { found.append(a); };
    }

    // Fetches and answers with `body`.
    void announce(const QByteArray &body, int status = 200) {
        checker.fetch();
        http.answer(status, body);
    }
    static QByteArray file(const QByteArray &build) {
        return R"({"version":"1.4.0","url":"https://quenda.example/get","build":)" + build + "}";
    }
    // What was logged, without the times.
    static QStringList logged() {
        Log::flush();
        QFile log(Log::fileURL());
        QStringList lines;
        if (log.open(QIODevice::ReadOnly)) {
            for (const QString &line :
                 QString::fromUtf8(log.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
                lines.append(line.mid(line.indexOf(QStringLiteral("update:"))));
        }
        return lines;
    }

    fakes::FakeHttpClient http;
    fakes::VirtualScheduler scheduler;
    fakes::FakeBundle bundle; // version 1.4.0, build 57
    QSettings defaults{fakes::testHome() + QStringLiteral("/defaults.ini"), QSettings::IniFormat};
    UpdateChecker checker{{http, scheduler, defaults, bundle},
                          QUrl(QStringLiteral("https://site.example/quenda-version.json"))};
    QList<Available> found;
};

} // namespace

// --- When it checks
// ----------------------------------------------------------------------------------

TEST_F(UpdateCheckerTest, OffMeansNothingStoredAndNothingSent) {
    checker.checkIfDue(false, false);
    checker.checkIfDue(false, true);
    EXPECT_FALSE(defaults.contains(QStringLiteral("lastUpdateCheck")));
    EXPECT_TRUE(http.exchanges.empty());
}

TEST_F(UpdateCheckerTest, TheFirstCheckIsDue) {
    checker.checkIfDue(true, false);
    EXPECT_EQ(http.exchanges.size(), 1u);
    EXPECT_EQ(defaults.value(QStringLiteral("lastUpdateCheck")).toDateTime(), scheduler.now());
}

TEST_F(UpdateCheckerTest, LessThanTwentyHoursBlock) {
    const auto checked = [&](std::chrono::milliseconds ago) {
        const QDateTime stored = scheduler.now().addMSecs(-ago.count());
        defaults.setValue(UpdateChecker::lastCheckKey, stored);
        const std::size_t before = http.exchanges.size();
        checker.checkIfDue(true, false);
        const bool ran = http.exchanges.size() > before;
        EXPECT_EQ(defaults.value(UpdateChecker::lastCheckKey).toDateTime(),
                  ran ? scheduler.now() : stored);
        return ran;
    };
    EXPECT_FALSE(checked(0ms));
    EXPECT_FALSE(checked(19h + 59min));
    EXPECT_FALSE(checked(20h - 1ms));
    EXPECT_TRUE(checked(20h)) << "strictly less blocks";
    EXPECT_TRUE(checked(20h + 1ms));
    EXPECT_TRUE(checked(24h * 365));
    EXPECT_FALSE(checked(-1h)) << "a time in the future blocks";
    EXPECT_FALSE(checked(-24h * 365));
}

TEST_F(UpdateCheckerTest, ForceChecksAllTheSame) {
    checker.checkIfDue(true, false);
    scheduler.advance(1h);
    checker.checkIfDue(true, true);
    EXPECT_EQ(http.exchanges.size(), 2u);
    EXPECT_EQ(defaults.value(UpdateChecker::lastCheckKey).toDateTime(), scheduler.now());
}

TEST_F(UpdateCheckerTest, ValuesOfAnotherTypeDoNotBlock) {
    const QList<QVariant> values{
        scheduler.now().toString(Qt::ISODate), 1'800'000'000, true, scheduler.now().date(),
        QStringList{QStringLiteral("x")},      QDateTime()};
    for (const QVariant &value : values) {
        defaults.setValue(UpdateChecker::lastCheckKey, value);
        const std::size_t before = http.exchanges.size();
        checker.checkIfDue(true, false);
        EXPECT_EQ(http.exchanges.size(), before + 1) << value.typeName();
    }
}

TEST_F(UpdateCheckerTest, TheStoredTimeSurvivesARestart) {
    checker.checkIfDue(true, false);
    defaults.sync();
    QSettings reread(defaults.fileName(), QSettings::IniFormat);
    UpdateChecker next({http, scheduler, reread, bundle});
    scheduler.advance(20h - 1s);
    next.checkIfDue(true, false);
    EXPECT_EQ(http.exchanges.size(), 1u);
    scheduler.advance(1s);
    next.checkIfDue(true, false);
    EXPECT_EQ(http.exchanges.size(), 2u);
}

TEST_F(UpdateCheckerTest, AFailedRequestCountsAsACheck) {
    checker.checkIfDue(true, false);
    http.fail({QStringLiteral("net"), 1, QStringLiteral("no network")});
    scheduler.advance(1h);
    checker.checkIfDue(true, false);
    EXPECT_EQ(http.exchanges.size(), 1u);
    EXPECT_TRUE(logged().isEmpty());
}

TEST_F(UpdateCheckerTest, TheTimeIsStoredBeforeTheRequestGoesOut) {
    struct Watcher final : HttpClient {
        explicit Watcher(const QSettings &settings) : defaults(settings) {}
        void send(const HttpRequest &, const QObject *, Completion) override {
            stored = defaults.contains(UpdateChecker::lastCheckKey);
        }
        void download(const HttpRequest &, std::unique_ptr<DownloadSink>, const QObject *,
                      DownloadProgress, DownloadCompletion) override {}
        const QSettings &defaults;
        std::optional<bool> stored;
    } watcher(defaults);
    UpdateChecker watched({watcher, scheduler, defaults, bundle});
    watched.checkIfDue(true, false);
    EXPECT_EQ(watcher.stored, true);
}

TEST_F(UpdateCheckerTest, AnAnswerThatBrokeOffIsDropped) {
    checker.fetch();
    http.exchanges[0].completion(
        {200, file("58"), Error{QStringLiteral("net"), 6, QStringLiteral("cut off")}});
    EXPECT_TRUE(found.isEmpty());
    EXPECT_TRUE(logged().isEmpty());
}

TEST_F(UpdateCheckerTest, MarkingStoresTheTimeAlone) {
    checker.markChecked();
    EXPECT_EQ(defaults.value(QStringLiteral("lastUpdateCheck")).toDateTime(), scheduler.now());
    EXPECT_TRUE(http.exchanges.empty());
}

// --- What it asks
// --------------------------------------------------------------------------------------

TEST_F(UpdateCheckerTest, AsksForTheVersionFile) {
    checker.fetch();
    ASSERT_EQ(http.exchanges.size(), 1u);
    const HttpRequest &request = http.exchanges[0].request;
    EXPECT_EQ(request.url, QUrl(QStringLiteral("https://site.example/quenda-version.json")));
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.timeout, 15s);
    EXPECT_EQ(request.maxResponseBytes, 64 * 1024);
    EXPECT_TRUE(
        request.headers.contains(qMakePair(QByteArray("User-Agent"), QByteArray("Quenda/1.4.0"))));
    bundle.versionText = std::nullopt;
    checker.fetch();
    EXPECT_TRUE(http.exchanges[1].request.headers.contains(
        qMakePair(QByteArray("User-Agent"), QByteArray("Quenda/?"))));
    EXPECT_FALSE(defaults.contains(UpdateChecker::lastCheckKey)) << "fetch() alone stores nothing";
}

TEST_F(UpdateCheckerTest, TheBuildNamesTheSite) {
    UpdateChecker shipped({http, scheduler, defaults, bundle});
    shipped.fetch();
    ASSERT_EQ(http.exchanges.size(), 1u);
    EXPECT_EQ(http.exchanges[0].request.url,
              QUrl(QStringLiteral("https://quenda.example/quenda-version.json")));
}

TEST(UpdateCheckerDeathTest, ABuildWithoutASiteEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto make = [] {
        qInstallMessageHandler(nullptr); // the tests' own would keep the last words to itself
        fakes::FakeHttpClient http;
        fakes::VirtualScheduler scheduler;
        fakes::FakeBundle bundle;
        QSettings defaults(QStringLiteral("/nonexistent/defaults.ini"), QSettings::IniFormat);
        UpdateChecker({http, scheduler, defaults, bundle}, QUrl(QStringLiteral("https://[")));
    };
    EXPECT_DEATH(make(), "site address is not a URL");
}

// --- What it makes of the answer
// -------------------------------------------------------------------------

TEST_F(UpdateCheckerTest, ANewerBuildIsAnnounced) {
    announce(R"({"version":"1.5.0","build":58,"url":"https://quenda.example/get",
                 "notes":"Faster.","other":[1,2]})");
    const Available expected{QStringLiteral("1.5.0"), 58,
                             QUrl(QStringLiteral("https://quenda.example/get")),
                             QStringLiteral("Faster.")};
    EXPECT_EQ(found, QList<Available>{expected});
    EXPECT_EQ(checker.available(), expected);
    EXPECT_EQ(logged(),
              QStringList{QStringLiteral("update: build 58 (1.5.0) available — running 57")});
}

TEST_F(UpdateCheckerTest, TheRecordIsSetBeforeTheCallback) {
    bool known = false;
    checker.onUpdateFound = [&](const Available &) { known = checker.available().has_value(); };
    announce(file("58"));
    EXPECT_TRUE(known);
    checker.onUpdateFound = nullptr;
    announce(file("59"));
    EXPECT_EQ(checker.available()->build, 59);
}

TEST_F(UpdateCheckerTest, TheSameOrAnOlderBuildIsUpToDate) {
    announce(file("57"));
    announce(file("56"));
    EXPECT_TRUE(found.isEmpty());
    EXPECT_FALSE(checker.available());
    EXPECT_EQ(logged(),
              (QStringList{QStringLiteral("update: up to date (latest build 57, running 57)"),
                           QStringLiteral("update: up to date (latest build 56, running 57)")}));
}

TEST_F(UpdateCheckerTest, AvailableIsNeverCleared) {
    announce(file("58"));
    announce(file("57"));
    announce("nonsense");
    ASSERT_TRUE(checker.available());
    EXPECT_EQ(checker.available()->build, 58);
    announce(file("58"));
    EXPECT_EQ(found.size(), 2) << "told each time";
}

TEST_F(UpdateCheckerTest, BuildsAreNumbersOrTextsOfOne) {
    bundle.buildText = std::nullopt; // runs as build 0
    const QList<std::pair<QByteArray, qint64>> cases{
        {"57", 57},
        {"\"57\"", 57},
        {"\"+57\"", 57},
        {"\"007\"", 7},
        {"57.0", 57},
        {"9223372036854775807", 9223372036854775807},
        {"\"9223372036854775807\"", 9223372036854775807},
        // Everything else counts as 0.
        {"\"57a\"", 0},
        {"\"0x57\"", 0},
        {"\" 57\"", 0},
        {"\"57 \"", 0},
        {"\"5 7\"", 0},
        {"\"++57\"", 0},
        {"\"+\"", 0},
        {"\"\"", 0},
        {"\"57.0\"", 0},
        {"\"\\u0665\\u0667\"", 0}, // Arabic digits
        {"\"9223372036854775808\"", 0},
        {"9223372036854775808", 0},
        {"1e300", 0},
        {"57.5", 0},
        {"true", 0},
        {"null", 0},
        {"[57]", 0},
        {"{}", 0},
        {"-3", -3},
        {"\"-3\"", -3},
    };
    for (const auto &[text, build] : cases) {
        found.clear();
        announce(file(text));
        if (build > 0) {
            ASSERT_EQ(found.size(), 1) << text.constData();
            EXPECT_EQ(found[0].build, build) << text.constData();
        } else {
            EXPECT_TRUE(found.isEmpty()) << text.constData();
            EXPECT_EQ(logged().last(),
                      QStringLiteral("update: up to date (latest build %1, running 0)").arg(build))
                << text.constData();
        }
    }
}

TEST_F(UpdateCheckerTest, AFileWithoutABuildAnnouncesNothing) {
    bundle.buildText = QStringLiteral("0");
    announce(R"({"version":"9.9","url":"https://quenda.example/get"})");
    EXPECT_TRUE(found.isEmpty());
    EXPECT_EQ(logged(),
              QStringList{QStringLiteral("update: up to date (latest build 0, running 0)")});
}

TEST_F(UpdateCheckerTest, TheRunningBuildIsANumberOrZero) {
    for (const char *text : {"", "dev", "1.2", "57a", " 57"}) {
        bundle.buildText = QString::fromLatin1(text);
        found.clear();
        announce(file("1"));
        EXPECT_EQ(found.size(), 1) << text;
    }
    bundle.buildText = QStringLiteral("+57");
    found.clear();
    announce(file("57"));
    EXPECT_TRUE(found.isEmpty());
}

TEST_F(UpdateCheckerTest, UnusableFilesAreSilent) {
    for (const char *body :
         {"", "not json", "[]", "[{\"version\":\"1\"}]", "\"text\"", "null", "12",
          R"({"url":"https://quenda.example","build":99})",
          R"({"version":2,"url":"https://quenda.example","build":99})",
          R"({"version":null,"url":"https://quenda.example","build":99})",
          R"({"version":"2","build":99})", R"({"version":"2","url":7,"build":99})",
          R"({"version":"2","url":"","build":99})",
          R"({"version":"2","url":"http://[","build":99})",
          R"({"version":"2","url":"https://a b/","build":99})",
          R"({"version":"2","url":"https://quenda.example","build":99)",
          "{\"version\":\"\xff\xfe\",\"url\":\"https://quenda.example\",\"build\":99}"})
        announce(body);
    EXPECT_TRUE(found.isEmpty());
    EXPECT_FALSE(checker.available());
    EXPECT_TRUE(logged().isEmpty());
}

TEST_F(UpdateCheckerTest, NotesAreTextOrEmpty) {
    announce(R"({"version":"2","url":"https://quenda.example","build":99,"notes":["x"]})");
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found[0].notes, QString());
}

TEST_F(UpdateCheckerTest, TheStatusIsNotExamined) {
    announce(file("58"), 404);
    announce(file("59"), 500);
    EXPECT_EQ(found.size(), 2);
}

TEST_F(UpdateCheckerTest, AVersionStandsInTheLogAsItIs) {
    announce(R"({"version":"%1 %2 %3","url":"https://quenda.example","build":99})");
    EXPECT_EQ(logged(),
              QStringList{QStringLiteral("update: build 99 (%1 %2 %3) available — running 57")});
}

TEST_F(UpdateCheckerTest, AVersionCannotForgeALogLine) {
    announce(
        R"({"version":"2\n2026-01-01 app: forged","url":"https://quenda.example","build":99})");
    EXPECT_EQ(logged().size(), 1);
}

TEST_F(UpdateCheckerTest, AReplyAfterItsEndIsDropped) {
    auto shortLived = std::make_unique<UpdateChecker>(
        UpdateChecker::Environment{http, scheduler, defaults, bundle});
    int calls = 0;
    shortLived->onUpdateFound = [&](const Available &) { ++calls; };
    shortLived->fetch();
    shortLived.reset();
    http.answer(200, file("58"));
    EXPECT_EQ(calls, 0);
}

TEST_F(UpdateCheckerTest, OverARealConnection) {
    fakes::TestHttpServer server;
    NetworkHttpClient real;
    UpdateChecker live({real, scheduler, defaults, bundle},
                       server.url(QStringLiteral("/quenda-version.json")));
    std::optional<Available> update;
    live.onUpdateFound = [&](const Available &available) { update = available; };
    server.answer(404, file("58"));
    live.checkIfDue(true, false);
    EXPECT_TRUE(fakes::waitFor([&] { return update.has_value(); }));
    ASSERT_EQ(server.requests.size(), 1u);
    EXPECT_EQ(server.requests[0].target, "/quenda-version.json");
    EXPECT_EQ(server.requests[0].header("User-Agent"), "Quenda/1.4.0");
    EXPECT_EQ(server.requests[0].header("Cache-Control"), "no-cache"); // for proxies that keep

    // An answer without an end is dropped.
    server.handler = [](QTcpSocket &socket, const fakes::TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\n\r\n");
        fakes::TestHttpServer::sendEndlessly(socket);
    };
    update.reset();
    live.fetch();
    ASSERT_TRUE(fakes::waitFor([&] { return server.requests.size() == 2; }));
    EXPECT_TRUE(fakes::waitFor([&] { return server.openConnections() == 0; }));
    EXPECT_FALSE(update);
}
