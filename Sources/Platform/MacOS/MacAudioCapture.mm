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

NativeError nativeError(NSError *error) {
    NativeError result;
    if (error == nil)
        return result;
    result.domain = error.domain.UTF8String;
    result.code = error.code;
    result.description = error.localizedDescription.UTF8String;
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

bool MacAudioCapture::start(std::uint32_t maxFrames, NativeTap tap, NativeError &error) {
    m_state->delivery->tap = std::move(tap);
    m_state->engine = [[AVAudioEngine alloc] init];
    AVAudioInputNode *input = m_state->engine.inputNode;
    const std::shared_ptr<Delivery> delivery = m_state->delivery;
    [input installTapOnBus:kInputBus
                bufferSize:maxFrames
                    format:[input inputFormatForBus:kInputBus]
                     block:^(AVAudioPCMBuffer *buffer, AVAudioTime *) {
                       deliver(*delivery, buffer);
                     }];
    [m_state->engine prepare];
    NSError *failure = nil;
    if ([m_state->engine startAndReturnError:&failure])
        return true;
    error = nativeError(failure);
    return false;
}

} // namespace quenda::mac
