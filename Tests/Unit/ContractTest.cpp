// The fakes keep to what the real backends keep to, so that what is tested on them holds.

#include "Contract/AudioInputContract.h"
#include "Contract/KeyTapContract.h"
#include "Contract/LoginItemContract.h"
#include "Contract/PasteboardContract.h"
#include "Contract/WorkspaceContract.h"
#include "Fakes/FakeAudioInput.h"
#include "Fakes/FakeKeyTap.h"
#include "Fakes/FakePasteboard.h"
#include "Fakes/FakePlatform.h"

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
    QString pictureType() const { return QStringLiteral("image/x-test"); }
    QString dataType() const { return QStringLiteral("application/x-test"); }
    void settle() { m_pasteboard.deliver(); }

private:
    fakes::FakePasteboard m_pasteboard;
};

class SlowFakePasteboardWorld {
public:
    SlowFakePasteboardWorld() { m_pasteboard.slow = true; }
    Pasteboard &pasteboard() { return m_pasteboard; }
    QString textType() const { return QStringLiteral("text/plain"); }
    QString pictureType() const { return QStringLiteral("image/x-test"); }
    QString dataType() const { return QStringLiteral("application/x-test"); }
    void settle() { m_pasteboard.deliver(); }

private:
    fakes::FakePasteboard m_pasteboard;
};

class FakeMicrophoneWorld {
public:
    AudioInput &input() { return m_input; }
    QString deviceName() const { return QStringLiteral("Fake Microphone"); }
    qsizetype longestBuffer(int asked) const { return asked; }
    void speak() { m_input.speak(0.2); }
    void removeDevice() { m_input.changeDefaultDevice(std::nullopt); }

private:
    fakes::FakeAudioInput m_input;
};

class FakeDesktopWorld {
public:
    Workspace &workspace() { return m_workspace; }
    QUrl address() const { return QUrl(QStringLiteral("https://example.org/a?b=c")); }
    bool hasOpened() const { return m_workspace.opened.contains(address()); }

private:
    fakes::FakeWorkspace m_workspace;
};

class FakeLoginWorld {
public:
    LoginItem &item() { return m_item; }

private:
    fakes::FakeLoginItem m_item;
};

class RefusingLoginWorld {
public:
    RefusingLoginWorld() { m_item.refuse = true; }
    LoginItem &item() { return m_item; }

private:
    fakes::FakeLoginItem m_item;
};

using FakePasteboards = testing::Types<FakePasteboardWorld, SlowFakePasteboardWorld>;
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, KeyTapContract, FakeKeyboardWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, PasteboardContract, FakePasteboards);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, AudioInputContract, FakeMicrophoneWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, LostAudioInputContract, FakeMicrophoneWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, WorkspaceContract, FakeDesktopWorld);
using FakeLoginItems = testing::Types<FakeLoginWorld, RefusingLoginWorld>;
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, LoginItemContract, FakeLoginItems);

} // namespace
} // namespace quenda::contract
