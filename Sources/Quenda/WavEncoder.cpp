// The recorder's WAV encoding: a canonical header and 16-bit samples.
#include "Quenda/AudioRecorder.h"

#include <QtEndian>

#include <algorithm>
#include <cstring>

namespace quenda {

namespace {

constexpr size_t kHeaderBytes = 44;
constexpr size_t kMostSamples = (4294967295ULL - 36) / 2; // the sizes are unsigned 32-bit fields

constexpr float kFullScale = 32767;

constexpr size_t kBlock = 64;

// Scales and clamps a block, truncates it toward zero and writes it to `to`. A sample of 1 or more
// scales to full scale or more, so clamping last gives the same as clamping first. The order of the
// comparisons takes a NaN to full scale. Two plain loops of a fixed length are what compilers turn
// into vector code already at -O2.
inline void encodeBlock(const float *from, char *to) {
    float clamped[kBlock];
    for (size_t index = 0; index < kBlock; ++index) {
        const float scaled = from[index] * kFullScale;
        const float capped = scaled < kFullScale ? scaled : kFullScale;
        clamped[index] = capped > -kFullScale ? capped : -kFullScale;
    }
    qint16 encoded[kBlock];
    for (size_t index = 0; index < kBlock; ++index)
        encoded[index] = qToLittleEndian(qint16(qint32(clamped[index])));
    std::memcpy(to, encoded, sizeof encoded);
}

class FieldWriter {
public:
    explicit FieldWriter(char *to) : m_to(to) {}
    void tag(const char (&text)[5]) {
        std::memcpy(m_to, text, 4);
        m_to += 4;
    }
    template <typename Field>
    void number(Field value) {
        qToLittleEndian(value, m_to);
        m_to += sizeof(Field);
    }

private:
    char *m_to;
};

} // namespace

QByteArray AudioRecorder::wavData(std::span<const float> samples) {
    if (samples.size() > kMostSamples)
        qFatal("AudioRecorder: %zu samples do not fit in a WAV file", samples.size());
    const auto dataBytes = quint32(samples.size() * 2);
    QByteArray wav(qsizetype(kHeaderBytes) + qsizetype(dataBytes), Qt::Uninitialized);

    FieldWriter header(wav.data());
    header.tag("RIFF");
    header.number<quint32>(36 + dataBytes);
    header.tag("WAVE");
    header.tag("fmt ");
    header.number<quint32>(16); // size of the format chunk
    header.number<quint16>(1);  // PCM
    header.number<quint16>(1);  // channels
    header.number<quint32>(kSampleRate);
    header.number<quint32>(kSampleRate * 2); // bytes a second
    header.number<quint16>(2);               // bytes a frame
    header.number<quint16>(16);              // bits a sample
    header.tag("data");
    header.number<quint32>(dataBytes);

    const float *from = samples.data();
    char *to = wav.data() + kHeaderBytes;
    size_t left = samples.size();
    for (; left >= kBlock; left -= kBlock) {
        encodeBlock(from, to);
        from += kBlock;
        to += kBlock * sizeof(qint16);
    }
    if (left > 0) {
        float padded[kBlock] = {};
        char encoded[kBlock * sizeof(qint16)];
        std::copy_n(from, left, padded);
        encodeBlock(padded, encoded);
        std::memcpy(to, encoded, left * sizeof(qint16));
    }
    return wav;
}

} // namespace quenda
