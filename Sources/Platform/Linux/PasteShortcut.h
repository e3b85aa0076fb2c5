#pragma once
// What a program takes for "paste", told by its window's class. Pure.

#include <QByteArray>

namespace quenda {

enum class PasteShortcut {
    ControlV,
    ControlShiftV, ///< terminals that keep Control-V for what runs inside them
    ShiftInsert,   ///< terminals that paste the PRIMARY selection
};

/// `windowClass`: the WM_CLASS property, instance and class each ended by a zero byte. Any other
/// bytes, and programs that nothing is known of, give Control-V.
PasteShortcut pasteShortcutFor(const QByteArray &windowClass);

} // namespace quenda
