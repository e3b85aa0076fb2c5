#pragma once
// Asks the system which proxy a URL wants. The answer may take seconds (the system may have to
// fetch and run a configuration script), so the question is asked on a thread of its own.
// Owned by the HTTP client. Main thread only.

#include "Quenda/Mailbox.h"

#include <QList>
#include <QNetworkProxy>
#include <QUrl>

#include <functional>

namespace quenda {

class ProxyResolver {
public:
    using Answer = std::function<void(const QList<QNetworkProxy> &)>;

    /// Calls `answer` later, on the main thread, unless the resolver is gone by then.
    void resolve(const QUrl &url, Answer answer);

    /// Whether `url` names this machine's loopback interface, which no proxy leads to.
    static bool isLoopback(const QUrl &url);

private:
    Mailbox m_mailbox;
};

} // namespace quenda
