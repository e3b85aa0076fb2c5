#pragma once
// The X11 PRIMARY selection, which terminals paste on Shift+Insert. Main thread only.

namespace quenda {

class PrimarySelection {
public:
    virtual ~PrimarySelection() = default;
    /// Makes PRIMARY hold the plain text that the clipboard holds now, as long as it does.
    /// In effect when the call returns. False where the clipboard holds no text of ours or the
    /// system refuses.
    virtual bool mirrorClipboardText() = 0;
};

} // namespace quenda
