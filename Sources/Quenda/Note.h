#pragma once
// The labels for explanations and failures in the windows. Main thread only.

#include <QString>

class QLabel;
class QWidget;

namespace quenda {

enum class NoteTone {
    muted,   ///< explains
    failure, ///< says what went wrong
};

/// A small, wrapped label whose colour stays readable in light and dark: at least 4.5 to 1 against
/// what is behind it.
QLabel *makeNote(const QString &text, QWidget *parent, NoteTone tone = NoteTone::muted);

} // namespace quenda
