#include "Quenda/Resampler.h"

#include <soxr.h>

#include <cmath>
#include <limits>

namespace quenda {

namespace {

// Beyond these no microphone exists, and soxr's filters would grow out of proportion.
constexpr double kLowestRate = 1000;
constexpr double kHighestRate = 768000; // the highest that PulseAudio knows

// Flat up to 6.8 kHz, and what folds back stays above that. Soxr's own HQ recipe is steeper but
// holds 37 ms at 48 kHz and gives its output in bursts: in between the level meter, fed by every
// buffer of 10 ms, would drop to zero. This one holds 9 ms and gives something for every buffer.
// 16 bits are what the recording ends up in.
constexpr double kPrecisionBits = 16;
constexpr double kPassbandEnd = 0.85; // of half the lower rate
constexpr double kStopbandBegin = 1.15;
constexpr unsigned kLog2SmallestTransform = 8; // soxr's least, for the shortest delay

constexpr size_t kDrainStep = 4096;

} // namespace

void Resampler::Deleter::operator()(soxr *instance) const {
    soxr_delete(instance);
}

Resampler::Resampler(double sourceRate) : m_sourceRate(sourceRate) {}

Resampler::~Resampler() = default;

std::unique_ptr<Resampler> Resampler::create(double sourceRate) {
    if (!(sourceRate >= kLowestRate && sourceRate <= kHighestRate))
        return nullptr;
    std::unique_ptr<Resampler> resampler(new Resampler(sourceRate));
    if (sourceRate == kTargetRate)
        return resampler;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    quality.precision = kPrecisionBits;
    quality.passband_end = kPassbandEnd;
    quality.stopband_begin = kStopbandBegin;
    soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    runtime.log2_min_dft_size = kLog2SmallestTransform;
    soxr_error_t error = nullptr;
    resampler->m_soxr.reset(
        soxr_create(sourceRate, kTargetRate, 1, &error, &io, &quality, &runtime));
    if (error != nullptr || !resampler->m_soxr)
        return nullptr;
    return resampler;
}

quint32 Resampler::outputCapacity(double sourceRate, qsizetype frames) {
    const double scaled = kTargetRate / sourceRate * double(frames);
    constexpr quint32 kSlack = 32;
    constexpr double kLimit = double(std::numeric_limits<quint32>::max()) - kSlack + 1;
    if (!(scaled >= 0 && scaled < kLimit))
        qFatal("Resampler: a buffer of %lld frames is too long", static_cast<long long>(frames));
    return quint32(scaled) + kSlack;
}

std::optional<std::span<const float>> Resampler::convert(std::span<const float> input) {
    if (!m_soxr)
        return input;
    m_output.resize(outputCapacity(m_sourceRate, qsizetype(input.size())));
    size_t taken = 0;
    size_t given = 0;
    // To soxr a null input says that no more will come; an empty view may well have one.
    const float *const data = input.empty() ? m_output.data() : input.data();
    // The capacity is beyond what the input can make, so soxr always takes all of it.
    const soxr_error_t error = soxr_process(m_soxr.get(), data, input.size(), &taken,
                                            m_output.data(), m_output.size(), &given);
    if (error != nullptr || taken != input.size())
        return std::nullopt;
    return std::span<const float>(m_output.data(), given);
}

std::span<const float> Resampler::drain() {
    m_output.clear();
    if (!m_soxr)
        return m_output;
    size_t given = 0;
    do {
        const size_t filled = m_output.size();
        m_output.resize(filled + kDrainStep);
        const soxr_error_t error = soxr_process(m_soxr.get(), nullptr, 0, nullptr,
                                                m_output.data() + filled, kDrainStep, &given);
        if (error != nullptr)
            given = 0;
        m_output.resize(filled + given);
    } while (given > 0);
    return m_output;
}

} // namespace quenda
