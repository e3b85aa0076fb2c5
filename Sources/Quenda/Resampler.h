#pragma once
// Turns mono audio of any usual rate into 16 kHz, keeping its state from one buffer to the next.
// One for each recording, owned by the recorder. Not thread-safe: the audio thread converts, and
// the main thread drains it once the audio thread has been stopped.

#include <QtGlobal>

#include <memory>
#include <optional>
#include <span>
#include <vector>

struct soxr;

namespace quenda {

class Resampler {
public:
    static constexpr double kTargetRate = 16000; ///< frames a second

    /// None where `sourceRate` (frames a second) cannot be converted; 1000 to 768000 can.
    static std::unique_ptr<Resampler> create(double sourceRate);
    ~Resampler();
    Resampler(const Resampler &) = delete;
    Resampler &operator=(const Resampler &) = delete;

    /// How many frames one conversion of `frames` frames gives at the most. A number that does not
    /// fit in 32 bits ends the program.
    static quint32 outputCapacity(double sourceRate, qsizetype frames);

    double sourceRate() const { return m_sourceRate; }

    /// Takes in all of `input` and returns what has come out so far, at most outputCapacity()
    /// frames; the rest comes with later buffers. The view holds until the next call. None where
    /// the conversion failed. Throws std::bad_alloc where there is no memory for the output.
    std::optional<std::span<const float>> convert(std::span<const float> input);

    /// Ends the input and returns what the filter still held: a few milliseconds of sound. The
    /// output is then as long as the input. Nothing can be converted afterwards.
    std::span<const float> drain();

private:
    struct Deleter {
        void operator()(soxr *instance) const;
    };

    explicit Resampler(double sourceRate);

    double m_sourceRate;
    std::unique_ptr<soxr, Deleter> m_soxr; ///< none where the rates are equal
    std::vector<float> m_output;
};

} // namespace quenda
