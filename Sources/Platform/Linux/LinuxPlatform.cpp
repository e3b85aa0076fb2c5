// Builds the Linux backend.

#include "Platform/Linux/DBusRemoteControl.h"
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
#include "Platform/Linux/SessionBus.h"
#include "Platform/Linux/SyntheticKeys.h"
#include "Platform/Linux/X11Accessibility.h"
#include "Platform/Linux/X11KeyPoster.h"
#include "Platform/Linux/X11KeyTap.h"
#include "Platform/Linux/X11Pasteboard.h"
#include "Platform/Platform.h"

#include <QCoreApplication>

#include <malloc.h>

#include <chrono>
#include <memory>
#include <optional>

namespace quenda {

namespace {

// A recording and the file made of it go back to the system when they are done with. By itself the
// C library keeps up to 32 MB of what it once saw freed, for the next time: the limits are no
// longer moved when they have been set.
void giveLargeBlocksBack() {
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 21);
}

// In shared memory with the X server, Qt could paint a window again only after a round trip, which
// tells that the server has read what was painted last: for the level meter, thirty times a second.
// Without, the changed pixels are sent. Qt reads this when it connects.
constexpr char kNoSharedPixels[] = "QT_XCB_NO_MITSHM";

constexpr std::chrono::milliseconds kBusPatience{500};

// Qt's plug-ins that need no display stay usable, for tests say.
bool needsDisplay() {
    const QByteArray plugin = qgetenv("QT_QPA_PLATFORM");
    return plugin.isEmpty() || plugin.startsWith("xcb") || plugin.startsWith("wayland");
}

std::shared_ptr<MicrophonePortal> governingPortal() {
    const std::optional<QString> application = sandboxedApplication();
    if (!application)
        return nullptr;
    return MicrophonePortal::create({*application, sessionBusAddress()});
}

} // namespace

std::unique_ptr<Bundle> createBundle() {
    return std::make_unique<LinuxBundle>();
}

Failure prepareApplication() {
    giveLargeBlocksBack();
    qputenv(kNoSharedPixels, "1");
    if (needsDisplay() && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return quendaError(
            0, QCoreApplication::translate("LinuxPlatform",
                                           "Quenda needs a graphical session: neither DISPLAY nor "
                                           "WAYLAND_DISPLAY is set."));
    // A bus that takes connections but does not answer would hold up Qt, and the start, for good.
    const std::optional<SessionBus> bus = findSessionBus(kBusPatience);
    if (bus && !bus->alive)
        qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    return std::nullopt;
}

Platform createPlatform() {
    qunsetenv(kNoSharedPixels); // it is not for the programs that we start
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
    platform.bundle = createBundle();
    platform.remoteControl = std::make_unique<DBusRemoteControl>();
    return platform;
}

} // namespace quenda
