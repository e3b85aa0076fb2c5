#pragma once
// Texts measured and cut in the characters that a person counts (grapheme clusters), so that Hindi,
// Thai and emoji stay whole. Any thread.

#include <QString>

namespace quenda {

/// The number of user-perceived characters.
qsizetype graphemeCount(const QString &text);

/// The first `count` user-perceived characters; all of a shorter text.
QString firstGraphemes(const QString &text, qsizetype count);

} // namespace quenda
