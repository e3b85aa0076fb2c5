#include "Platform/MacOS/MacAudioDevices.h"

#include "Platform/MacOS/CFOwner.h"

#import <CoreAudio/CoreAudio.h>
#import <Foundation/Foundation.h>
#import <dispatch/dispatch.h>

#include <utility>

namespace quenda::mac {

namespace {

constexpr AudioObjectPropertyAddress kDefaultInput = {
    kAudioHardwarePropertyDefaultInputDevice,
    kAudioObjectPropertyScopeGlobal,
    kAudioObjectPropertyElementMain,
};

constexpr AudioObjectPropertyAddress kName = {
    kAudioObjectPropertyName,
    kAudioObjectPropertyScopeGlobal,
    kAudioObjectPropertyElementMain,
};

} // namespace

std::optional<std::string> defaultInputDeviceName() {
    AudioObjectID device = kAudioObjectUnknown;
    UInt32 size = sizeof device;
    OSStatus status = AudioObjectGetPropertyData(kAudioObjectSystemObject, &kDefaultInput, 0,
                                                 nullptr, &size, &device);
    if (status != noErr || device == kAudioObjectUnknown)
        return std::nullopt;
    CFStringRef name = nullptr;
    size = sizeof name;
    status = AudioObjectGetPropertyData(device, &kName, 0, nullptr, &size, &name);
    const CFOwner<CFStringRef> owner(name);
    if (status != noErr || !owner)
        return std::nullopt;
    const char *bytes = ((__bridge NSString *)owner.get()).UTF8String;
    if (bytes == nullptr)
        return std::nullopt;
    return std::string(bytes);
}

struct DefaultInputListener::State {
    std::function<void()> handler;
    AudioObjectPropertyListenerBlock block = nil;
};

DefaultInputListener::DefaultInputListener(std::function<void()> handler)
    : m_state(std::make_shared<State>()) {
    m_state->handler = std::move(handler);
    const std::weak_ptr<State> weak = m_state;
    m_state->block = ^(UInt32, const AudioObjectPropertyAddress *) {
      // Another round through the main queue: the handler may start or stop an engine, which the
      // audio hardware's own notification must not be under way for.
      dispatch_async(dispatch_get_main_queue(), ^{
        const std::shared_ptr<State> state = weak.lock();
        if (!state)
            return;
        // A copy: the handler may put another listener in the place of this one.
        const std::function<void()> changed = state->handler;
        if (changed)
            changed();
      });
    };
    AudioObjectAddPropertyListenerBlock(kAudioObjectSystemObject, &kDefaultInput,
                                        dispatch_get_main_queue(), m_state->block);
}

DefaultInputListener::~DefaultInputListener() {
    AudioObjectRemovePropertyListenerBlock(kAudioObjectSystemObject, &kDefaultInput,
                                           dispatch_get_main_queue(), m_state->block);
    m_state->handler = nullptr;
}

} // namespace quenda::mac
