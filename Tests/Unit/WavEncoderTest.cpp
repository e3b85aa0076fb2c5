#include "Quenda/AudioRecorder.h"

#include <QtEndian>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace quenda {
namespace {

constexpr qsizetype kHeader = 44;

qint16 sampleAt(const QByteArray &wav, size_t index) {
    return qFromLittleEndian<qint16>(wav.constData() + kHeader + qsizetype(index) * 2);
}

qint16 encodedOne(float sample) {
    const std::vector<float> samples{sample};
    return sampleAt(AudioRecorder::wavData(samples), 0);
}

// The rule, written the slow way.
qint16 expectedOne(float sample) {
    if (std::isnan(sample) || sample >= 1.0F)
        return 32767;
    if (sample <= -1.0F)
        return -32767;
    return qint16(std::trunc(sample * 32767.0F));
}

TEST(WavEncoder, EmptyRecordingIsTheHeaderAlone) {
    const QByteArray wav = AudioRecorder::wavData({});
    ASSERT_EQ(wav.size(), 44);
    EXPECT_EQ(qFromLittleEndian<quint32>(wav.constData() + 4), 36U);
    EXPECT_EQ(qFromLittleEndian<quint32>(wav.constData() + 40), 0U);
}

TEST(WavEncoder, HeaderByteByByte) {
    const std::vector<float> samples(0x1234, 0.0F); // 2n is 0x2468, 2n + 36 is 0x248c
    const QByteArray wav = AudioRecorder::wavData(samples);
    ASSERT_EQ(wav.size(), kHeader + 2 * 0x1234);
    const QByteArray expected = QByteArray::fromHex("52494646"   // RIFF
                                                    "8c240000"   // 36 + 2n
                                                    "57415645"   // WAVE
                                                    "666d7420"   // "fmt "
                                                    "10000000"   // 16
                                                    "0100"       // PCM
                                                    "0100"       // one channel
                                                    "803e0000"   // 16000
                                                    "007d0000"   // 32000
                                                    "0200"       // bytes a frame
                                                    "1000"       // bits a sample
                                                    "64617461"   // data
                                                    "68240000"); // 2n
    ASSERT_EQ(expected.size(), kHeader);
    EXPECT_EQ(wav.left(kHeader).toHex(), expected.toHex());
    EXPECT_EQ(wav.mid(kHeader), QByteArray(2 * 0x1234, '\0'));
}

TEST(WavEncoder, SamplesAreClampedScaledAndTruncated) {
    const std::vector<float> samples{1.0F, -1.0F, 0.5F, 2.0F};
    const QByteArray wav = AudioRecorder::wavData(samples);
    EXPECT_EQ(wav.mid(kHeader).toHex(), QByteArray("ff7f0180ff3fff7f"));
    EXPECT_EQ(sampleAt(wav, 0), 32767);
    EXPECT_EQ(sampleAt(wav, 1), -32767);
    EXPECT_EQ(sampleAt(wav, 2), 16383);
    EXPECT_EQ(sampleAt(wav, 3), 32767);
}

TEST(WavEncoder, TruncatesTowardZeroOnBothSides) {
    EXPECT_EQ(encodedOne(-0.5F), -16383);
    EXPECT_EQ(encodedOne(1.9F / 32767), 1);
    EXPECT_EQ(encodedOne(-1.9F / 32767), -1);
    EXPECT_EQ(encodedOne(0.9F / 32767), 0);
    EXPECT_EQ(encodedOne(-0.9F / 32767), 0);
    EXPECT_EQ(encodedOne(-0.0F), 0);
    EXPECT_EQ(encodedOne(std::numeric_limits<float>::denorm_min()), 0);
}

TEST(WavEncoder, ValuesThatAreNoAmplitude) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    EXPECT_EQ(encodedOne(std::numeric_limits<float>::quiet_NaN()), 32767);
    EXPECT_EQ(encodedOne(-std::numeric_limits<float>::quiet_NaN()), 32767);
    EXPECT_EQ(encodedOne(kInfinity), 32767);
    EXPECT_EQ(encodedOne(-kInfinity), -32767);
    EXPECT_EQ(encodedOne(std::numeric_limits<float>::max()), 32767);
    EXPECT_EQ(encodedOne(std::numeric_limits<float>::lowest()), -32767);
}

// Whatever way the loop is cut into vectors, each sample follows the rule, in its own place, and
// nothing is written beyond the last one.
TEST(WavEncoder, EveryLengthAndEverySampleFollowTheRule) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> amplitude(-1.3F, 1.3F);
    for (size_t count = 0; count <= 200; ++count) {
        std::vector<float> samples(count);
        for (float &sample : samples)
            sample = amplitude(random);
        if (count > 3)
            samples[count / 2] = std::numeric_limits<float>::quiet_NaN();
        const QByteArray wav = AudioRecorder::wavData(samples);
        ASSERT_EQ(wav.size(), kHeader + qsizetype(count) * 2);
        for (size_t index = 0; index < count; ++index)
            ASSERT_EQ(sampleAt(wav, index), expectedOne(samples[index]))
                << "sample " << index << " of " << count << ": " << samples[index];
    }
}

TEST(WavEncoder, LongerThanTheFormatCanSayEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const float one = 0;
    // Only the length is looked at before the refusal.
    const std::span<const float> tooLong(&one, (4294967295ULL - 36) / 2 + 1);
    EXPECT_DEATH(
        {
            qInstallMessageHandler(nullptr); // the tests' own would keep the last words to itself
            AudioRecorder::wavData(tooLong);
        },
        "do not fit");
}

} // namespace
} // namespace quenda
