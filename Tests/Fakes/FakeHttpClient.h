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

    void send(const HttpRequest &request, const QObject *context, Completion completion) override;

    std::vector<Exchange> exchanges;
    /// The oldest exchange that waits for an answer; null where there is none.
    Exchange *oldestOpen();
    void answer(int status, const QByteArray &body = {});
    void fail(const Error &error);

private:
    void finish(const HttpResponse &response);
};

} // namespace quenda::fakes
