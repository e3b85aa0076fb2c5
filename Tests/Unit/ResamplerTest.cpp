// The resampler, by itself and through the recorder, at the rates that devices have.
#include "Quenda/Resampler.h"

#include "Fakes/FakeAudioInput.h"
#include "Fakes/TestMain.h"
#include "Quenda/AudioRecorder.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <tuple>

namespace quenda {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

struct RecordingAtRate : testing::Test {
    fakes::FakeAudioInput input;
    AudioRecorder recorder{input};

    void startAt(double rate, int channels = 1) {
        input.format = {rate, channels};
        ASSERT_EQ(recorder.start(), Failure());
    }

    // `frames` frames of a tone on all channels, in buffers of `step` frames.
    void playTone(double frequency, float amplitude, qsizetype frames, qsizetype step) {
        for (qsizetype start = 0; start < frames; start += step) {
            std::vector<float> buffer;
            for (qsizetype frame = start; frame < std::min(start + step, frames); ++frame) {
                const double phase =
                    2 * std::numbers::pi * frequency * double(frame) / input.format.sampleRate;
                buffer.insert(buffer.end(), size_t(input.format.channels),
                              amplitude * float(std::sin(phase)));
            }
            input.deliver(buffer);
        }
    }
};

// Amplitude and phase of the part of `samples` that oscillates at `frequency`, and what is left of
// the signal without it, relative to the tone.
struct ToneFit {
    ToneFit(std::span<const float> samples, double frequency) {
        double sine = 0;
        double cosine = 0;
        const double step = 2 * std::numbers::pi * frequency / AudioRecorder::kSampleRate;
        for (size_t index = 0; index < samples.size(); ++index) {
            sine += double(samples[index]) * std::sin(step * double(index));
            cosine += double(samples[index]) * std::cos(step * double(index));
        }
        sine *= 2.0 / double(samples.size());
        cosine *= 2.0 / double(samples.size());
        amplitude = std::hypot(sine, cosine);
        double rest = 0;
        for (size_t index = 0; index < samples.size(); ++index) {
            const double tone =
                sine * std::sin(step * double(index)) + cosine * std::cos(step * double(index));
            rest += std::pow(double(samples[index]) - tone, 2);
        }
        residue = std::sqrt(2 * rest / double(samples.size())) / amplitude;
    }
    double amplitude = 0;
    double residue = 0;
};

TEST(Resampler, RoomForOneBuffer) {
    EXPECT_EQ(Resampler::outputCapacity(48000, 4096), 1397U);
    EXPECT_EQ(Resampler::outputCapacity(44100, 4096), 1518U);
    EXPECT_EQ(Resampler::outputCapacity(16000, 4096), 4128U);
    EXPECT_EQ(Resampler::outputCapacity(8000, 100), 232U);
    EXPECT_EQ(Resampler::outputCapacity(48000, 0), 32U);
}

TEST(Resampler, BufferTooLongFor32BitsEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EQ(Resampler::outputCapacity(16000, 4294967295LL - 32), 4294967295U);
    const auto ask = [](double rate, qsizetype frames) {
        qInstallMessageHandler(nullptr); // the tests' own would keep the last words to itself
        std::ignore = Resampler::outputCapacity(rate, frames);
    };
    EXPECT_DEATH(ask(16000, 4294967295LL - 31), "too long");
    EXPECT_DEATH(ask(8000, 4294967295LL), "too long");
}

TEST(Resampler, NeverGivesMoreThanItsCapacity) {
    for (const double rate : {8000.0, 44100.0, 48000.0, 192000.0}) {
        const auto resampler = Resampler::create(rate);
        ASSERT_TRUE(resampler);
        for (const qsizetype frames : {4096, 1, 480, 0, 7, 4096, 960, 2}) {
            const std::vector<float> buffer(size_t(frames), 0.5F);
            const auto chunk = resampler->convert(buffer);
            ASSERT_TRUE(chunk);
            EXPECT_LE(chunk->size(), Resampler::outputCapacity(rate, frames));
        }
    }
}

TEST(Resampler, LimitsOfTheRates) {
    EXPECT_TRUE(Resampler::create(1000));
    EXPECT_TRUE(Resampler::create(768000));
    EXPECT_FALSE(Resampler::create(999));
    EXPECT_FALSE(Resampler::create(768001));
    EXPECT_FALSE(Resampler::create(0));
    EXPECT_FALSE(Resampler::create(-48000));
    EXPECT_FALSE(Resampler::create(double(kNaN)));
}

struct AtRate : RecordingAtRate, testing::WithParamInterface<std::tuple<double, int>> {
    double rate() const { return std::get<0>(GetParam()); }
    int channels() const { return std::get<1>(GetParam()); }
};

TEST_P(AtRate, ToneKeepsItsPitchItsLoudnessAndItsLength) {
    startAt(rate(), channels());
    const auto frames = qsizetype(rate() * 2);
    playTone(440, 0.5F, frames, qsizetype(rate() / 100));
    const std::vector<float> samples = recorder.stop();
    EXPECT_NEAR(double(samples.size()), 32000, 1) << "the filter was drained";
    ASSERT_GT(samples.size(), 31000U);
    // Away from both ends, and a whole number of periods: 440 Hz for half a second.
    const ToneFit fit{std::span(samples).subspan(8000, 8000), 440};
    EXPECT_NEAR(fit.amplitude, 0.5, 0.005);
    EXPECT_LT(fit.residue, 0.001) << "nothing but the tone";
    EXPECT_NEAR(recorder.sessionPeak(), 0.5, 0.06) << "the cut at the end may ring a little";
    // No sample is lost at the end: the tone is still there in the last 10 ms.
    const ToneFit end{std::span(samples).last(160), 440};
    EXPECT_GT(end.amplitude, 0.3);
}

TEST_P(AtRate, BuffersOfAnyLengthGiveTheSameSamples) {
    const auto frames = qsizetype(rate());
    startAt(rate(), channels());
    playTone(700, 0.4F, frames, frames);
    const std::vector<float> inOne = recorder.stop();

    ASSERT_EQ(recorder.start(), Failure());
    const std::array<qsizetype, 7> lengths{1, 479, 17, 1024, 3, 333, 4096};
    std::vector<float> interleaved;
    for (qsizetype frame = 0; frame < frames; ++frame)
        interleaved.insert(
            interleaved.end(), size_t(channels()),
            0.4F * float(std::sin(2 * std::numbers::pi * 700 * double(frame) / rate())));
    size_t turn = 0;
    for (qsizetype at = 0; at < frames;) {
        const qsizetype length = std::min(lengths[turn++ % lengths.size()], frames - at);
        const auto begin = interleaved.begin() + at * channels();
        input.deliver(std::vector<float>(begin, begin + length * channels()));
        at += length;
    }
    const std::vector<float> inMany = recorder.stop();

    ASSERT_EQ(inMany.size(), inOne.size());
    for (size_t index = 0; index < inOne.size(); ++index)
        ASSERT_NEAR(inMany[index], inOne[index], 1e-5F) << index;
}

// The meter is fed by every buffer of 10 ms: none may come out empty once sound is flowing.
TEST_P(AtRate, LevelNeverDropsBetweenBuffersOfTenMilliseconds) {
    startAt(rate(), channels());
    const auto step = qsizetype(rate() / 100);
    playTone(440, 0.2F, step * 10, step);
    for (int buffer = 0; buffer < 100; ++buffer) {
        playTone(440, 0.2F, step, step);
        ASSERT_GT(recorder.currentLevel(), 0.3F) << buffer;
    }
}

INSTANTIATE_TEST_SUITE_P(Devices, AtRate,
                         testing::Values(std::tuple(8000.0, 1), std::tuple(11025.0, 2),
                                         std::tuple(16000.0, 1), std::tuple(22050.0, 1),
                                         std::tuple(32000.0, 2), std::tuple(44100.0, 2),
                                         std::tuple(48000.0, 1), std::tuple(48000.0, 8),
                                         std::tuple(96000.0, 2), std::tuple(192000.0, 4)));

TEST_F(RecordingAtRate, AlmostAllIsThereBeforeTheEnd) {
    startAt(48000);
    playTone(440, 0.5F, 480 * 50, 480);
    EXPECT_GT(recorder.currentLevel(), 0.9F) << "live, not held back by the filter";
}

// Poison must leave no later sample ill.
TEST_F(RecordingAtRate, SamplesThatAreNoNumbersLeaveTheFilterSound) {
    startAt(48000, 2);
    input.deliver({kNaN, 0.25F, /**/ 0.25F, kInfinity, /**/ 3e38F, 3e38F});
    playTone(440, 0.5F, 48000, 480);
    const std::vector<float> samples = recorder.stop();
    ASSERT_EQ(samples.size(), 16001U);
    for (const float sample : samples)
        ASSERT_LE(std::abs(sample), 0.55F);
    EXPECT_NEAR(recorder.sessionPeak(), 0.5, 0.01);
    EXPECT_NEAR(ToneFit(std::span(samples).subspan(1), 440).amplitude, 0.5, 0.005);
}

} // namespace
} // namespace quenda
