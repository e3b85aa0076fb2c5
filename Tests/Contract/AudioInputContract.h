#pragma once
// What every audio input keeps to, whatever the platform. A World names a backend with a microphone
// that is heard:
//   AudioInput &input();
//   QString deviceName();
//   qsizetype longestBuffer(int asked);   // in frames, where `asked` was asked for
//   void speak();            // lets at least 0.2 s of sound arrive
// and, where a program can take the microphone away, for the second contract:
//   void removeDevice();     // the microphone goes, and with it the default; until that is known

#include "Platform/AudioInput.h"

#include <gtest/gtest.h>

#include <atomic>

namespace quenda::contract {

template <typename World>
class AudioInputContract : public testing::Test {
protected:
    World world;
};
TYPED_TEST_SUITE_P(AudioInputContract);

TYPED_TEST_P(AudioInputContract, KnowsItsDevice) {
    EXPECT_EQ(this->world.input().defaultDeviceName(), this->world.deviceName());
    EXPECT_GT(this->world.input().nativeFormat().sampleRate, 0);
    EXPECT_GT(this->world.input().nativeFormat().channels, 0);
}

TYPED_TEST_P(AudioInputContract, DeliversBuffersInItsFormatAndOfBoundedLength) {
    const AudioFormat format = this->world.input().nativeFormat();
    constexpr int kMaxFrames = 256;
    std::atomic<qint64> frames = 0;
    std::atomic<int> wrong = 0;
    std::atomic<float> loudest = 0;
    auto capture =
        this->world.input().startCapture(format, kMaxFrames, [&](const AudioBuffer &buffer) {
            frames += buffer.frames;
            if (!(buffer.format == format) || buffer.frames > this->world.longestBuffer(kMaxFrames))
                ++wrong;
            for (qsizetype frame = 0; frame < buffer.frames; ++frame)
                loudest = std::max(loudest.load(), buffer.channels[0][frame * buffer.stride]);
        });
    ASSERT_TRUE(capture.ok());
    this->world.speak();
    EXPECT_GT(frames, 0);
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(loudest, 0.01F);
}

TYPED_TEST_P(AudioInputContract, ADestroyedCaptureDeliversNothingMore) {
    std::atomic<qint64> frames = 0;
    auto capture = this->world.input().startCapture(
        this->world.input().nativeFormat(), 4096,
        [&](const AudioBuffer &buffer) { frames += buffer.frames; });
    ASSERT_TRUE(capture.ok());
    this->world.speak();
    capture.value().reset();
    const qint64 atTheEnd = frames;
    EXPECT_GT(atTheEnd, 0);
    this->world.speak();
    EXPECT_EQ(frames, atTheEnd);
}

REGISTER_TYPED_TEST_SUITE_P(AudioInputContract, KnowsItsDevice,
                            DeliversBuffersInItsFormatAndOfBoundedLength,
                            ADestroyedCaptureDeliversNothingMore);

template <typename World>
class LostAudioInputContract : public AudioInputContract<World> {};
TYPED_TEST_SUITE_P(LostAudioInputContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(LostAudioInputContract); // not every backend can

TYPED_TEST_P(LostAudioInputContract, ADeviceThatGoesIsReportedAndForgotten) {
    int changes = 0;
    this->world.input().setDefaultDeviceChangedHandler([&] { ++changes; });
    this->world.removeDevice();
    EXPECT_GE(changes, 1);
    EXPECT_EQ(this->world.input().defaultDeviceName(), std::nullopt);
    EXPECT_EQ(this->world.input().nativeFormat().sampleRate, 0);
    this->world.input().setDefaultDeviceChangedHandler({});
}

REGISTER_TYPED_TEST_SUITE_P(LostAudioInputContract, ADeviceThatGoesIsReportedAndForgotten);

} // namespace quenda::contract
