#pragma once
// Sends a recording to a cloud service that speaks the OpenAI audio-transcription protocol.
// Stateless. Main thread only.

#include "Platform/Error.h"

#include <functional>
#include <vector>

class QObject;
class QString;

namespace quenda {

class HttpClient;
struct Config;

class RemoteTranscriber {
public:
    using Completion = std::function<void(const Result<QString> &)>;

    /// Recognises 16 kHz mono samples with the provider, key and model of `config`. `completion`
    /// gets the cleaned text or an error (code 20, or the transport's own) exactly once, later, on
    /// the main thread, unless `context` goes away first.
    static void transcribe(const std::vector<float> &samples, const Config &config,
                           HttpClient &http, const QObject *context, Completion completion);
};

} // namespace quenda
