#pragma once
// Everything that the program asks of an operating system, in one value that the entry point builds
// and hands to the controller. The parts live as long as the program and are used on the main
// thread unless they say otherwise.

#include "Platform/Accessibility.h"
#include "Platform/AudioInput.h"
#include "Platform/Desktop.h"
#include "Platform/KeyPoster.h"
#include "Platform/KeyTap.h"
#include "Platform/MicrophonePermission.h"
#include "Platform/Pasteboard.h"
#include "Platform/ProcessRunner.h"
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
};

/// Where this system keeps a user's application data and logs. Needs no application object.
Folders platformFolders();

/// Chooses the program's window-system behaviour (no Dock icon); before the application object.
void prepareApplication();

/// Builds the backend that was compiled in. Call it once, after the application object exists.
Platform createPlatform();

} // namespace quenda
