#include "Quenda/AudioRecorder.h"

#include "Fakes/FakeAudioInput.h"
#include "Fakes/TestMain.h"
#include "Quenda/Resampler.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <thread>
#include <tuple>

namespace quenda {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

struct AudioRecorderTest : testing::Test {
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

TEST_F(AudioRecorderTest, StopWithoutStartGivesNothingAndChangesNothing) {
    EXPECT_TRUE(recorder.stop().empty());
    EXPECT_FALSE(recorder.isRecording());
    EXPECT_EQ(recorder.currentLevel(), 0.0F);
    EXPECT_EQ(recorder.sessionPeak(), 0.0F);
    EXPECT_EQ(input.captures, 0);
}

TEST_F(AudioRecorderTest, RecordsFromStartToStop) {
    ASSERT_EQ(recorder.start(), Failure());
    EXPECT_TRUE(recorder.isRecording());
    EXPECT_TRUE(input.capturing());
    EXPECT_EQ(input.lastMaxFrames, 4096);
    input.deliver({0.1F, 0.2F});
    input.deliver({-0.3F});
    const std::vector<float> samples = recorder.stop();
    EXPECT_EQ(samples, (std::vector<float>{0.1F, 0.2F, -0.3F}));
    EXPECT_FALSE(recorder.isRecording());
    EXPECT_FALSE(input.capturing());
    EXPECT_TRUE(recorder.stop().empty());
}

TEST_F(AudioRecorderTest, SecondStartKeepsTheFirstRecording) {
    ASSERT_EQ(recorder.start(), Failure());
    input.deliver({0.25F});
    input.format = {}; // would fail if it were looked at
    EXPECT_EQ(recorder.start(), Failure());
    EXPECT_EQ(input.captures, 1);
    EXPECT_FLOAT_EQ(recorder.sessionPeak(), 0.25F);
    input.format = {16000, 1};
    input.deliver({0.5F});
    EXPECT_EQ(recorder.stop(), (std::vector<float>{0.25F, 0.5F}));
}

TEST_F(AudioRecorderTest, EachStartBeginsAfresh) {
    ASSERT_EQ(recorder.start(), Failure());
    input.deliver({0.75F});
    recorder.stop();
    EXPECT_FLOAT_EQ(recorder.sessionPeak(), 0.75F) << "kept for the controller";
    ASSERT_EQ(recorder.start(), Failure());
    EXPECT_EQ(recorder.sessionPeak(), 0.0F);
    input.deliver({0.1F});
    EXPECT_FLOAT_EQ(recorder.sessionPeak(), 0.1F);
    EXPECT_EQ(recorder.stop(), std::vector<float>{0.1F});
}

TEST_F(AudioRecorderTest, EachStartTakesTheFormatOfThatMoment) {
    startAt(48000, 2);
    input.deliver(std::vector<float>(960, 0.5F));
    EXPECT_EQ(recorder.stop().size(), 160U);
    startAt(8000, 1);
    input.deliver(std::vector<float>(80, 0.5F));
    EXPECT_EQ(recorder.stop().size(), 160U);
}

TEST_F(AudioRecorderTest, SilenceHasNoLevelAndNoPeak) {
    startAt(48000);
    for (int buffer = 0; buffer < 10; ++buffer)
        input.deliver(std::vector<float>(480, 0.0F));
    EXPECT_EQ(recorder.currentLevel(), 0.0F);
    const std::vector<float> samples = recorder.stop();
    EXPECT_EQ(samples.size(), 1600U);
    EXPECT_EQ(recorder.sessionPeak(), 0.0F) << "exactly: it is taken for a revoked permission";
}

TEST_F(AudioRecorderTest, LevelIsThriceTheLatestPeakAndAtMostOne) {
    ASSERT_EQ(recorder.start(), Failure());
    input.deliver({0.0F, 0.5F, 0.1F});
    EXPECT_EQ(recorder.currentLevel(), 1.0F);
    input.deliver({0.1F, -0.2F});
    EXPECT_FLOAT_EQ(recorder.currentLevel(), 0.6F);
    EXPECT_FLOAT_EQ(recorder.sessionPeak(), 0.5F);
    input.deliver({-0.9F});
    EXPECT_EQ(recorder.currentLevel(), 1.0F);
    EXPECT_FLOAT_EQ(recorder.sessionPeak(), 0.9F);
    input.deliver({});
    EXPECT_EQ(recorder.currentLevel(), 0.0F) << "an empty chunk has no peak";
    input.deliver({0.3F});
    recorder.stop();
    EXPECT_EQ(recorder.currentLevel(), 0.0F);
    EXPECT_FLOAT_EQ(recorder.sessionPeak(), 0.9F);
}

TEST_F(AudioRecorderTest, LoudnessBeyondFullScaleIsKept) {
    ASSERT_EQ(recorder.start(), Failure());
    input.deliver({2.0F, -3.0F});
    EXPECT_EQ(recorder.currentLevel(), 1.0F);
    EXPECT_FLOAT_EQ(recorder.sessionPeak(), 3.0F);
    EXPECT_EQ(recorder.stop(), (std::vector<float>{2.0F, -3.0F}));
}

TEST_F(AudioRecorderTest, NoDevice) {
    for (const double rate : {0.0, -48000.0, double(kNaN)}) {
        input.format = {rate, 2};
        EXPECT_EQ(recorder.start(),
                  Failure(quendaError(1, QStringLiteral("No audio input device available."))))
            << rate;
        EXPECT_FALSE(recorder.isRecording());
    }
    EXPECT_EQ(input.captures, 0);
}

TEST_F(AudioRecorderTest, FormatThatCannotBeConverted) {
    const std::array<AudioFormat, 5> formats{AudioFormat{48000, 0}, AudioFormat{48000, -1},
                                             AudioFormat{1e12, 1}, AudioFormat{0.5, 1},
                                             AudioFormat{double(kInfinity), 1}};
    for (const AudioFormat &format : formats) {
        input.format = format;
        EXPECT_EQ(recorder.start(),
                  Failure(quendaError(2, QStringLiteral("Could not create target audio format."))))
            << format.sampleRate << ", " << format.channels;
        EXPECT_FALSE(recorder.isRecording());
    }
    EXPECT_EQ(input.captures, 0);
}

TEST_F(AudioRecorderTest, TheSystemsOwnErrorIsPassedUpUnchanged) {
    const Error refused{QStringLiteral("Sound"), 42, QStringLiteral("The server said no")};
    input.startError = refused;
    EXPECT_EQ(recorder.start(), Failure(refused));
    EXPECT_FALSE(recorder.isRecording());
    EXPECT_TRUE(recorder.stop().empty());
    input.startError.reset();
    EXPECT_EQ(recorder.start(), Failure());
    input.deliver({0.5F});
    EXPECT_EQ(recorder.stop(), std::vector<float>{0.5F});
}

TEST_F(AudioRecorderTest, FailedStartForgetsTheFormerPeak) {
    ASSERT_EQ(recorder.start(), Failure());
    input.deliver({0.5F});
    recorder.stop();
    input.format = {};
    EXPECT_NE(recorder.start(), Failure());
    EXPECT_EQ(recorder.sessionPeak(), 0.0F);
}

TEST_F(AudioRecorderTest, ChannelsAreMixedToTheirMean) {
    startAt(16000, 2);
    input.deliver({0.5F, 0.25F, /**/ -1.0F, 1.0F, /**/ 0.8F, 0.0F});
    const std::vector<float> samples = recorder.stop();
    ASSERT_EQ(samples.size(), 3U);
    EXPECT_FLOAT_EQ(samples[0], 0.375F);
    EXPECT_FLOAT_EQ(samples[1], 0.0F);
    EXPECT_FLOAT_EQ(samples[2], 0.4F);
    EXPECT_FLOAT_EQ(recorder.sessionPeak(), 0.4F);
}

TEST_F(AudioRecorderTest, OneToEightChannels) {
    for (int channels = 1; channels <= 8; ++channels) {
        startAt(16000, channels);
        std::vector<float> frames;
        float sum = 0;
        for (int channel = 0; channel < channels; ++channel) {
            frames.push_back(float(channel + 1) / 10);
            sum += float(channel + 1) / 10;
        }
        frames.insert(frames.end(), size_t(channels), -0.5F);
        input.deliver(frames);
        const std::vector<float> samples = recorder.stop();
        ASSERT_EQ(samples.size(), 2U) << channels;
        EXPECT_FLOAT_EQ(samples[0], sum / float(channels)) << channels;
        EXPECT_FLOAT_EQ(samples[1], -0.5F) << channels;
    }
}

// Poison must leave neither the peak nor, at a rate that is filtered, any later sample ill.
TEST_F(AudioRecorderTest, SamplesThatAreNoNumbersCountAsSilence) {
    const std::vector<float> poison{kNaN, kInfinity, -kInfinity, 3e38F, -3e38F};
    ASSERT_EQ(recorder.start(), Failure());
    input.deliver(poison);
    EXPECT_EQ(recorder.currentLevel(), 0.0F);
    EXPECT_EQ(recorder.sessionPeak(), 0.0F);
    EXPECT_EQ(recorder.stop(), std::vector<float>(poison.size(), 0.0F));

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

TEST_F(AudioRecorderTest, BuffersOfAnotherRateThanTheRecordingsAreDropped) {
    startAt(48000);
    input.deliver(std::vector<float>(480, 0.5F));
    input.format = {44100, 1};
    input.deliver(std::vector<float>(441, 0.9F));
    input.format = {48000, 1};
    input.deliver(std::vector<float>(480, 0.5F));
    EXPECT_EQ(recorder.stop().size(), 320U);
    EXPECT_LT(recorder.sessionPeak(), 0.6F);
}

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

struct AtRate : AudioRecorderTest, testing::WithParamInterface<std::tuple<double, int>> {
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

TEST_F(AudioRecorderTest, AlmostAllIsThereBeforeTheEnd) {
    startAt(48000);
    playTone(440, 0.5F, 480 * 50, 480);
    EXPECT_GT(recorder.currentLevel(), 0.9F) << "live, not held back by the filter";
}

TEST_F(AudioRecorderTest, DeviceChangeIsReportedThroughTheEventLoop) {
    int changes = 0;
    recorder.onInputDeviceChanged = [&changes] { ++changes; };
    input.changeDefaultDevice(QStringLiteral("Before"));
    QCoreApplication::processEvents();
    EXPECT_EQ(changes, 0) << "not monitored yet";

    recorder.startDeviceChangeMonitoring();
    input.changeDefaultDevice(QStringLiteral("Headset"));
    EXPECT_EQ(changes, 0) << "not from within the report";
    QCoreApplication::processEvents();
    EXPECT_EQ(changes, 1);

    recorder.onInputDeviceChanged = {};
    input.changeDefaultDevice(QStringLiteral("Other"));
    QCoreApplication::processEvents();
    EXPECT_EQ(changes, 1);
}

TEST_F(AudioRecorderTest, DeviceChangeMayEndTheRecording) {
    std::vector<float> samples;
    recorder.onInputDeviceChanged = [this, &samples] { samples = recorder.stop(); };
    recorder.startDeviceChangeMonitoring();
    ASSERT_EQ(recorder.start(), Failure());
    input.deliver({0.5F});
    input.changeDefaultDevice({});
    QCoreApplication::processEvents();
    EXPECT_FALSE(recorder.isRecording());
    EXPECT_EQ(samples, std::vector<float>{0.5F});
}

TEST(AudioRecorder, IsHeldWeaklyByItsInput) {
    fakes::FakeAudioInput input;
    int changes = 0;
    auto recorder = std::make_unique<AudioRecorder>(input);
    recorder->onInputDeviceChanged = [&changes] { ++changes; };
    recorder->startDeviceChangeMonitoring();
    ASSERT_EQ(recorder->start(), Failure());
    input.changeDefaultDevice(QStringLiteral("On its way"));
    recorder.reset();
    EXPECT_FALSE(input.capturing());
    QCoreApplication::processEvents();
    input.changeDefaultDevice(QStringLiteral("Too late"));
    QCoreApplication::processEvents();
    EXPECT_EQ(changes, 0);
}

TEST(AudioRecorder, DefaultDeviceName) {
    fakes::FakeAudioInput input;
    EXPECT_EQ(AudioRecorder::defaultInputDeviceName(input), QStringLiteral("Fake Microphone"));
    input.deviceName.reset();
    EXPECT_FALSE(AudioRecorder::defaultInputDeviceName(input).has_value());
}

TEST(AudioRecorder, PermissionIsAskedForOnlyWhereUndetermined) {
    for (const auto status : {AuthorizationStatus::Authorized, AuthorizationStatus::Denied,
                              AuthorizationStatus::Restricted}) {
        fakes::FakeMicrophonePermission permission;
        permission.authorization = status;
        bool called = false;
        AudioRecorder::requestPermission(permission, [&called](bool) { called = true; });
        EXPECT_EQ(permission.requests, 0);
        EXPECT_FALSE(called);
    }
    fakes::FakeMicrophonePermission permission;
    permission.authorization = AuthorizationStatus::NotDetermined;
    std::vector<bool> answers;
    const auto note = [&answers](bool granted) { answers.push_back(granted); };
    AudioRecorder::requestPermission(permission, note);
    EXPECT_EQ(permission.requests, 1);
    EXPECT_TRUE(answers.empty());
    permission.answer(true);
    AudioRecorder::requestPermission(permission, note);
    permission.answer(false);
    EXPECT_EQ(answers, (std::vector<bool>{true, false}));
}

// An input whose buffers come from a thread of its own, as fast as they are taken.
class ThreadedInput final : public AudioInput {
public:
    AudioFormat nativeFormat() const override { return {48000, 2}; }
    Result<std::unique_ptr<AudioCapture>> startCapture(const AudioFormat &format, int,
                                                       TapHandler handler) override {
        return std::unique_ptr<AudioCapture>(
            std::make_unique<Capture>(format, std::move(handler), delivered));
    }
    std::optional<QString> defaultDeviceName() const override { return {}; }
    void setDefaultDeviceChangedHandler(std::function<void()>) override {}

    std::atomic<qint64> delivered{0}; ///< frames of the present capture

private:
    class Capture final : public AudioCapture {
    public:
        Capture(const AudioFormat &format, TapHandler handler, std::atomic<qint64> &delivered)
            : m_thread([this, format, tap = std::move(handler), &delivered] {
                  delivered = 0;
                  const std::vector<float> frames(960, 0.25F);
                  const std::array<const float *, 2> channels{frames.data(), frames.data() + 1};
                  while (!m_ending) {
                      tap({channels.data(), 2, 480, format});
                      delivered += 480;
                  }
              }) {}
        ~Capture() override {
            m_ending = true;
            m_thread.join();
        }

    private:
        std::atomic<bool> m_ending{false};
        std::thread m_thread;
    };
};

TEST(AudioRecorder, ARealAudioThread) {
    ThreadedInput input;
    AudioRecorder recorder(input);
    for (int round = 0; round < 5; ++round) {
        ASSERT_EQ(recorder.start(), Failure());
        while (input.delivered < 48000) {
            ASSERT_LE(recorder.currentLevel(), 1.0F);
            ASSERT_LE(recorder.sessionPeak(), 0.3F);
            std::this_thread::yield();
        }
        const std::vector<float> samples = recorder.stop();
        EXPECT_NEAR(double(samples.size()), double(input.delivered) / 3, 1);
        EXPECT_EQ(recorder.currentLevel(), 0.0F);
        EXPECT_NEAR(recorder.sessionPeak(), 0.25, 0.05);
        ASSERT_GT(samples.size(), 10000U);
        EXPECT_NEAR(samples[8000], 0.25, 0.001);
        input.delivered = 0;
    }
}

} // namespace
} // namespace quenda
