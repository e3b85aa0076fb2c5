#include "Fakes/FakeHttpClient.h"

#include <QObject>

#include <utility>

namespace quenda::fakes {

void FakeHttpClient::send(const HttpRequest &request, const QObject *context,
                          Completion completion) {
    exchanges.push_back({request, false, context, std::move(completion)});
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
