#pragma once
// Text from outside as a menu entry's title. Any thread.

#include <QString>

namespace quenda {

/// A menu reads "&" as the mark of a mnemonic and a tab as the start of a shortcut; this keeps both
/// from being read so.
inline QString menuText(QString text) {
    text.replace(QLatin1Char('&'), QStringLiteral("&&"));
    text.replace(QLatin1Char('\t'), QLatin1Char(' '));
    return text;
}

} // namespace quenda
