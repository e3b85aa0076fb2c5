// The X11 backend keeps to the contracts of keyboard and pasteboard, on a real X server.

#include "Contract/KeyTapContract.h"
#include "Contract/PasteboardContract.h"
#include "Platform/Linux/SyntheticKeys.h"
#include "Platform/Linux/X11KeyTap.h"
#include "Platform/Linux/X11Pasteboard.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QThread>

namespace quenda::contract {
namespace {

void letPass(int milliseconds) {
    QElapsedTimer since;
    since.start();
    while (!since.hasExpired(milliseconds)) {
        QCoreApplication::processEvents();
        QThread::msleep(1);
    }
}

class X11KeyboardWorld {
public:
    KeyTapFactory &factory() { return m_taps; }
    void press(int keyCode) { send(QStringLiteral("keydown"), keyCode); }
    void release(int keyCode) { send(QStringLiteral("keyup"), keyCode); }
    void settle() { letPass(100); }

private:
    static void send(const QString &command, int keyCode) {
        // A single digit would name the key of that digit; right Alt goes by its key code, because
        // its name stands for different keys on different layouts.
        const QString key =
            keyCode == keys::kEscape ? QStringLiteral("Escape") : QStringLiteral("108");
        ASSERT_EQ(QProcess::execute(QStringLiteral("xdotool"), {command, key}), 0);
    }

    X11KeyTapFactory m_taps{std::make_shared<SyntheticKeys>()};
};

class X11PasteboardWorld {
public:
    X11PasteboardWorld() { m_pasteboard.clear(); }
    Pasteboard &pasteboard() { return m_pasteboard; }
    QString textType() const { return QStringLiteral("UTF8_STRING"); }
    QString pictureType() const { return QStringLiteral("image/x-test"); }
    QString dataType() const { return QStringLiteral("application/x-test"); }
    void settle() { letPass(200); }

private:
    X11Pasteboard m_pasteboard;
};

INSTANTIATE_TYPED_TEST_SUITE_P(X11, KeyTapContract, X11KeyboardWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(X11, PasteboardContract, X11PasteboardWorld);

} // namespace
} // namespace quenda::contract
