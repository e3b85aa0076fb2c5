#pragma once
// What the tests of the HTTP client share: a client, a server to ask, and an exchange in one call.

#include "Fakes/TestHttpServer.h"
#include "Quenda/HttpRules.h"
#include "Quenda/NetworkHttpClient.h"

#include <gtest/gtest.h>

namespace quenda {

class HttpClientFixture : public testing::Test {
protected:
    using TestHttpServer = fakes::TestHttpServer;

    static HttpRequest get(const QUrl &url) {
        HttpRequest request;
        request.url = url;
        request.timeout = std::chrono::seconds(5);
        return request;
    }

    /// A request with a key and a body.
    static HttpRequest post(const QUrl &url, const QByteArray &body = "body") {
        HttpRequest request = get(url);
        request.method = "POST";
        request.headers = {{"Authorization", "Bearer secret"}, {"Content-Type", "text/plain"}};
        request.body = body;
        return request;
    }

    /// Sends and waits for the one answer.
    HttpResponse exchange(const HttpRequest &request) {
        std::optional<HttpResponse> answer;
        int calls = 0;
        client.send(request, &context, [&](const HttpResponse &response) {
            ++calls;
            answer = response;
        });
        EXPECT_EQ(calls, 0) << "the completion comes later";
        EXPECT_TRUE(fakes::waitFor([&] { return answer.has_value(); }));
        fakes::turnFor(std::chrono::milliseconds(2));
        EXPECT_EQ(calls, 1);
        return answer.value_or(HttpResponse{});
    }

    static void expectError(const std::optional<Error> &error, HttpError code) {
        ASSERT_TRUE(error);
        EXPECT_EQ(error->domain, kHttpErrorDomain);
        EXPECT_EQ(error->code, int(code)) << qPrintable(error->localizedDescription);
        EXPECT_FALSE(error->localizedDescription.isEmpty());
    }

    TestHttpServer server;
    QObject context;
    NetworkHttpClient client;
};

} // namespace quenda
