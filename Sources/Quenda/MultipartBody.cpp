#include "Quenda/MultipartBody.h"

#include <QUuid>

#include <algorithm>
#include <cstring>
#include <utility>

namespace quenda {

namespace {

QByteArray randomBoundary() {
    return "quenda-" + QUuid::createUuid().toByteArray(QUuid::WithoutBraces).toUpper();
}

bool fitsInAHeader(const QByteArray &text) {
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return c == '"' || c == '\r' || c == '\n'; });
}

bool contains(const QByteArray &header, const QByteArray &content, const QByteArray &boundary) {
    return header.contains(boundary) || content.contains(boundary);
}

} // namespace

MultipartBody::MultipartBody() : MultipartBody(randomBoundary) {}

MultipartBody::MultipartBody(BoundarySource source)
    : m_source(std::move(source)),
      m_boundary(m_source()) {}

void MultipartBody::addField(const QByteArray &name, const QString &value) {
    Q_ASSERT(fitsInAHeader(name));
    add({"Content-Disposition: form-data; name=\"" + name + "\"\r\n", value.toUtf8()});
}

void MultipartBody::addFile(const QByteArray &name, const QByteArray &fileName,
                            const QByteArray &contentType, QByteArray data) {
    Q_ASSERT(fitsInAHeader(name) && fitsInAHeader(fileName) && fitsInAHeader(contentType));
    add({"Content-Disposition: form-data; name=\"" + name + "\"; filename=\"" + fileName +
             "\"\r\nContent-Type: " + contentType + "\r\n",
         std::move(data)});
}

void MultipartBody::add(Part part) {
    const bool taken = contains(part.headers, part.content, m_boundary);
    m_parts.push_back(std::move(part));
    if (!taken)
        return;
    do {
        m_boundary = m_source();
    } while (occursInParts(m_boundary));
}

bool MultipartBody::occursInParts(const QByteArray &boundary) const {
    return std::any_of(m_parts.begin(), m_parts.end(), [&](const Part &part) {
        return contains(part.headers, part.content, boundary);
    });
}

QByteArray MultipartBody::contentType() const {
    return "multipart/form-data; boundary=" + m_boundary;
}

// The last part is the long one, the recording. The body is built around it where it lies: two
// copies of an hour of sound would be a hundred megabytes too many.
QByteArray MultipartBody::finish() {
    const QByteArray delimiter = "--" + m_boundary;
    const QByteArray end = delimiter + "--\r\n";
    std::vector<Part> parts = std::exchange(m_parts, {});
    if (parts.empty())
        return end;
    QByteArray before;
    for (const Part &part : parts) {
        before += delimiter + "\r\n" + part.headers + "\r\n";
        if (&part != &parts.back())
            before += part.content + "\r\n";
    }
    QByteArray body = std::move(parts.back().content);
    const qsizetype length = body.size();
    body.resize(before.size() + length + 2 + end.size());
    char *bytes = body.data();
    std::memmove(bytes + before.size(), bytes, size_t(length));
    std::memcpy(bytes, before.constData(), size_t(before.size()));
    bytes += before.size() + length;
    std::memcpy(bytes, "\r\n", 2);
    std::memcpy(bytes + 2, end.constData(), size_t(end.size()));
    return body;
}

} // namespace quenda
