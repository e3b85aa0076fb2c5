#include "Fakes/FakeHttpClient.h"

#include <QObject>

#include <utility>

namespace quenda::fakes {

void FakeHttpClient::send(const HttpRequest &request, const QObject *context,
                          Completion completion) {
    exchanges.push_back({request, false, context, std::move(completion)});
}

void FakeHttpClient::download(const HttpRequest &request, std::unique_ptr<DownloadSink> sink,
                              const QObject *context, DownloadProgress progress,
                              DownloadCompletion completion) {
    downloads.push_back({request, false, std::move(sink), context, std::move(progress),
                         std::move(completion), false});
}

void FakeHttpClient::finishDownload(Download &download, const HttpDownload &result) {
    download.ended = true;
    download.sink.reset();
    const DownloadCompletion completion = std::exchange(download.completion, {});
    if (download.context && completion)
        completion(result);
}

void FakeHttpClient::deliver(std::size_t index, const QByteArray &bytes, qint64 received,
                             qint64 total) {
    Download &download = downloads.at(index);
    Failure failure;
    if (!std::exchange(download.opened, true))
        failure = download.sink->open();
    if (!failure)
        failure = download.sink->write(bytes);
    if (failure)
        finishDownload(download, {200, failure});
    else if (download.context && download.progress)
        download.progress(received, total);
}

void FakeHttpClient::endDownload(std::size_t index, int status) {
    Download &download = downloads.at(index);
    Failure failure;
    if (status == 200) {
        if (!std::exchange(download.opened, true))
            failure = download.sink->open();
        if (!failure)
            failure = download.sink->finish();
    }
    finishDownload(download, {status, failure});
}

void FakeHttpClient::failDownload(std::size_t index, const Error &error) {
    finishDownload(downloads.at(index), {std::nullopt, error});
}

FakeHttpClient::Exchange *FakeHttpClient::oldestOpen() {
    for (Exchange &exchange : exchanges) {
        if (!exchange.answered)
            return &exchange;
    }
    return nullptr;
}

void FakeHttpClient::finish(const HttpResponse &response) {
    Exchange *exchange = oldestOpen();
    if (!exchange)
        return;
    exchange->answered = true;
    const Completion completion = std::exchange(exchange->completion, {});
    if (exchange->context && completion)
        completion(response);
}

void FakeHttpClient::answer(int status, const QByteArray &body) {
    finish({status, body, std::nullopt});
}

void FakeHttpClient::fail(const Error &error) {
    finish({std::nullopt, {}, error});
}

} // namespace quenda::fakes
