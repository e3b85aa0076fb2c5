#pragma once
// Reads a multipart/form-data body as a server does (RFC 7578, RFC 2046), for comparison with what
// was put in.

#include "FuzzTarget.h"

#include <QByteArray>

#include <vector>

namespace quenda::fuzz {

struct FormPart {
    QByteArray disposition; ///< what follows "form-data; "
    QByteArray content;

    bool operator==(const FormPart &) const = default;
};

inline std::vector<FormPart> formParts(const QByteArray &body, const QByteArray &boundary) {
    const QByteArray delimiter = "\r\n--" + boundary;
    const QByteArray whole = "\r\n" + body; // the first delimiter may stand at the very start
    PROMISE(whole.startsWith(delimiter));
    std::vector<FormPart> parts;
    qsizetype at = delimiter.size();
    while (!QByteArrayView(whole).sliced(at).startsWith("--")) {
        PROMISE(QByteArrayView(whole).sliced(at).startsWith("\r\n"));
        const qsizetype next = whole.indexOf(delimiter, at);
        const qsizetype blank = whole.indexOf("\r\n\r\n", at);
        PROMISE(next >= 0 && blank >= 0 && blank + 4 <= next);
        const QByteArray headers = whole.mid(at + 2, blank - at - 2);
        const QByteArray start("Content-Disposition: form-data; ");
        PROMISE(headers.startsWith(start));
        const QByteArray disposition = headers.mid(start.size());
        const qsizetype lineEnd = disposition.indexOf("\r\n");
        parts.push_back({lineEnd < 0 ? disposition : disposition.first(lineEnd),
                         whole.mid(blank + 4, next - blank - 4)});
        at = next + delimiter.size();
    }
    PROMISE(whole.mid(at) == "--\r\n");
    return parts;
}

} // namespace quenda::fuzz
