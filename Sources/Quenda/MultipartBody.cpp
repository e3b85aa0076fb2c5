#include "Quenda/MultipartBody.h"

#include <QUuid>

#include <algorithm>
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
                            const QByteArray &contentType, const QByteArray &data) {
    Q_ASSERT(fitsInAHeader(name) && fitsInAHeader(fileName) && fitsInAHeader(contentType));
    add({"Content-Disposition: form-data; name=\"" + name + "\"; filename=\"" + fileName +
             "\"\r\nContent-Type: " + contentType + "\r\n",
         data});
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

QByteArray MultipartBody::finish() {
    const QByteArray delimiter = "--" + m_boundary;
    qsizetype size = delimiter.size() + 4;
    for (const Part &part : m_parts)
        size += delimiter.size() + part.headers.size() + part.content.size() + 6;

    QByteArray body;
    body.reserve(size);
    for (const Part &part : std::exchange(m_parts, {})) {
        body += delimiter;
        body += "\r\n";
        body += part.headers;
        body += "\r\n";
        body += part.content;
        body += "\r\n";
    }
    body += delimiter;
    body += "--\r\n";
    return body;
}

} // namespace quenda
