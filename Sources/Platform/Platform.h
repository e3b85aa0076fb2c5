#pragma once
// Everything that the program asks of an operating system, in one value that the entry point builds
// and hands to the controller. The parts live as long as the program and are used on the main
// thread unless they say otherwise.

#include "Platform/Accessibility.h"
#include "Platform/AudioInput.h"
#include "Platform/Desktop.h"
#include "Platform/Error.h"
#include "Platform/KeyPoster.h"
#include "Platform/KeyTap.h"
#include "Platform/MicrophonePermission.h"
#include "Platform/Pasteboard.h"
#include "Platform/ProcessRunner.h"
#include "Platform/RemoteControl.h"
#include "Platform/StatusTray.h"

#include <memory>

namespace quenda {

struct Folders;

struct Platform {
    std::unique_ptr<KeyTapFactory> keyTaps;
    std::unique_ptr<Pasteboard> pasteboard;
    std::unique_ptr<KeyPoster> keyPoster; ///< may use the pasteboard: destroyed before it
    std::unique_ptr<Accessibility> accessibility;
    std::unique_ptr<MicrophonePermission> microphonePermission;
    std::unique_ptr<AudioInput> audioInput;
    std::unique_ptr<ProcessRunner> processes;
    std::unique_ptr<Sounds> sounds;
    std::unique_ptr<SessionEvents> sessionEvents;
    std::unique_ptr<StatusTray> statusTray;
    std::unique_ptr<LoginItem> loginItem;
    std::unique_ptr<Workspace> workspace;
    std::unique_ptr<Bundle> bundle;
    std::unique_ptr<RemoteControl> remoteControl;
};

/// Where this system keeps a user's application data and logs. Needs no application object.
Folders platformFolders();

/// What the program's package says; needs no application object.
std::unique_ptr<Bundle> createBundle();

/// Readies the process for its windows (no Dock icon on macOS); before the application object.
/// An error, for a person, where there is no window system to be had: make none then, for the
/// attempt would end the process.
Failure prepareApplication();

/// Builds the backend that was compiled in. Call it once, after the application object exists.
Platform createPlatform();

} // namespace quenda
