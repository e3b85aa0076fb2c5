// Sends five minutes of sound to a transcription service as the program does, a few times over.
//   post-bench BASE-URL [COUNT]
// Prints the monotonic clock in nanoseconds at each call of `transcribe`; the server tells when the
// last byte arrived. Exits with 1 where an answer is an error.

#include "Quenda/AudioRecorder.h"
#include "Quenda/Config.h"
#include "Quenda/NetworkHttpClient.h"
#include "Quenda/RemoteTranscriber.h"

#include <QCoreApplication>
#include <QStringList>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

namespace {

std::vector<float> fiveMinutes() {
    std::vector<float> samples(std::size_t(quenda::AudioRecorder::kSampleRate) * 300);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = 0.5F * std::sin(float(i) * 0.173F);
    return samples;
}

long long monotonicNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

} // namespace

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 2) {
        std::fputs("usage: post-bench BASE-URL [COUNT]\n", stderr);
        return 2;
    }
    quenda::Config config = quenda::Config::defaults();
    config.provider = quenda::TranscriptionProvider::custom;
    config.customBaseURL = arguments[1];
    config.apiKeys.insert(QStringLiteral("custom"), QStringLiteral("benchmark"));
    const std::vector<float> samples = fiveMinutes();
    quenda::NetworkHttpClient http;
    int left = arguments.value(2, QStringLiteral("5")).toInt();
    std::function<void()> next = [&] {
        std::printf("%lld\n", monotonicNanoseconds());
        quenda::RemoteTranscriber::transcribe(
            samples, config, http, &application, [&](const quenda::Result<QString> &result) {
                if (!result.ok()) {
                    std::fprintf(stderr, "%s\n", qPrintable(result.error().localizedDescription));
                    QCoreApplication::exit(1);
                } else if (--left > 0) {
                    next();
                } else {
                    QCoreApplication::exit(0);
                }
            });
    };
    next();
    return QCoreApplication::exec();
}
