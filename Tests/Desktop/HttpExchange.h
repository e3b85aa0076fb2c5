#pragma once
// The little of HTTP/1.1 that a recogniser's server needs, on one accepted socket: requests with a
// Content-Length, answers with one, keep-alive. Owned by the thread that serves the connection.

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace quenda::desktop {

struct HttpRequest {
    std::string method;
    std::string path;                           ///< without the query
    std::map<std::string, std::string> headers; ///< names in lower case
    std::string body;
    bool keepAlive = true;

    /// The header's value, empty if it was not sent.
    std::string header(const std::string &name) const;
};

struct HttpAnswer {
    int status = 200;
    std::string type = "application/json";
    std::string body;
};

class HttpConnection {
public:
    explicit HttpConnection(int socket); ///< takes the socket over and closes it at the end
    ~HttpConnection();
    HttpConnection(const HttpConnection &) = delete;
    HttpConnection &operator=(const HttpConnection &) = delete;

    /// The next request; nothing if the peer closed, was silent for five seconds or sent what this
    /// server does not take (it has then been answered with the error).
    std::optional<HttpRequest> read();
    /// False if the peer is gone.
    bool answer(const HttpRequest &request, const HttpAnswer &answer);
    /// False once the peer has closed its side.
    bool peerIsThere() const;

private:
    bool receive();
    bool send(std::string_view bytes);
    void refuse(int status);

    int m_socket;
    std::string m_pending;
};

/// The fields of a multipart/form-data body by name; nothing if it is not well formed. File names
/// and part types are not looked at.
std::optional<std::map<std::string, std::string>> multipartFields(const HttpRequest &request);

} // namespace quenda::desktop
