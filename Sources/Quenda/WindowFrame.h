#pragma once
// How the program's windows look from outside: a title bar with a close button only, a fixed size,
// centred when made, brought to the front when asked for. Main thread only.

#include <QSize>

class QString;
class QWidget;

namespace quenda {

/// Makes `window` a top-level window that closing only hides. `content`: its size in
/// device-independent pixels, at most what the screen has room for; an empty one keeps
/// the window's fixed width and follows the height of its layout.
void frameWindow(QWidget &window, const QString &title, QSize content = {});

/// Shows the window, or brings it back to the front, as the active one.
void presentWindow(QWidget &window);

} // namespace quenda
