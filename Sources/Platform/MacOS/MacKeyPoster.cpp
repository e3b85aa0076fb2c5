#include "Platform/MacOS/MacKeyPoster.h"

#include "Platform/KeyTap.h"
#include "Platform/MacOS/CFOwner.h"

#include <ApplicationServices/ApplicationServices.h>

namespace quenda::mac {

PostOutcome MacKeyPoster::postPaste() {
    const CFOwner<CGEventSourceRef> source(
        CGEventSourceCreate(kCGEventSourceStateCombinedSessionState));
    if (!source)
        return PostOutcome::Refused;
    // Exactly the Command flag: what the user still holds is not carried over.
    for (const bool down : {true, false}) {
        const CFOwner<CGEventRef> event(
            CGEventCreateKeyboardEvent(source.get(), static_cast<CGKeyCode>(keys::kV), down));
        if (!event)
            continue;
        CGEventSetFlags(event.get(), kCGEventFlagMaskCommand);
        CGEventPost(kCGHIDEventTap, event.get());
    }
    return PostOutcome::Posted;
}

} // namespace quenda::mac
