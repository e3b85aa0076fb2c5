#pragma once
// A keyboard that tests press.

#include "Platform/KeyTap.h"

#include <vector>

namespace quenda::fakes {

class FakeKeyTapFactory final : public KeyTapFactory {
public:
    std::unique_ptr<KeyTap> createTap(KeyTap::Handler handler) override;
    KeyReach reach() const override { return keyReach; }

    KeyReach keyReach = KeyReach::Everywhere;

    bool refuse = false;        ///< createTap answers null
    bool enableRefused = false; ///< setEnabled(true) has no effect
    int created = 0;            ///< taps made so far
    int liveTaps() const { return int(m_taps.size()); }
    bool newestEnabled() const; ///< false where there is no tap
    int enableCalls = 0;        ///< setEnabled(true) on any tap

    /// Delivers an event to every enabled tap; the two "disabled" notices to every tap.
    void send(const KeyEvent &event);
    void flagsChanged(int keyCode, std::uint64_t flags);
    void keyDown(int keyCode, std::uint64_t flags = 0);
    /// The system switches all taps off without a word.
    void disableSilently();

private:
    class Tap;
    std::vector<Tap *> m_taps;
};

} // namespace quenda::fakes
