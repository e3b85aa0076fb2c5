#include "Platform/MacOS/MacKeyTap.h"

#include "Platform/MacOS/CFOwner.h"

#include <ApplicationServices/ApplicationServices.h>

namespace quenda::mac {

namespace {

constexpr CGEventMask kEventsOfInterest =
    CGEventMaskBit(kCGEventKeyDown) | CGEventMaskBit(kCGEventFlagsChanged);
static_assert(kEventsOfInterest == 0x1400);

class MacKeyTap final : public KeyTap {
public:
    explicit MacKeyTap(Handler handler) : m_handler(std::move(handler)) {}

    ~MacKeyTap() override {
        if (!m_port)
            return;
        CGEventTapEnable(m_port.get(), false);
        if (m_source)
            CFRunLoopRemoveSource(CFRunLoopGetMain(), m_source.get(), kCFRunLoopCommonModes);
        CFMachPortInvalidate(m_port.get());
    }

    bool install() {
        m_port.reset(CGEventTapCreate(kCGSessionEventTap, kCGHeadInsertEventTap,
                                      kCGEventTapOptionListenOnly, kEventsOfInterest,
                                      &MacKeyTap::receive, this));
        if (!m_port)
            return false;
        CGEventTapEnable(m_port.get(), false); // a new tap comes enabled
        m_source.reset(CFMachPortCreateRunLoopSource(kCFAllocatorDefault, m_port.get(), 0));
        if (!m_source)
            return false;
        CFRunLoopAddSource(CFRunLoopGetMain(), m_source.get(), kCFRunLoopCommonModes);
        return true;
    }

    bool isEnabled() const override { return CGEventTapIsEnabled(m_port.get()); }
    void setEnabled(bool enabled) override { CGEventTapEnable(m_port.get(), enabled); }

private:
    static CGEventRef receive(CGEventTapProxy, CGEventType type, CGEventRef event, void *user) {
        if (user)
            static_cast<MacKeyTap *>(user)->deliver(type, event);
        return event;
    }

    void deliver(CGEventType type, CGEventRef event) {
        KeyEvent seen;
        seen.type = static_cast<KeyEvent::Type>(type);
        // The two notices that the tap was disabled carry no event of the keyboard.
        const bool notice =
            type == kCGEventTapDisabledByTimeout || type == kCGEventTapDisabledByUserInput;
        if (!notice && event) {
            seen.keyCode =
                static_cast<int>(CGEventGetIntegerValueField(event, kCGKeyboardEventKeycode));
            seen.flags = static_cast<std::uint64_t>(CGEventGetFlags(event));
        }
        m_handler(seen);
    }

    Handler m_handler;
    CFOwner<CFMachPortRef> m_port;
    CFOwner<CFRunLoopSourceRef> m_source;
};

} // namespace

std::unique_ptr<KeyTap> MacKeyTapFactory::createTap(KeyTap::Handler handler) {
    auto tap = std::make_unique<MacKeyTap>(std::move(handler));
    if (!tap->install())
        return nullptr;
    return tap;
}

} // namespace quenda::mac
