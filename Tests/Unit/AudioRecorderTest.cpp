#include "Quenda/AudioRecorder.h"

#include "Fakes/FakeAudioInput.h"
#include "Fakes/TestMain.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <thread>

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

TEST_F(AudioRecorderTest, ALongRecordingIsWholeAndNeverMoved) {
    startAt(16000);
    std::vector<float> second(AudioRecorder::kSampleRate);
    for (int passed = 0; passed < 200; ++passed) {
        std::fill(second.begin(), second.end(), float(passed) / 256);
        input.deliver(second);
    }
    const std::vector<float> samples = recorder.stop();
    ASSERT_EQ(samples.size(), 200U * AudioRecorder::kSampleRate);
    for (size_t index = 0; index < samples.size(); ++index)
        ASSERT_EQ(samples[index], float(index / AudioRecorder::kSampleRate) / 256) << index;
#ifndef QUENDA_ROOM_MINUTES // a build with a sanitizer reserves less
    EXPECT_GE(samples.capacity(), 7200U * AudioRecorder::kSampleRate)
        << "an hour would be moved, and take its memory twice";
#endif
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

TEST_F(AudioRecorderTest, SamplesThatAreNoNumbersCountAsSilence) {
    const std::vector<float> poison{kNaN, kInfinity, -kInfinity, 3e38F, -3e38F};
    ASSERT_EQ(recorder.start(), Failure());
    input.deliver(poison);
    EXPECT_EQ(recorder.currentLevel(), 0.0F);
    EXPECT_EQ(recorder.sessionPeak(), 0.0F);
    EXPECT_EQ(recorder.stop(), std::vector<float>(poison.size(), 0.0F));
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
