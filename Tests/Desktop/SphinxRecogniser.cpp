#include "SphinxRecogniser.h"

#include <pocketsphinx.h>
#include <sphinxbase/err.h>

#include <utility>

namespace quenda::desktop {

struct SphinxRecogniser::Decoder {
    cmd_ln_t *config = nullptr;
    ps_decoder_t *decoder = nullptr;

    ~Decoder() {
        if (decoder)
            ps_free(decoder);
        if (config)
            cmd_ln_free_r(config);
    }
};

std::unique_ptr<SphinxRecogniser> SphinxRecogniser::load() {
    err_set_logfp(nullptr);
    auto owned = std::make_unique<Decoder>();
    owned->config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", SPHINX_MODEL_DIR "/en-us", "-lm",
                                SPHINX_MODEL_DIR "/en-us.lm.bin", "-dict",
                                SPHINX_MODEL_DIR "/cmudict-en-us.dict", nullptr);
    if (owned->config)
        owned->decoder = ps_init(owned->config);
    if (!owned->decoder)
        return nullptr;
    return std::unique_ptr<SphinxRecogniser>(new SphinxRecogniser(std::move(owned)));
}

SphinxRecogniser::SphinxRecogniser(std::unique_ptr<Decoder> decoder)
    : m_decoder(std::move(decoder)) {}

SphinxRecogniser::~SphinxRecogniser() = default;

std::optional<std::string> SphinxRecogniser::recognise(const std::vector<std::int16_t> &samples) {
    ps_decoder_t *decoder = m_decoder->decoder;
    ps_start_stream(decoder); // forget the noise level of the previous recording
    if (ps_start_utt(decoder) < 0)
        return std::nullopt;
    // The whole utterance in one call: its own mean is then subtracted, not that of earlier ones.
    const int frames = ps_process_raw(decoder, samples.data(), samples.size(), FALSE, TRUE);
    if (ps_end_utt(decoder) < 0 || frames < 0)
        return std::nullopt;
    const char *heard = ps_get_hyp(decoder, nullptr);
    return std::string(heard ? heard : "");
}

} // namespace quenda::desktop
