#pragma once
// One request from its first hop to the end of its answer. Made by the HTTP client; deletes itself
// when the exchange is over or the one who asked is gone. Main thread only.

#include "Quenda/HttpBody.h"
#include "Quenda/HttpClient.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QTimer>

class QNetworkReply;

namespace quenda {

class HttpConnector;

class HttpExchange final : public QObject {
public:
    /// `done` gets the answer and, where there is one, the error that ended the exchange.
    using Done = std::function<void(const HttpResponse &)>;

    HttpExchange(HttpConnector &connector, HttpRequest request, std::unique_ptr<HttpBody> body,
                 const QObject *context, Done done, QObject *parent);
    ~HttpExchange() override;

    /// Begins in the next round of the event loop.
    void start();

private:
    void startHop();
    void sendHop();
    void headArrived();
    void bytesArrived();
    void replyFinished();
    void redirect(int status, const QUrl &target);
    void checkTime();
    void touch() { m_sinceActivity.start(); }
    void fail(const Error &error);
    void finish(bool complete, const Failure &failure);
    void dropReply();
    Failure replyFailure() const;

    HttpConnector &m_connector;
    HttpRequest m_request;
    std::unique_ptr<HttpBody> m_body;
    QPointer<const QObject> m_context;
    Done m_done;
    QNetworkReply *m_reply = nullptr;
    QTimer m_timer;
    QElapsedTimer m_sinceActivity;
    QElapsedTimer m_sinceStart;
    QString m_tlsProblem;
    std::optional<int> m_status;
    qint64 m_announced = -1;
    qint64 m_received = 0;
    int m_redirects = 0;
    bool m_begun = false;    ///< the body has been told of the answer
    bool m_finished = false; ///< the reply has nothing more to give than what it holds
    bool m_over = false;
};

} // namespace quenda
