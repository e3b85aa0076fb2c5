#pragma once
// The selection that terminals of the xterm family paste from, beside the clipboard. Implemented
// by the pasteboard, used by the key poster; it must outlive its user. Main thread only.

namespace quenda {

class PrimarySelection {
public:
    PrimarySelection() = default;
    PrimarySelection(const PrimarySelection &) = delete;
    PrimarySelection &operator=(const PrimarySelection &) = delete;
    virtual ~PrimarySelection() = default;

    /// Becomes the owner of PRIMARY with the plain text that our ownership of the clipboard holds
    /// now. In effect when the call returns. False where we do not own the clipboard, it holds no
    /// plain text, or the X server refuses; PRIMARY keeps its owner then.
    virtual bool mirrorClipboardText() = 0;
};

} // namespace quenda
