#include "HttpExchange.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

namespace quenda::desktop {
namespace {

constexpr std::size_t headLimit = std::size_t{16} * 1024;
constexpr std::size_t bodyLimit = std::size_t{256} * 1024 * 1024;
constexpr int silenceMilliseconds = 5000;

std::string lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string_view reason(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 404:
        return "Not Found";
    case 411:
        return "Length Required";
    case 413:
        return "Payload Too Large";
    case 431:
        return "Request Header Fields Too Large";
    default:
        return "Internal Server Error";
    }
}

/// Request line and header lines, without the empty line that ends them.
std::optional<HttpRequest> parseHead(std::string_view head) {
    const auto lineEnd = std::min(head.find("\r\n"), head.size());
    const std::string_view line = head.substr(0, lineEnd);
    const auto methodEnd = line.find(' ');
    const auto targetEnd = line.rfind(' ');
    if (methodEnd == std::string_view::npos || targetEnd <= methodEnd ||
        line.substr(targetEnd + 1).substr(0, 7) != "HTTP/1.")
        return std::nullopt;
    HttpRequest request;
    request.method = line.substr(0, methodEnd);
    const std::string_view target = line.substr(methodEnd + 1, targetEnd - methodEnd - 1);
    request.path = target.substr(0, target.find('?'));
    request.keepAlive = line.substr(targetEnd + 1) == "HTTP/1.1";
    for (std::size_t at = lineEnd + 2; at < head.size();) {
        const auto end = std::min(head.find("\r\n", at), head.size());
        const std::string_view field = head.substr(at, end - at);
        const auto colon = field.find(':');
        if (colon == std::string_view::npos)
            return std::nullopt;
        request.headers[lower(field.substr(0, colon))] = trimmed(field.substr(colon + 1));
        at = end + 2;
    }
    if (lower(request.header("connection")) == "close")
        request.keepAlive = false;
    return request;
}

/// The value of `name="…"` in a Content-Disposition line.
std::string quotedParameter(std::string_view head, std::string_view name) {
    const std::string start = " " + std::string(name) + "=\"";
    const auto at = head.find(start);
    if (at == std::string_view::npos)
        return {};
    const auto from = at + start.size();
    const auto end = head.find('"', from);
    return end == std::string_view::npos ? std::string()
                                         : std::string(head.substr(from, end - from));
}

} // namespace

std::string HttpRequest::header(const std::string &name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
}

HttpConnection::HttpConnection(int socket) : m_socket(socket) {
    const int on = 1;
    setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

HttpConnection::~HttpConnection() {
    close(m_socket);
}

bool HttpConnection::receive() {
    pollfd waiting{m_socket, POLLIN, 0};
    if (poll(&waiting, 1, silenceMilliseconds) <= 0)
        return false;
    std::array<char, 65536> buffer;
    const ssize_t count = recv(m_socket, buffer.data(), buffer.size(), 0);
    if (count <= 0)
        return false;
    m_pending.append(buffer.data(), static_cast<std::size_t>(count));
    return true;
}

bool HttpConnection::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void HttpConnection::refuse(int status) {
    HttpRequest last;
    last.keepAlive = false;
    answer(last, {status, "text/plain", std::string(reason(status))});
}

std::optional<HttpRequest> HttpConnection::read() {
    std::size_t headEnd = m_pending.find("\r\n\r\n");
    while (headEnd == std::string::npos) {
        if (m_pending.size() > headLimit) {
            refuse(431);
            return std::nullopt;
        }
        if (!receive())
            return std::nullopt;
        headEnd = m_pending.find("\r\n\r\n");
    }
    auto request = parseHead(std::string_view(m_pending).substr(0, headEnd));
    m_pending.erase(0, headEnd + 4);
    if (!request) {
        refuse(400);
        return std::nullopt;
    }
    std::size_t length = 0;
    if (const std::string given = request->header("content-length"); !given.empty()) {
        const char *end = given.data() + given.size();
        const auto [stop, error] = std::from_chars(given.data(), end, length);
        if (error != std::errc() || stop != end || length > bodyLimit) {
            refuse(error == std::errc() && stop == end ? 413 : 400);
            return std::nullopt;
        }
    } else if (request->method == "POST") {
        refuse(411);
        return std::nullopt;
    }
    if (lower(request->header("expect")) == "100-continue" && m_pending.size() < length &&
        !send("HTTP/1.1 100 Continue\r\n\r\n"))
        return std::nullopt;
    while (m_pending.size() < length) {
        if (!receive())
            return std::nullopt;
    }
    request->body = m_pending.substr(0, length);
    m_pending.erase(0, length);
    return request;
}

bool HttpConnection::answer(const HttpRequest &request, const HttpAnswer &answer) {
    std::string message = "HTTP/1.1 " + std::to_string(answer.status) + " ";
    message += reason(answer.status);
    message += "\r\nAccess-Control-Allow-Origin: *\r\nContent-Type: " + answer.type +
               "\r\nContent-Length: " + std::to_string(answer.body.size()) +
               (request.keepAlive ? "\r\n\r\n" : "\r\nConnection: close\r\n\r\n");
    if (request.method != "HEAD")
        message += answer.body;
    return send(message);
}

bool HttpConnection::peerIsThere() const {
    char byte = 0;
    const ssize_t count = recv(m_socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK));
}

std::optional<std::map<std::string, std::string>> multipartFields(const HttpRequest &request) {
    const std::string type = request.header("content-type");
    const auto marker = type.find("boundary=");
    if (lower(type).rfind("multipart/form-data", 0) != 0 || marker == std::string::npos)
        return std::nullopt;
    std::string boundary = type.substr(marker + 9);
    boundary = boundary.substr(0, boundary.find(';'));
    if (boundary.size() >= 2 && boundary.front() == '"' && boundary.back() == '"')
        boundary = boundary.substr(1, boundary.size() - 2);
    if (boundary.empty() || boundary.size() > 70)
        return std::nullopt;

    const std::string delimiter = "--" + boundary;
    std::string_view rest = request.body;
    if (rest.substr(0, delimiter.size()) != delimiter)
        return std::nullopt;
    rest.remove_prefix(delimiter.size());
    std::map<std::string, std::string> fields;
    while (rest.substr(0, 2) == "\r\n") {
        const auto headEnd = rest.find("\r\n\r\n");
        if (headEnd == std::string_view::npos)
            return std::nullopt;
        const std::string_view head = rest.substr(2, headEnd - 2);
        rest.remove_prefix(headEnd + 4);
        const auto end = rest.find("\r\n" + delimiter);
        if (end == std::string_view::npos)
            return std::nullopt;
        fields[quotedParameter(head, "name")] = rest.substr(0, end);
        rest.remove_prefix(end + 2 + delimiter.size());
    }
    if (rest.substr(0, 2) != "--")
        return std::nullopt;
    return fields;
}

} // namespace quenda::desktop
