#pragma once
// The default microphone, in its native format, and the news that it is another one now.
// All calls on the main thread; the tap handler runs on the backend's audio thread.

#include "Platform/Error.h"

#include <QString>
#include <QtGlobal>

#include <functional>
#include <memory>
#include <optional>

namespace quenda {

/// Linear PCM in 32-bit floats.
struct AudioFormat {
    double sampleRate = 0; ///< frames a second; 0 where there is no input device
    int channels = 0;

    bool operator==(const AudioFormat &) const = default;
};

/// A view of one captured buffer, valid only during the handler's call. Sample `f` of channel `c`
/// is `channels[c][f * stride]`, nominally within [-1, 1].
struct AudioBuffer {
    const float *const *channels = nullptr;
    qsizetype stride = 1;
    qsizetype frames = 0;
    AudioFormat format;
};

/// A running capture. Destroying it stops the capture; no handler call is running or will come
/// once the destructor has returned. Waits for nothing but a handler call in progress.
class AudioCapture {
public:
    AudioCapture() = default;
    AudioCapture(const AudioCapture &) = delete;
    AudioCapture &operator=(const AudioCapture &) = delete;
    virtual ~AudioCapture() = default;
};

class AudioInput {
public:
    using TapHandler = std::function<void(const AudioBuffer &)>;

    AudioInput() = default;
    AudioInput(const AudioInput &) = delete;
    AudioInput &operator=(const AudioInput &) = delete;
    virtual ~AudioInput() = default;

    /// The default input device's own format; a sample rate of 0 where there is none or the sound
    /// system cannot be reached. Answers from what is known, without waiting for another program.
    virtual AudioFormat nativeFormat() const = 0;

    /// Starts capturing from the default input device in `format` (its native one), delivering
    /// buffers of at most `maxFrames` frames; the audio engine of macOS takes that as a wish and
    /// may deliver longer ones. Fails with the system's error. Where the device goes
    /// away later, buffers stop and the change of the default device is reported.
    virtual Result<std::unique_ptr<AudioCapture>>
    startCapture(const AudioFormat &format, int maxFrames, TapHandler handler) = 0;

    /// The name of the default input device as a person knows it; none where there is no device.
    virtual std::optional<QString> defaultDeviceName() const = 0;

    /// Calls `handler` on the main thread whenever the default input device has become another one
    /// or has gone. Replaces an earlier handler; an empty one ends the reports.
    virtual void setDefaultDeviceChangedHandler(std::function<void()> handler) = 0;
};

} // namespace quenda
