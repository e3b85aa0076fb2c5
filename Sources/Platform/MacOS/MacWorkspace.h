#pragma once
// Opening addresses, the activation of the program, repair tools and the relaunch. UTF-8.
// Main thread only.

#include <string>
#include <vector>

namespace quenda::mac {

/// The program has no Dock icon and no application menu.
void setActivationPolicyAccessory();
void activateProgram();
/// Opens an encoded URL with its default handler; false where it is none or has no handler.
bool openUrl(const std::string &url);
/// Runs a program and waits until it has ended; false where it could not be launched.
bool runAndWait(const std::string &executable, const std::vector<std::string> &arguments);
/// Starts a program and does not wait; false where it could not be launched.
bool runDetached(const std::string &executable, const std::vector<std::string> &arguments);

/// The shell command that opens the bundle again after this process has ended.
std::string relaunchCommand(const std::string &bundlePath);

} // namespace quenda::mac
