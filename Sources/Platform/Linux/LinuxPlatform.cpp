// Builds the Linux backend.

#include "Platform/Linux/LinuxBundle.h"
#include "Platform/Linux/LinuxLoginItem.h"
#include "Platform/Linux/LinuxProcessRunner.h"
#include "Platform/Linux/LinuxSessionEvents.h"
#include "Platform/Linux/LinuxSounds.h"
#include "Platform/Linux/LinuxStatusTray.h"
#include "Platform/Linux/LinuxWorkspace.h"
#include "Platform/Linux/PulseAudioInput.h"
#include "Platform/Linux/PulseConnection.h"
#include "Platform/Linux/PulseMicrophonePermission.h"
#include "Platform/Linux/X11Accessibility.h"
#include "Platform/Linux/X11KeyPoster.h"
#include "Platform/Linux/X11KeyTap.h"
#include "Platform/Linux/X11Pasteboard.h"
#include "Platform/Platform.h"

namespace quenda {

void prepareApplication() {}

} // namespace quenda
