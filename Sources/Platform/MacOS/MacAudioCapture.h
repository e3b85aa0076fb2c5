#pragma once
// Captures the default input device through an audio engine's input tap, in its native format.
// All calls on the main thread; buffers arrive on the audio engine's own thread.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace quenda::mac {

struct NativeAudioFormat {
    double sampleRate = 0; ///< 0 where there is no input device
    int channels = 0;
};

/// Sample `f` of channel `c` is `channels[c][f * stride]`; valid during the call only.
using NativeTap = std::function<void(const float *const *channels, std::int64_t stride,
                                     std::int64_t frames, NativeAudioFormat format)>;

struct NativeError {
    std::string domain;
    std::int64_t code = 0;
    std::string description; ///< UTF-8, in the user's language
};

/// The input node's own format for bus 0.
NativeAudioFormat nativeInputFormat();

class MacAudioCapture {
public:
    MacAudioCapture();
    MacAudioCapture(const MacAudioCapture &) = delete;
    MacAudioCapture &operator=(const MacAudioCapture &) = delete;
    /// Removes the tap and stops the engine.
    ~MacAudioCapture();

    /// Asks for buffers of `frames` frames and starts; the engine may cut them longer or shorter.
    /// False with `error` filled where the system refuses.
    bool start(std::uint32_t frames, NativeTap tap, NativeError &error);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace quenda::mac
