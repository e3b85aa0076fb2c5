// The fakes keep to what the real backends keep to, so that what is tested on them holds.

#include "Contract/AudioInputContract.h"
#include "Contract/KeyTapContract.h"
#include "Contract/PasteboardContract.h"
#include "Fakes/FakeAudioInput.h"
#include "Fakes/FakeKeyTap.h"
#include "Fakes/FakePasteboard.h"

namespace quenda::contract {
namespace {

class FakeKeyboardWorld {
public:
    KeyTapFactory &factory() { return m_taps; }
    void press(int keyCode) {
        if (keyCode == keys::kEscape)
            m_taps.keyDown(keyCode);
        else
            m_taps.flagsChanged(keyCode, keys::kFlagAlternate);
    }
    void release(int keyCode) {
        if (keyCode != keys::kEscape)
            m_taps.flagsChanged(keyCode, 0);
    }
    void settle() {}

private:
    fakes::FakeKeyTapFactory m_taps;
};

class FakePasteboardWorld {
public:
    Pasteboard &pasteboard() { return m_pasteboard; }
    QString textType() const { return QStringLiteral("text/plain"); }
    void settle() { m_pasteboard.deliver(); }

private:
    fakes::FakePasteboard m_pasteboard;
};

class SlowFakePasteboardWorld {
public:
    SlowFakePasteboardWorld() { m_pasteboard.slow = true; }
    Pasteboard &pasteboard() { return m_pasteboard; }
    QString textType() const { return QStringLiteral("text/plain"); }
    void settle() { m_pasteboard.deliver(); }

private:
    fakes::FakePasteboard m_pasteboard;
};

class FakeMicrophoneWorld {
public:
    AudioInput &input() { return m_input; }
    QString deviceName() const { return QStringLiteral("Fake Microphone"); }
    void speak() { m_input.speak(0.2); }
    void removeDevice() { m_input.changeDefaultDevice(std::nullopt); }

private:
    fakes::FakeAudioInput m_input;
};

using FakePasteboards = testing::Types<FakePasteboardWorld, SlowFakePasteboardWorld>;
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, KeyTapContract, FakeKeyboardWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, PasteboardContract, FakePasteboards);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, AudioInputContract, FakeMicrophoneWorld);

} // namespace
} // namespace quenda::contract
