#pragma once
// PocketSphinx with Debian's US English model, behind one function. Owned by the server; one
// utterance at a time (the server holds a lock around it).

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quenda::desktop {

class SphinxRecogniser {
public:
    /// Loads the model (about a second); nothing if its files are missing or damaged.
    static std::unique_ptr<SphinxRecogniser> load();
    ~SphinxRecogniser();
    SphinxRecogniser(const SphinxRecogniser &) = delete;
    SphinxRecogniser &operator=(const SphinxRecogniser &) = delete;

    /// What was heard in 16 kHz mono samples, in lower case, words separated by blanks; empty if no
    /// word was. Nothing if the decoder failed. The same samples give the same words, whatever was
    /// heard before them.
    std::optional<std::string> recognise(const std::vector<std::int16_t> &samples);

private:
    struct Decoder;
    explicit SphinxRecogniser(std::unique_ptr<Decoder> decoder);
    std::unique_ptr<Decoder> m_decoder;
};

} // namespace quenda::desktop
