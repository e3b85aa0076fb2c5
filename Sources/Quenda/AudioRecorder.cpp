#include "Quenda/AudioRecorder.h"

#include "Quenda/Resampler.h"
#include "Quenda/Trace.h"

#include <QPointer>

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

namespace quenda {

static_assert(AudioRecorder::kSampleRate == int(Resampler::kTargetRate));

namespace {

// Room for two hours: no dictation below that is ever moved, which would for a moment take its
// memory twice. Memory is only touched, and so taken, as it fills, and a piece of that size goes
// back to the system as a whole when the dictation is over. Where a sanitizer marks all that is
// reserved at each start, the build asks for less.
#ifndef QUENDA_ROOM_MINUTES
#define QUENDA_ROOM_MINUTES 120
#endif
constexpr size_t kUsualSamples = size_t(AudioRecorder::kSampleRate) * 60 * QUENDA_ROOM_MINUTES;

// No sound is a million times full scale. A device that says so, or gives a NaN or an infinity, is
// taken as silent: one such sample would otherwise stay in the filter's state, or be the peak.
constexpr float kLoudest = 1e6F;

inline float credible(float sample) {
    return std::abs(sample) <= kLoudest ? sample : 0.0F;
}

} // namespace

AudioRecorder::AudioRecorder(AudioInput &input, QObject *parent)
    : QObject(parent),
      m_input(input) {}

AudioRecorder::~AudioRecorder() {
    m_capture.reset(); // before anything that its handler uses
}

Failure AudioRecorder::start() {
    if (m_isRecording)
        return {};
    {
        const std::scoped_lock lock(m_samplesMutex);
        m_samples.clear();
        makeRoom();
    }
    m_sessionPeak.store(0, std::memory_order_relaxed);
    m_isFirstBuffer = true;

    const AudioFormat format = m_input.nativeFormat();
    if (!(format.sampleRate > 0))
        return quendaError(1, tr("No audio input device available."));
    m_converter = format.channels > 0 ? Resampler::create(format.sampleRate) : nullptr;
    if (!m_converter)
        return quendaError(2, tr("Could not create target audio format."));

    auto capture = m_input.startCapture(format, kTapFrames,
                                        [this](const AudioBuffer &buffer) { process(buffer); });
    if (!capture)
        return capture.error();
    m_capture = std::move(capture).value();
    m_isRecording = true;
    return {};
}

std::vector<float> AudioRecorder::stop() {
    if (!m_isRecording)
        return {};
    m_capture.reset(); // from here on the audio thread does not touch this object
    m_isRecording = false;
    m_currentLevel.store(0, std::memory_order_relaxed);
    // The filter is still holding the last 10 to 30 ms: the end of the last word.
    const std::span<const float> rest = m_converter->drain();
    raiseSessionPeak(rest);
    append(rest);
    const std::scoped_lock lock(m_samplesMutex);
    return std::exchange(m_samples, {});
}

// The mean of the channels, so that a microphone on one side of a stereo device counts in full
// proportion and no mix can exceed full scale.
void AudioRecorder::mixDown(const AudioBuffer &buffer) {
    const qsizetype frames = std::max<qsizetype>(buffer.frames, 0);
    m_mono.assign(size_t(frames), 0.0F);
    for (int channel = 0; channel < buffer.format.channels; ++channel) {
        const float *sample = buffer.channels[channel];
        for (float &sum : m_mono) {
            sum += credible(*sample);
            sample += buffer.stride;
        }
    }
    if (buffer.format.channels > 1) {
        const float share = 1.0F / float(buffer.format.channels);
        for (float &sum : m_mono)
            sum *= share;
    }
}

void AudioRecorder::process(const AudioBuffer &buffer) {
    // A buffer of another rate than the converter was made for cannot be converted.
    if (buffer.format.channels < 1 || buffer.format.sampleRate != m_converter->sourceRate())
        return;
    if (std::exchange(m_isFirstBuffer, false))
        Trace::mark("first-sample");
    try {
        mixDown(buffer);
        const auto chunk = m_converter->convert(m_mono);
        if (!chunk)
            return;
        const float peak = raiseSessionPeak(*chunk);
        m_currentLevel.store(std::min(peak * 3, 1.0F), std::memory_order_relaxed);
        append(*chunk);
    } catch (const std::bad_alloc &) {
        // This buffer is lost; the recording goes on.
    }
}

// Returns the chunk's own peak. Only one thread at a time records, so no update is lost.
float AudioRecorder::raiseSessionPeak(std::span<const float> chunk) {
    float peak = 0;
    for (const float sample : chunk)
        peak = std::max(peak, std::abs(sample));
    if (peak > m_sessionPeak.load(std::memory_order_relaxed))
        m_sessionPeak.store(peak, std::memory_order_relaxed);
    return peak;
}

void AudioRecorder::append(std::span<const float> chunk) {
    const std::scoped_lock lock(m_samplesMutex);
    m_samples.insert(m_samples.end(), chunk.begin(), chunk.end());
}

void AudioRecorder::makeRoom() {
    try {
        m_samples.reserve(kUsualSamples);
    } catch (const std::bad_alloc &) {
        // The system does not promise so much before it is used: room is made as it is needed.
    }
}

void AudioRecorder::startDeviceChangeMonitoring() {
    m_input.setDefaultDeviceChangedHandler([weak = QPointer<AudioRecorder>(this)] {
        if (!weak)
            return;
        // Through the event loop: the receiver may end the recording, and with it the capture
        // that the report came from.
        QMetaObject::invokeMethod(
            weak.data(),
            [recorder = weak.data()] {
                if (recorder->onInputDeviceChanged)
                    recorder->onInputDeviceChanged();
            },
            Qt::QueuedConnection);
    });
}

std::optional<QString> AudioRecorder::defaultInputDeviceName(const AudioInput &input) {
    return input.defaultDeviceName();
}

void AudioRecorder::requestPermission(MicrophonePermission &permission,
                                      std::function<void(bool granted)> completion) {
    if (permission.status() == AuthorizationStatus::NotDetermined)
        permission.requestAccess(std::move(completion));
}

} // namespace quenda
