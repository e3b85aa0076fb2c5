#pragma once
// Turns a window into a floating panel that never activates the program. Main thread only.

namespace quenda::mac {

/// `nativeView`: the window's content view, an NSView, as Qt's window identifier gives it.
void makeFloatingPanel(void *nativeView);

} // namespace quenda::mac
