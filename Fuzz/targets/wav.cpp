// The WAV encoder, over any floats, read back as a player reads it.
#include "FuzzTarget.h"
#include "Input.h"
#include "Quenda/AudioRecorder.h"

#include <QtEndian>

#include <cmath>

namespace {

template <typename Number>
Number at(const QByteArray &wav, qsizetype offset) {
    PROMISE(offset + qsizetype(sizeof(Number)) <= wav.size());
    return qFromLittleEndian<Number>(wav.constData() + offset);
}

int expected(float sample) {
    if (std::isnan(sample) || sample >= 1)
        return 32767;
    if (sample <= -1)
        return -32767;
    return int(std::trunc(sample * 32767.0F));
}

} // namespace

// Little-endian floats.
QUENDA_FUZZ_TARGET(wav) {
    quenda::fuzz::Input floats(input);
    std::vector<float> samples;
    while (!floats.atEnd())
        samples.push_back(floats.number<float>());

    const QByteArray wav = quenda::AudioRecorder::wavData(samples);
    const auto dataBytes = quint32(samples.size() * 2);
    PROMISE(wav.size() == 44 + qsizetype(dataBytes));
    PROMISE(wav.first(4) == "RIFF" && at<quint32>(wav, 4) == 36 + dataBytes);
    PROMISE(wav.mid(8, 8) == "WAVEfmt " && at<quint32>(wav, 16) == 16);
    PROMISE(at<quint16>(wav, 20) == 1 && at<quint16>(wav, 22) == 1);
    PROMISE(at<quint32>(wav, 24) == 16000 && at<quint32>(wav, 28) == 32000);
    PROMISE(at<quint16>(wav, 32) == 2 && at<quint16>(wav, 34) == 16);
    PROMISE(wav.mid(36, 4) == "data" && at<quint32>(wav, 40) == dataBytes);
    for (size_t i = 0; i < samples.size(); ++i) {
        const int encoded = at<qint16>(wav, 44 + 2 * qsizetype(i));
        PROMISE_SHOWING(encoded == expected(samples[i]),
                        QStringLiteral("%1 became %2").arg(samples[i]).arg(encoded));
    }
}
