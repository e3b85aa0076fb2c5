// The recorder, over what a sound server may deliver: any rate, any number of channels, buffers of
// any length, any floats in them.
#include "Fakes/FakeAudioInput.h"
#include "FuzzTarget.h"
#include "Input.h"
#include "Quenda/AudioRecorder.h"
#include "Quenda/Resampler.h"

#include <array>
#include <cmath>

namespace {

constexpr std::array kUsualRates{8000.0,  11025.0, 16000.0, 22050.0,
                                 44100.0, 48000.0, 96000.0, 192000.0};
constexpr std::array kUnusualRates{0.0, -1.0, 999.0, 1000.0, 15999.5, 768000.0, 768001.0};

// Out of two bytes: an ordinary sample, or one that no sound has.
float sampleOf(unsigned code) {
    switch (code) {
    case 0x8000:
        return std::nanf("");
    case 0x8001:
        return INFINITY;
    case 0x8002:
        return -INFINITY;
    case 0x8003:
        return 3e38F;
    case 0x8004:
        return -1e6F;
    case 0x8005:
        return 1e-40F;
    default:
        return float(qint16(code)) / 32768;
    }
}

double rateOf(quenda::fuzz::Input &input) {
    const unsigned choice = input.byte();
    if (choice < 0x80)
        return kUsualRates[choice % kUsualRates.size()];
    if (choice < 0xA0)
        return kUnusualRates[choice % kUnusualRates.size()];
    return input.number<double>();
}

} // namespace

// A rate, a number of channels, then buffers: their length, and a sample for each two bytes.
QUENDA_FUZZ_TARGET(audio) {
    quenda::fuzz::Input parts(input);
    quenda::fakes::FakeAudioInput device;
    device.format.sampleRate = rateOf(parts);
    device.format.channels = int(parts.byte() % 10) - 1;
    quenda::AudioRecorder recorder(device);
    if (const quenda::Failure failure = recorder.start()) {
        PROMISE(failure->code == 1 || failure->code == 2);
        PROMISE(!recorder.isRecording() && recorder.stop().empty());
        return;
    }
    PROMISE(device.format.sampleRate >= 1000 && device.format.sampleRate <= 768000);
    PROMISE(device.format.channels > 0);

    double frames = 0;
    while (!parts.atEnd()) {
        std::vector<float> buffer((parts.byte() % 64) * size_t(device.format.channels));
        for (float &sample : buffer)
            sample = sampleOf(parts.number<quint16>());
        device.deliver(buffer);
        frames += double(buffer.size()) / device.format.channels;
        PROMISE(recorder.currentLevel() >= 0 && recorder.currentLevel() <= 1);
    }
    const std::vector<float> recorded = recorder.stop();
    float peak = 0;
    for (const float sample : recorded) {
        PROMISE(std::isfinite(sample));
        peak = std::max(peak, std::abs(sample));
    }
    PROMISE(peak == recorder.sessionPeak());
    const double expected = frames * quenda::Resampler::kTargetRate / device.format.sampleRate;
    PROMISE_SHOWING(std::abs(double(recorded.size()) - expected) <= 1.5,
                    QStringLiteral("%1 frames at %2 became %3")
                        .arg(frames)
                        .arg(device.format.sampleRate)
                        .arg(recorded.size()));
}
