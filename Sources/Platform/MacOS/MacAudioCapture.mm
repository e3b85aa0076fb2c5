#include "Platform/MacOS/MacAudioCapture.h"

#import <AVFoundation/AVFoundation.h>

#include <mutex>
#include <utility>

namespace quenda::mac {

namespace {

constexpr AVAudioNodeBus kInputBus = 0;

// Shared with the tap block, which the engine may still be running when the owner goes.
struct Delivery {
    std::mutex mutex;
    NativeTap tap; // empty once the owner is gone
};

void deliver(Delivery &delivery, AVAudioPCMBuffer *buffer) {
    const std::lock_guard<std::mutex> lock(delivery.mutex);
    float *const *channels = buffer.floatChannelData;
    if (!delivery.tap || channels == nullptr)
        return;
    NativeAudioFormat format;
    format.sampleRate = buffer.format.sampleRate;
    format.channels = static_cast<int>(buffer.format.channelCount);
    delivery.tap(channels, static_cast<std::int64_t>(buffer.stride),
                 static_cast<std::int64_t>(buffer.frameLength), format);
}

std::string plainString(NSString *text) {
    const char *bytes = text.UTF8String;
    return bytes ? std::string(bytes) : std::string();
}

NativeError nativeError(NSError *error) {
    NativeError result;
    result.domain = plainString(error.domain);
    result.code = error.code;
    result.description = plainString(error.localizedDescription);
    return result;
}

// How the engine refuses a format that the device, gone or another one meanwhile, does not have.
NativeError nativeError(NSException *exception) {
    NativeError result;
    result.domain = plainString(exception.name);
    result.description = plainString(exception.reason);
    return result;
}

} // namespace

struct MacAudioCapture::State {
    AVAudioEngine *engine = nil;
    std::shared_ptr<Delivery> delivery = std::make_shared<Delivery>();
};

NativeAudioFormat nativeInputFormat() {
    @autoreleasepool {
        AVAudioEngine *engine = [[AVAudioEngine alloc] init];
        AVAudioFormat *format = [engine.inputNode inputFormatForBus:kInputBus];
        NativeAudioFormat result;
        result.sampleRate = format.sampleRate;
        result.channels = static_cast<int>(format.channelCount);
        return result;
    }
}

MacAudioCapture::MacAudioCapture() : m_state(std::make_unique<State>()) {}

MacAudioCapture::~MacAudioCapture() {
    if (m_state->engine != nil) {
        [m_state->engine.inputNode removeTapOnBus:kInputBus];
        [m_state->engine stop];
    }
    // Waits for a delivery in progress; none begins after it.
    const std::lock_guard<std::mutex> lock(m_state->delivery->mutex);
    m_state->delivery->tap = nullptr;
}

bool MacAudioCapture::start(std::uint32_t frames, NativeTap tap, NativeError &error) {
    @autoreleasepool {
        m_state->delivery->tap = std::move(tap);
        m_state->engine = [[AVAudioEngine alloc] init];
        AVAudioInputNode *input = m_state->engine.inputNode;
        const std::shared_ptr<Delivery> delivery = m_state->delivery;
        @try {
            [input installTapOnBus:kInputBus
                        bufferSize:frames
                            format:[input inputFormatForBus:kInputBus]
                             block:^(AVAudioPCMBuffer *buffer, AVAudioTime *) {
                               @autoreleasepool {
                                   deliver(*delivery, buffer);
                               }
                             }];
            [m_state->engine prepare];
            NSError *failure = nil;
            if ([m_state->engine startAndReturnError:&failure])
                return true;
            error = nativeError(failure);
        } @catch (NSException *exception) {
            error = nativeError(exception);
        }
        return false;
    }
}

} // namespace quenda::mac
