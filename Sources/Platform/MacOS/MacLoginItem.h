#pragma once
// Launch at login as the main application's service. Main thread only.

namespace quenda::mac {

bool isLoginItemEnabled();
/// False where the system refuses the change.
bool setLoginItemEnabled(bool enabled);

} // namespace quenda::mac
