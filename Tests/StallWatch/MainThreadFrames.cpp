#include "StallWatch/MainThreadFrames.h"

#include <QByteArray>
#include <QString>

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>

namespace quenda {
namespace {

constexpr int kMostFrames = 64;
constexpr int kHandlersOwn = 2;         // the handler, and what the kernel put before it
constexpr qsizetype kMostLetters = 160; // of a name: templates have no end
constexpr int kSignal = SIGURG;

void *frames[kMostFrames];
// 0: nobody asks; -1: asked; else the number of frames. Only the one whose turn it is by this
// touches the frames.
std::atomic<int> state{0};
constexpr int kAsked = -1;

void note(int /*signal*/) {
    const int error = errno;
    if (state.load() == kAsked)
        state = backtrace(frames, kMostFrames);
    errno = error;
}

QString name(void *address) {
    Dl_info info{};
    // The return address may be the first of the next function.
    if (!dladdr(static_cast<char *>(address) - 1, &info) || !info.dli_fname)
        return QStringLiteral("?");
    const QString file = QString::fromLocal8Bit(info.dli_fname).section(u'/', -1);
    if (!info.dli_sname) {
        const auto offset = static_cast<char *>(address) - static_cast<char *>(info.dli_fbase);
        return QStringLiteral("%1+0x%2").arg(file).arg(offset, 0, 16);
    }
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status), &std::free);
    const QString function =
        QString::fromUtf8(status == 0 ? readable.get() : info.dli_sname).left(kMostLetters);
    return QStringLiteral("%1 (%2)").arg(function, file);
}

} // namespace

MainThreadFrames::MainThreadFrames() : m_main(pthread_self()) {
    // The first call loads a library, which must not happen in the handler.
    void *unused[1];
    backtrace(unused, 1);
    struct sigaction action {};
    action.sa_handler = note;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(kSignal, &action, nullptr);
}

MainThreadFrames::~MainThreadFrames() {
    struct sigaction action {};
    action.sa_handler = SIG_IGN; // one may still be on its way
    sigaction(kSignal, &action, nullptr);
}

void MainThreadFrames::ask() {
    state = kAsked;
    pthread_kill(m_main, kSignal);
}

QStringList MainThreadFrames::take() {
    const int count = state.load();
    if (count <= 0)
        return {};
    QStringList names;
    for (int i = kHandlersOwn; i < count; ++i)
        names.append(name(frames[i]));
    state = 0;
    return names;
}

} // namespace quenda
