#pragma once
// Records requests and answers them when a test says so.

#include "Quenda/HttpClient.h"

#include <QPointer>

#include <vector>

namespace quenda::fakes {

class FakeHttpClient final : public HttpClient {
public:
    struct Exchange {
        HttpRequest request;
        bool answered = false;
        QPointer<const QObject> context;
        Completion completion;
    };

    struct Download {
        HttpRequest request;
        bool ended = false;
        std::unique_ptr<DownloadSink> sink; ///< until the download has ended
        QPointer<const QObject> context;
        DownloadProgress progress;
        DownloadCompletion completion;
        bool opened = false; ///< the sink was
    };

    void send(const HttpRequest &request, const QObject *context, Completion completion) override;
    void download(const HttpRequest &request, std::unique_ptr<DownloadSink> sink,
                  const QObject *context, DownloadProgress progress,
                  DownloadCompletion completion) override;

    std::vector<Exchange> exchanges;
    /// The oldest exchange that waits for an answer; null where there is none.
    Exchange *oldestOpen();
    void answer(int status, const QByteArray &body = {});
    void fail(const Error &error);

    /// Downloads in the order of their start; the sinks are fed on the calling thread.
    std::vector<Download> downloads;
    /// Bytes of a 200 answer arrive; `total` is its announced length, -1 for none.
    void deliver(std::size_t download, const QByteArray &bytes, qint64 received, qint64 total);
    /// The whole answer has arrived. With 200, the sink is finished.
    void endDownload(std::size_t download, int status);
    void failDownload(std::size_t download, const Error &error);

private:
    void finish(const HttpResponse &response);
    void finishDownload(Download &download, const HttpDownload &result);
};

} // namespace quenda::fakes
