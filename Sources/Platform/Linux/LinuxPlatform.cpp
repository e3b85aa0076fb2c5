// Builds the Linux backend.

#include "Platform/Linux/LinuxBundle.h"
#include "Platform/Linux/LinuxLoginItem.h"
#include "Platform/Linux/LinuxProcessRunner.h"
#include "Platform/Linux/LinuxSessionEvents.h"
#include "Platform/Linux/LinuxSounds.h"
#include "Platform/Linux/LinuxStatusTray.h"
#include "Platform/Linux/LinuxWorkspace.h"
#include "Platform/Linux/MicrophonePortal.h"
#include "Platform/Linux/PulseAudioInput.h"
#include "Platform/Linux/PulseConnection.h"
#include "Platform/Linux/PulseMicrophonePermission.h"
#include "Platform/Linux/Sandbox.h"
#include "Platform/Linux/SyntheticKeys.h"
#include "Platform/Linux/X11Accessibility.h"
#include "Platform/Linux/X11KeyPoster.h"
#include "Platform/Linux/X11KeyTap.h"
#include "Platform/Linux/X11Pasteboard.h"
#include "Platform/Platform.h"

#include <memory>
#include <optional>

namespace quenda {

namespace {

std::shared_ptr<MicrophonePortal> governingPortal() {
    const std::optional<QString> application = sandboxedApplication();
    if (!application)
        return nullptr;
    QByteArray bus = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    if (bus.isEmpty())
        bus = "unix:path=" + qgetenv("XDG_RUNTIME_DIR") + "/bus";
    return MicrophonePortal::create({*application, bus});
}

} // namespace

void prepareApplication() {}

Platform createPlatform() {
    const auto sound = std::make_shared<PulseConnection>();
    const auto synthetic = std::make_shared<SyntheticKeys>();
    auto pasteboard = std::make_unique<X11Pasteboard>();

    Platform platform;
    platform.keyTaps = std::make_unique<X11KeyTapFactory>(synthetic);
    platform.keyPoster = std::make_unique<X11KeyPoster>(synthetic, pasteboard.get());
    platform.pasteboard = std::move(pasteboard);
    platform.accessibility = std::make_unique<X11Accessibility>();
    platform.microphonePermission =
        std::make_unique<PulseMicrophonePermission>(sound, governingPortal());
    platform.audioInput = std::make_unique<PulseAudioInput>(sound);
    platform.processes = std::make_unique<LinuxProcessRunner>();
    platform.sounds = std::make_unique<LinuxSounds>(sound);
    platform.sessionEvents = std::make_unique<LinuxSessionEvents>();
    platform.statusTray = std::make_unique<LinuxStatusTray>();
    platform.loginItem = std::make_unique<LinuxLoginItem>();
    platform.workspace = std::make_unique<LinuxWorkspace>();
    platform.bundle = std::make_unique<LinuxBundle>();
    return platform;
}

} // namespace quenda
