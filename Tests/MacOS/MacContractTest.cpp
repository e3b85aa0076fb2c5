// The macOS backend keeps to the contracts, on the present desktop: it types, takes the clipboard,
// listens to the microphone while it plays a sound, and opens a window of the terminal. It needs
// the permissions for accessibility, input monitoring and the microphone, which the system gives to
// the terminal that it is started from.

#include "Contract/AudioInputContract.h"
#include "Contract/KeyTapContract.h"
#include "Contract/LoginItemContract.h"
#include "Contract/PasteboardContract.h"
#include "Contract/WorkspaceContract.h"
#include "Fakes/TestMain.h"
#include "Platform/MacOS/CFOwner.h"
#include "Platform/Platform.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <ApplicationServices/ApplicationServices.h>

namespace quenda::contract {
namespace {

// One for the whole program, as in the program itself.
Platform &platform() {
    static Platform built = createPlatform();
    return built;
}

void letPass(int milliseconds) {
    QElapsedTimer since;
    since.start();
    while (!since.hasExpired(milliseconds)) {
        QCoreApplication::processEvents();
        QThread::msleep(1);
    }
}

class MacKeyboardWorld {
public:
    KeyTapFactory &factory() { return *platform().keyTaps; }
    void press(int keyCode) { post(keyCode, true); }
    void release(int keyCode) { post(keyCode, false); }
    void settle() { letPass(100); }

private:
    static void post(int keyCode, bool down) {
        const mac::CFOwner<CGEventSourceRef> source(
            CGEventSourceCreate(kCGEventSourceStateHIDSystemState));
        const mac::CFOwner<CGEventRef> event(
            CGEventCreateKeyboardEvent(source.get(), static_cast<CGKeyCode>(keyCode), down));
        ASSERT_TRUE(event);
        if (keyCode == keys::kRightOption) {
            CGEventSetType(event.get(), kCGEventFlagsChanged);
            CGEventSetFlags(event.get(), down ? keys::kFlagAlternate : 0);
        }
        CGEventPost(kCGHIDEventTap, event.get());
    }
};

class MacPasteboardWorld {
public:
    MacPasteboardWorld() { pasteboard().clear(); }
    Pasteboard &pasteboard() { return *platform().pasteboard; }
    QString textType() const { return QStringLiteral("public.utf8-plain-text"); }
    QString pictureType() const { return QStringLiteral("org.quenda.test-picture"); }
    QString dataType() const { return QStringLiteral("org.quenda.test-data"); }
    void settle() {}
};

class MacMicrophoneWorld {
public:
    AudioInput &input() { return *platform().audioInput; }
    QString deviceName() const {
        return platform().audioInput->defaultDeviceName().value_or(QString());
    }
    qsizetype longestBuffer(int) { return qsizetype(input().nativeFormat().sampleRate); }
    void speak() {
        platform().sounds->play(QStringLiteral("Bottle"));
        letPass(1000);
    }
};

class MacDesktopWorld {
public:
    MacDesktopWorld() {
        QFile program(m_program);
        EXPECT_TRUE(program.open(QIODevice::WriteOnly));
        program.write("#!/bin/sh\n: > '" + m_opened.toUtf8() + "'\n");
        program.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    Workspace &workspace() { return *platform().workspace; }
    QUrl address() const { return QUrl::fromLocalFile(m_program); }
    bool hasOpened() const { return QFile::exists(m_opened); }

private:
    QString m_program = fakes::testHome() + QStringLiteral("/opened.command");
    QString m_opened = fakes::testHome() + QStringLiteral("/opened");
};

class MacLoginWorld {
public:
    LoginItem &item() { return *platform().loginItem; }
};

INSTANTIATE_TYPED_TEST_SUITE_P(Keyboard, KeyTapContract, MacKeyboardWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Clipboard, PasteboardContract, MacPasteboardWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Microphone, AudioInputContract, MacMicrophoneWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Workspace, WorkspaceContract, MacDesktopWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Workspace, FloatingPanelContract, MacDesktopWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(LoginItem, LoginItemContract, MacLoginWorld);

} // namespace
} // namespace quenda::contract
