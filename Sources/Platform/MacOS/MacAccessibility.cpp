#include "Platform/MacOS/MacAccessibility.h"

#include "Platform/MacOS/CFOwner.h"

#include <ApplicationServices/ApplicationServices.h>

namespace quenda::mac {

bool MacAccessibility::isTrusted(TrustPrompt prompt) const {
    if (prompt == TrustPrompt::Silent)
        return AXIsProcessTrusted();
    const void *key = kAXTrustedCheckOptionPrompt;
    const void *value = kCFBooleanTrue;
    const CFOwner<CFDictionaryRef> options(CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1,
                                                              &kCFTypeDictionaryKeyCallBacks,
                                                              &kCFTypeDictionaryValueCallBacks));
    return AXIsProcessTrustedWithOptions(options.get());
}

bool MacAccessibility::focusedElementExists() const {
    const CFOwner<AXUIElementRef> system(AXUIElementCreateSystemWide());
    if (!system)
        return false;
    CFTypeRef focused = nullptr;
    const AXError error =
        AXUIElementCopyAttributeValue(system.get(), kAXFocusedUIElementAttribute, &focused);
    const CFOwner<CFTypeRef> owner(focused);
    return error == kAXErrorSuccess && owner;
}

} // namespace quenda::mac
