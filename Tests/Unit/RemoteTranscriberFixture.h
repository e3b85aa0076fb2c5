#pragma once
// What the tests of the remote transcriber share: a recording, settings, and the parts of a body as
// they must stand in it.

#include "Quenda/AudioRecorder.h"
#include "Quenda/Config.h"
#include "Quenda/RemoteTranscriber.h"

#include <QByteArray>

#include <vector>

namespace quenda {

inline const std::vector<float> kSamples{0.0F, 0.5F, -0.5F, 1.0F};

inline Config configured(TranscriptionProvider provider,
                         const QString &key = QStringLiteral("sk-1")) {
    Config config = Config::defaults();
    config.provider = provider;
    config.apiKeys.insert(rawValue(provider), key);
    config.customBaseURL = QStringLiteral("https://host.example/v1");
    return config;
}

inline QByteArray field(const QByteArray &name, const QByteArray &value) {
    return "Content-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value;
}

inline QByteArray filePart() {
    return "Content-Disposition: form-data; name=\"file\"; filename=\"audio.wav\"\r\n"
           "Content-Type: audio/wav\r\n\r\n" +
           AudioRecorder::wavData(kSamples);
}

} // namespace quenda
