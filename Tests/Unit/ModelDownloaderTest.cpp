#include "Quenda/ModelDownloader.h"

#include "Fakes/FakeHttpClient.h"
#include "Fakes/TestHttpServer.h"
#include "Quenda/Config.h"
#include "Quenda/NetworkHttpClient.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThreadPool>

#include <gtest/gtest.h>

using namespace quenda;
using fakes::FakeHttpClient;
using fakes::TestHttpServer;
using fakes::waitFor;

namespace {

QString modelPath(const QString &name) {
    return Config::modelsDir() + QLatin1Char('/') + name;
}

void put(const QString &name, const QByteArray &bytes = "x") {
    QDir().mkpath(Config::modelsDir());
    QFile file(modelPath(name));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

QByteArray contents(const QString &name) {
    QFile file(modelPath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
}

QStringList leftovers() {
    QStringList found;
    for (const QString &folder : {Config::modelsDir(), Config::dataFolder()})
        found += QDir(folder).entryList({QStringLiteral("*.part")}, QDir::Files | QDir::Hidden);
    return found;
}

const WhisperModel &small() {
    return WhisperModel::catalog().at(2);
}

} // namespace

// --- The downloader's own state, on a client that does what the test says
// ------------------------------

namespace {

class ModelDownloaderTest : public testing::Test {
protected:
    ModelDownloaderTest() {
        downloader.onModelInstalled = [this](const WhisperModel &model) {
            installed.append(model.fileName);
        };
    }
    ~ModelDownloaderTest() override { QThreadPool::globalInstance()->waitForDone(); }

    double fraction(const WhisperModel &model) const {
        return downloader.progress.value().value(model.fileName, -1);
    }
    QString error(const WhisperModel &model) const {
        return downloader.errors.value().value(model.fileName);
    }

    FakeHttpClient http;
    ModelDownloader downloader{http, QStringLiteral("https://models.example/main/")};
    QStringList installed;
};

} // namespace

TEST_F(ModelDownloaderTest, InstallsAWholeModel) {
    EXPECT_FALSE(QFileInfo::exists(Config::modelsDir())) << "not made at the start";
    downloader.download(small());
    ASSERT_EQ(http.downloads.size(), 1u);
    EXPECT_EQ(http.downloads[0].request.url,
              QUrl(QStringLiteral("https://models.example/main/ggml-small.bin")));
    EXPECT_EQ(http.downloads[0].request.method, "GET");
    EXPECT_TRUE(http.downloads[0].request.headers.isEmpty());
    EXPECT_EQ(http.downloads[0].request.timeout, std::chrono::seconds(60));
    EXPECT_EQ(http.downloads[0].request.route, HttpRequest::Route::SystemProxy);
    EXPECT_EQ(fraction(small()), 0.0);

    http.deliver(0, "ab", 2, 8);
    EXPECT_EQ(fraction(small()), 0.25);
    EXPECT_EQ(downloader.transfers.value().value(small().fileName),
              (ModelDownloader::Transfer{2, 8}));
    EXPECT_FALSE(QFileInfo::exists(Config::modelsDir())) << "not before the file is whole";
    http.deliver(0, "cdefgh", 8, 8);
    EXPECT_EQ(fraction(small()), 1.0);
    EXPECT_TRUE(installed.isEmpty());

    bool goneFirst = false;
    downloader.onModelInstalled = [&](const WhisperModel &model) {
        goneFirst = downloader.progress.value().isEmpty();
        EXPECT_EQ(contents(model.fileName), "abcdefgh");
        installed.append(model.fileName);
    };
    http.endDownload(0, 200);
    EXPECT_EQ(installed, QStringList{small().fileName});
    EXPECT_TRUE(goneFirst);
    EXPECT_TRUE(downloader.transfers.value().isEmpty());
    EXPECT_TRUE(downloader.errors.value().isEmpty());
    EXPECT_TRUE(leftovers().isEmpty());
}

TEST_F(ModelDownloaderTest, EveryOtherStatusIsAnError) {
    for (const int status : {201, 204, 206, 304, 401, 403, 404, 416, 429, 500, 503}) {
        downloader.download(small());
        EXPECT_TRUE(downloader.errors.value().isEmpty()) << "a new start clears the error";
        http.endDownload(http.downloads.size() - 1, status);
        EXPECT_EQ(error(small()), QStringLiteral("Download failed (HTTP %1)").arg(status));
        EXPECT_TRUE(downloader.progress.value().isEmpty());
        EXPECT_FALSE(QFileInfo::exists(Config::modelsDir()));
    }
    EXPECT_TRUE(installed.isEmpty());
}

TEST_F(ModelDownloaderTest, AnAnswerWithoutAStatusCountsAsZero) {
    downloader.download(small());
    http.downloads[0].sink.reset();
    http.downloads[0].completion({});
    EXPECT_EQ(error(small()), QStringLiteral("Download failed (HTTP 0)"));
    EXPECT_TRUE(downloader.progress.value().isEmpty());
    EXPECT_TRUE(installed.isEmpty());
}

TEST_F(ModelDownloaderTest, TheBarGoesBeforeTheErrorComes) {
    QStringList order;
    const Subscription bars =
        downloader.progress.subscribe([&](const QMap<QString, double> &progress) {
            order.append(progress.isEmpty() ? QStringLiteral("no bar") : QStringLiteral("bar"));
        });
    const Subscription texts =
        downloader.errors.subscribe([&](const QMap<QString, QString> &errors) {
            order.append(errors.isEmpty() ? QStringLiteral("no error") : QStringLiteral("error"));
        });
    downloader.download(small());
    http.endDownload(0, 404);
    order.clear();
    downloader.download(small());
    EXPECT_EQ(order, (QStringList{QStringLiteral("no error"), QStringLiteral("bar")}));
    order.clear();
    http.endDownload(1, 404);
    EXPECT_EQ(order, (QStringList{QStringLiteral("no bar"), QStringLiteral("error")}));
}

TEST_F(ModelDownloaderTest, TransportErrorsAreShownInTheirOwnWords) {
    downloader.download(small());
    http.deliver(0, "half", 4, 8);
    http.failDownload(0, {QStringLiteral("net"), 1, QStringLiteral("The network is gone.")});
    EXPECT_EQ(error(small()), QStringLiteral("The network is gone."));
    EXPECT_TRUE(downloader.progress.value().isEmpty());
    EXPECT_TRUE(leftovers().isEmpty());
    EXPECT_EQ(contents(small().fileName), "(none)");
}

TEST_F(ModelDownloaderTest, AnUnknownLengthKeepsTheBarWhereItWas) {
    downloader.download(small());
    http.deliver(0, "ab", 2, -1);
    EXPECT_EQ(fraction(small()), 0.0);
    EXPECT_EQ(downloader.transfers.value().value(small().fileName),
              (ModelDownloader::Transfer{2, -1}));
    http.deliver(0, "", 2, 0);
    EXPECT_EQ(fraction(small()), 0.0);
    http.endDownload(0, 200);
    EXPECT_EQ(contents(small().fileName), "ab");
}

TEST_F(ModelDownloaderTest, TwoQuickStartsAreOneDownload) {
    int changes = -1; // the subscription itself tells once
    const Subscription subscription =
        downloader.progress.subscribe([&](const QMap<QString, double> &) { ++changes; });
    downloader.download(small());
    downloader.download(small());
    EXPECT_EQ(http.downloads.size(), 1u);
    EXPECT_EQ(changes, 1);
}

// Nothing at all: no request, no change, and an old error stays.
TEST_F(ModelDownloaderTest, AFileThatIsThereIsNotFetched) {
    downloader.download(small());
    http.endDownload(0, 500);
    put(small().fileName, "mine");
    int changes = -2;
    const Subscription one =
        downloader.progress.subscribe([&](const QMap<QString, double> &) { ++changes; });
    const Subscription two =
        downloader.errors.subscribe([&](const QMap<QString, QString> &) { ++changes; });
    downloader.download(small());
    EXPECT_EQ(http.downloads.size(), 1u);
    EXPECT_EQ(changes, 0);
    EXPECT_EQ(error(small()), QStringLiteral("Download failed (HTTP 500)"));
    EXPECT_EQ(contents(small().fileName), "mine");
}

TEST_F(ModelDownloaderTest, AFileThatAppearsMeanwhileIsReplaced) {
    downloader.download(small());
    http.deliver(0, "new", 3, 3);
    put(small().fileName, "old one");
    http.endDownload(0, 200);
    EXPECT_EQ(contents(small().fileName), "new");
    EXPECT_EQ(installed, QStringList{small().fileName});
}

TEST_F(ModelDownloaderTest, DownloadsAreIndependent) {
    const WhisperModel &base = WhisperModel::catalog().at(4);
    downloader.download(small());
    downloader.download(base);
    http.deliver(0, "s", 1, 2);
    http.deliver(1, "bbb", 3, 4);
    EXPECT_EQ(fraction(small()), 0.5);
    EXPECT_EQ(fraction(base), 0.75);
    http.endDownload(1, 404);
    EXPECT_EQ(error(base), QStringLiteral("Download failed (HTTP 404)"));
    EXPECT_EQ(fraction(small()), 0.5);
    http.deliver(0, "s", 2, 2);
    http.endDownload(0, 200);
    EXPECT_EQ(contents(small().fileName), "ss");
    EXPECT_EQ(installed, QStringList{small().fileName});
    EXPECT_TRUE(leftovers().isEmpty());
}

TEST_F(ModelDownloaderTest, TheCallbackMayStartTheNextDownload) {
    downloader.onModelInstalled = [&](const WhisperModel &) {
        downloader.download(WhisperModel::compact());
    };
    downloader.download(small());
    http.endDownload(0, 200);
    EXPECT_EQ(http.downloads.size(), 2u);
    EXPECT_EQ(fraction(WhisperModel::compact()), 0.0);
}

TEST_F(ModelDownloaderTest, NobodyNeedsToListen) {
    downloader.onModelInstalled = nullptr;
    downloader.download(small());
    http.endDownload(0, 200);
    EXPECT_TRUE(QFileInfo::exists(modelPath(small().fileName)));
}

TEST_F(ModelDownloaderTest, ADirectoryAtTheDestinationIsAnError) {
    QDir().mkpath(modelPath(small().fileName));
    downloader.download(small());
    ASSERT_EQ(http.downloads.size(), 1u);
    http.deliver(0, "ab", 2, 2);
    EXPECT_FALSE(error(small()).isEmpty());
    EXPECT_TRUE(downloader.progress.value().isEmpty());
    EXPECT_TRUE(QFileInfo(modelPath(small().fileName)).isDir());
    EXPECT_TRUE(leftovers().isEmpty());
    EXPECT_TRUE(installed.isEmpty());
}

TEST_F(ModelDownloaderTest, AFolderThatCannotBeMadeIsAnError) {
    QDir().mkpath(Config::dataFolder());
    QFile obstacle(Config::modelsDir());
    ASSERT_TRUE(obstacle.open(QIODevice::WriteOnly));
    downloader.download(small());
    http.deliver(0, "ab", 2, 2);
    EXPECT_FALSE(error(small()).isEmpty());
    EXPECT_TRUE(downloader.progress.value().isEmpty());
    EXPECT_TRUE(leftovers().isEmpty());
}

TEST(ModelDownloaderStartTest, RemovesWhatAKilledProgramLeft) {
    put(QStringLiteral(".ggml-small.bin.0123abcd.part"), "half a model");
    FakeHttpClient http;
    const ModelDownloader downloader(http);
    QThreadPool::globalInstance()->waitForDone();
    EXPECT_TRUE(leftovers().isEmpty());
    EXPECT_TRUE(http.downloads.empty());
}

// A file that is just being made is not locked yet, and could be taken for an abandoned one.
TEST(ModelDownloaderStartTest, LooksForWhatWasLeftBeforeItsOwnDownloads) {
    FakeHttpClient http;
    const ModelDownloader downloader(http);
    put(QStringLiteral(".ggml-small.bin.0123abcd.part"), "being made");
    QThreadPool::globalInstance()->waitForDone();
    EXPECT_EQ(leftovers().size(), 1);
}

TEST(ModelDownloaderStartTest, TheBuildNamesTheModelRepository) {
    FakeHttpClient http;
    ModelDownloader downloader(http);
    downloader.download(small());
    ASSERT_EQ(http.downloads.size(), 1u);
    EXPECT_EQ(http.downloads[0].request.url,
              QUrl(QStringLiteral("https://huggingface.co/ggerganov/whisper.cpp/resolve/main/"
                                  "ggml-small.bin")));
    EXPECT_TRUE(kModelPageUrl.endsWith(QStringLiteral("/tree/main")));
    QThreadPool::globalInstance()->waitForDone();
}

TEST(ModelDownloaderDeathTest, ABuildWithoutAModelAddressEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto download = [] {
        qInstallMessageHandler(nullptr); // the tests' own would keep the last words to itself
        FakeHttpClient http;
        ModelDownloader(http, QStringLiteral("https://[")).download(small());
    };
    EXPECT_DEATH(download(), "model address is not a URL");
}

// --- With the real client and a real server
// ---------------------------------------------------------------

namespace {

class RealDownloadTest : public testing::Test {
protected:
    ~RealDownloadTest() override { QThreadPool::globalInstance()->waitForDone(); }
    // Downloads the small model and waits for the end.
    void run() {
        downloader.download(small());
        EXPECT_TRUE(waitFor([&] { return downloader.progress.value().isEmpty(); }));
        EXPECT_TRUE(leftovers().isEmpty());
    }
    QString error() const { return downloader.errors.value().value(small().fileName); }

    TestHttpServer server;
    NetworkHttpClient http;
    ModelDownloader downloader{http, server.url(QStringLiteral("/resolve/main/")).toString()};
};

} // namespace

TEST_F(RealDownloadTest, ByWayOfARedirectToAnotherHost) {
    const QByteArray model(5'000'000, 'm');
    TestHttpServer store;
    store.answer(200, model);
    server.answer(302, {}, "Location: " + store.url(QStringLiteral("/blob")).toEncoded() + "\r\n");
    run();
    EXPECT_EQ(error(), QString());
    ASSERT_EQ(server.requests.size(), 1u);
    EXPECT_EQ(server.requests[0].target, "/resolve/main/ggml-small.bin");
    EXPECT_TRUE(contents(small().fileName) == model);
}

TEST_F(RealDownloadTest, A404LeavesNoFile) {
    server.answer(404, "Entry not found");
    run();
    EXPECT_EQ(error(), QStringLiteral("Download failed (HTTP 404)"));
    EXPECT_FALSE(QFileInfo::exists(modelPath(small().fileName)));
}

TEST_F(RealDownloadTest, ABodyThatEndsShortLeavesNoFile) {
    server.answerRaw("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" +
                     QByteArray(999'999, 'm'));
    run();
    EXPECT_FALSE(error().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(modelPath(small().fileName)));
    server.answer(200, "whole");
    run();
    EXPECT_EQ(error(), QString());
    EXPECT_EQ(contents(small().fileName), "whole");
}

TEST_F(RealDownloadTest, NoServerLeavesNoFile) {
    server.close();
    run();
    EXPECT_FALSE(error().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(Config::modelsDir()));
}

TEST_F(RealDownloadTest, ADirectoryAtTheDestinationIsAnError) {
    QDir().mkpath(modelPath(small().fileName));
    server.answer(200, QByteArray(3'000'000, 'm'));
    run();
    EXPECT_FALSE(error().isEmpty());
    EXPECT_TRUE(QFileInfo(modelPath(small().fileName)).isDir());
}
