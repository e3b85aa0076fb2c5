#pragma once
// May this program listen to and type on the keyboard, and does anything have the keyboard focus?
// Main thread only.

namespace quenda {

enum class TrustPrompt { Silent, Ask };

class Accessibility {
public:
    Accessibility() = default;
    Accessibility(const Accessibility &) = delete;
    Accessibility &operator=(const Accessibility &) = delete;
    virtual ~Accessibility() = default;

    /// Whether the system trusts this process to observe and post keyboard events. With `Ask` the
    /// system shows its own permission prompt where it has one; the answer is the present one.
    virtual bool isTrusted(TrustPrompt prompt = TrustPrompt::Silent) const = 0;

    /// Whether some user-interface element has the keyboard focus (not whether it takes text).
    /// False also where the system does not answer.
    virtual bool focusedElementExists() const = 0;
};

} // namespace quenda
