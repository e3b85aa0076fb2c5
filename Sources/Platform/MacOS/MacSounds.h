#pragma once
// The system's named sounds and its alert sound. Main thread only.

#include <string>

namespace quenda::mac {

/// Plays the named system sound; a name without a sound plays nothing. UTF-8.
void playSound(const std::string &name);
void beep();

} // namespace quenda::mac
