#pragma once
// Finds controls the way an assistive technology does: by their accessible name or their text.

#include <QAbstractButton>
#include <QLabel>
#include <QWidget>

namespace quenda::fakes {

/// The control of type T with that accessible name; null where there is none.
template <typename T>
T *control(const QWidget &root, const QString &name) {
    for (T *found : root.findChildren<T *>()) {
        if (found->accessibleName() == name)
            return found;
    }
    return nullptr;
}

/// The buttons with that text that are visible to a user who scrolls there.
inline QList<QAbstractButton *> buttons(const QWidget &root, const QString &text) {
    QList<QAbstractButton *> found;
    for (QAbstractButton *button : root.findChildren<QAbstractButton *>()) {
        if (button->text() == text && button->isVisibleTo(&root))
            found.append(button);
    }
    return found;
}

/// Whether a visible label reads exactly `text`.
inline bool reads(const QWidget &root, const QString &text) {
    for (const QLabel *label : root.findChildren<QLabel *>()) {
        if (label->text() == text && label->isVisibleTo(&root))
            return true;
    }
    return false;
}

} // namespace quenda::fakes
