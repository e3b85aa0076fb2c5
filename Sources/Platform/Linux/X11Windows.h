#pragma once
// What Qt does not do with the program's windows on X11. Every function does nothing where the
// program does not talk to an X server. Main thread only.

class QWindow;

namespace quenda::x11 {

/// Tells compositors and pagers that `window` is a notification above all, on every workspace, and
/// nothing to list or to switch to.
void markAsFloating(QWindow *window);

/// Outside of round corners of `radius` (device-independent pixels) `window` takes no clicks and,
/// if `visibly`, is not there at all.
void cutCorners(QWindow *window, int radius, bool visibly);

/// Asks the window manager to activate `window` on a person's behalf, which focus-stealing
/// prevention lets pass: the person's key press or click went to another program.
void activate(QWindow *window);

/// The screen that $DISPLAY names, as 1 in ":0.1"; 0 where it names none.
int screenNumber();

} // namespace quenda::x11
