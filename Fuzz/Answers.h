#pragma once
// The sound answer of a recogniser, put together without the JSON library that reads it.

#include <QByteArray>
#include <QString>

namespace quenda::fuzz {

inline QByteArray answerWith(const QString &text) {
    QByteArray answer = "{\"task\": [1, {\"text\": 2}], \"text\": \"";
    for (const QChar c : text)
        answer += "\\u" + QByteArray::number(c.unicode(), 16).rightJustified(4, '0');
    return answer + "\"}\n";
}

} // namespace quenda::fuzz
