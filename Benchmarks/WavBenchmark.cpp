// wavData() for five minutes of sound, beside a plain copy of the bytes that come out and beside
// libsndfile writing the same file to memory.

#include "Quenda/AudioRecorder.h"

#include <benchmark/benchmark.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace {

constexpr size_t kSamples = size_t(quenda::AudioRecorder::kSampleRate) * 300;
constexpr auto kBytes = int64_t(kSamples * 2 + 44);

const std::vector<float> &recording() {
    static const std::vector<float> samples = [] {
        std::vector<float> tone(kSamples);
        for (size_t index = 0; index < kSamples; ++index)
            tone[index] = 0.7F * std::sin(float(index % 16000) * 0.17F);
        return tone;
    }();
    return samples;
}

void report(benchmark::State &state) {
    state.SetBytesProcessed(state.iterations() * kBytes);
}

void wavData(benchmark::State &state) {
    recording();
    for ([[maybe_unused]] const auto &turn : state)
        benchmark::DoNotOptimize(quenda::AudioRecorder::wavData(recording()));
    report(state);
}
BENCHMARK(wavData)->Unit(benchmark::kMillisecond);

// Into fresh memory each time, as wavData() does.
void plainCopy(benchmark::State &state) {
    const QByteArray source(kBytes, 'x');
    for ([[maybe_unused]] const auto &turn : state) {
        QByteArray copy(kBytes, Qt::Uninitialized);
        std::memcpy(copy.data(), source.constData(), size_t(kBytes));
        benchmark::DoNotOptimize(copy);
    }
    report(state);
}
BENCHMARK(plainCopy)->Unit(benchmark::kMillisecond);

// What libsndfile writes into.
struct Memory {
    std::vector<char> bytes;
    sf_count_t at = 0;

    static SF_VIRTUAL_IO callbacks() {
        return {[](void *self) { return sf_count_t(of(self).bytes.size()); },
                [](sf_count_t offset, int whence, void *self) {
                    Memory &memory = of(self);
                    const sf_count_t base = whence == SEEK_SET   ? 0
                                            : whence == SEEK_CUR ? memory.at
                                                                 : sf_count_t(memory.bytes.size());
                    return memory.at = base + offset;
                },
                [](void *, sf_count_t, void *) { return sf_count_t(0); },
                [](const void *data, sf_count_t count, void *self) {
                    Memory &memory = of(self);
                    memory.bytes.resize(std::max(memory.bytes.size(), size_t(memory.at + count)));
                    std::memcpy(memory.bytes.data() + memory.at, data, size_t(count));
                    memory.at += count;
                    return count;
                },
                [](void *self) { return of(self).at; }};
    }
    static Memory &of(void *self) { return *static_cast<Memory *>(self); }
};

void libsndfile(benchmark::State &state) {
    recording();
    for ([[maybe_unused]] const auto &turn : state) {
        Memory memory;
        memory.bytes.reserve(size_t(kBytes));
        SF_VIRTUAL_IO callbacks = Memory::callbacks();
        SF_INFO info{};
        info.samplerate = quenda::AudioRecorder::kSampleRate;
        info.channels = 1;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        SNDFILE *const file = sf_open_virtual(&callbacks, SFM_WRITE, &info, &memory);
        sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
        sf_write_float(file, recording().data(), sf_count_t(kSamples));
        sf_close(file);
        if (memory.bytes.size() != size_t(kBytes))
            state.SkipWithError("libsndfile wrote another length");
        benchmark::DoNotOptimize(memory.bytes.data());
    }
    report(state);
}
BENCHMARK(libsndfile)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
