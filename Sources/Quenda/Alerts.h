#pragma once
// Warning alerts with one default button. They do not block: the event loop, its timers and a
// running dictation go on behind them. Main thread only.

class QString;

namespace quenda {

class Workspace;

/// Brings the program to the front and shows a modal warning.
void showAlert(Workspace &workspace, const QString &title, const QString &text);

} // namespace quenda
