#pragma once
// Records the default microphone as 16 kHz mono floats, with a live level. One instance, owned by
// the controller. Called on the main thread; buffers are converted on the backend's audio thread.

#include "Platform/AudioInput.h"
#include "Platform/Error.h"
#include "Platform/MicrophonePermission.h"

#include <QByteArray>
#include <QObject>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace quenda {

class Resampler;

class AudioRecorder : public QObject {
    Q_OBJECT
public:
    static constexpr int kSampleRate = 16000; ///< frames a second of every recording
    static constexpr int kTapFrames = 4096;

    explicit AudioRecorder(AudioInput &input, QObject *parent = nullptr);
    ~AudioRecorder() override;

    /// Called on the main thread, from the event loop, when the default input device has become
    /// another one.
    std::function<void()> onInputDeviceChanged;

    /// Begins a recording; does nothing while one is running. Fails with code 1 where there is no
    /// input device, with code 2 where its format cannot be converted, or with the system's error.
    Failure start();

    /// Ends the recording and returns all its samples, including the few milliseconds that the
    /// resampling filter still held; empty where none was running.
    std::vector<float> stop();

    bool isRecording() const { return m_isRecording; }

    /// Meter level, 0 to 1: three times the latest buffer's peak, at most 1. Any thread.
    float currentLevel() const { return m_currentLevel.load(std::memory_order_relaxed); }
    /// Largest absolute sample since the last start(), linear; stays after stop(). Any thread.
    float sessionPeak() const { return m_sessionPeak.load(std::memory_order_relaxed); }

    /// Begins to report changes of the default input device. Called once, at start.
    void startDeviceChangeMonitoring();

    /// The name of the present default input device.
    static std::optional<QString> defaultInputDeviceName(const AudioInput &input);

    /// Asks for the microphone where that is still undetermined; `completion` comes later, on the
    /// main thread. In any other state nothing is asked and `completion` is not called.
    static void requestPermission(MicrophonePermission &permission,
                                  std::function<void(bool granted)> completion);

    /// Encodes 16 kHz mono samples as a 44-byte RIFF/WAVE header and 16-bit little-endian PCM.
    /// At most (2^32 - 1 - 36) / 2 and at most 2^31 - 1 samples; more is a programming fault.
    static QByteArray wavData(std::span<const float> samples);

private:
    void process(const AudioBuffer &buffer);
    void mixDown(const AudioBuffer &buffer);
    float raiseSessionPeak(std::span<const float> chunk);
    void append(std::span<const float> chunk);
    void makeRoom();

    AudioInput &m_input;
    std::unique_ptr<Resampler> m_converter;
    std::vector<float> m_mono;   ///< scratch of the audio thread
    bool m_isFirstBuffer = true; ///< the audio thread's while there is a capture
    std::mutex m_samplesMutex;   ///< guards m_samples
    std::vector<float> m_samples;
    std::unique_ptr<AudioCapture> m_capture;
    std::atomic<float> m_currentLevel{0};
    std::atomic<float> m_sessionPeak{0};
    bool m_isRecording = false;
};

} // namespace quenda
