#include "Fakes/FakeAudioInput.h"

#include <cmath>
#include <numbers>
#include <utility>

namespace quenda::fakes {

class FakeAudioInput::Capture final : public AudioCapture {
public:
    Capture(FakeAudioInput &input, TapHandler handler) : tap(std::move(handler)), m_input(input) {
        m_input.m_live = this;
    }
    ~Capture() override {
        if (m_input.m_live == this)
            m_input.m_live = nullptr;
    }
    TapHandler tap;

private:
    FakeAudioInput &m_input;
};

Result<std::unique_ptr<AudioCapture>>
FakeAudioInput::startCapture(const AudioFormat &, int maxFrames, TapHandler handler) {
    if (startError)
        return *startError;
    ++captures;
    lastMaxFrames = maxFrames;
    return std::unique_ptr<AudioCapture>(std::make_unique<Capture>(*this, std::move(handler)));
}

void FakeAudioInput::deliver(const std::vector<float> &interleaved) {
    if (!m_live)
        return;
    std::vector<const float *> channels;
    for (int channel = 0; channel < format.channels; ++channel)
        channels.push_back(interleaved.empty() ? nullptr : interleaved.data() + channel);
    AudioBuffer buffer;
    buffer.channels = channels.data();
    buffer.stride = format.channels;
    buffer.frames = qsizetype(interleaved.size()) / format.channels;
    buffer.format = format;
    m_live->tap(buffer);
}

void FakeAudioInput::speak(double seconds, float peak) {
    const auto total = qsizetype(std::llround(seconds * format.sampleRate));
    const auto chunk = qsizetype(format.sampleRate / 100);
    for (qsizetype start = 0; start < total; start += chunk) {
        std::vector<float> frames;
        for (qsizetype frame = start; frame < std::min(start + chunk, total); ++frame) {
            // 500 Hz, sampled so that its peaks are hit at every rate divisible by 2000.
            const double phase = 2 * std::numbers::pi * 500 * double(frame) / format.sampleRate;
            frames.insert(frames.end(), size_t(format.channels), peak * float(std::sin(phase)));
        }
        deliver(frames);
    }
}

void FakeAudioInput::changeDefaultDevice(std::optional<QString> name) {
    deviceName = std::move(name);
    if (!deviceName)
        format = {};
    if (m_changed)
        m_changed();
}

void FakeMicrophonePermission::answer(bool granted) {
    for (const auto &completion : std::exchange(pending, {})) {
        if (completion)
            completion(granted);
    }
}

} // namespace quenda::fakes
