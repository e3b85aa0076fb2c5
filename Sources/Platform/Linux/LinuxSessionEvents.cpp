#include "Platform/Linux/LinuxSessionEvents.h"

#include "Platform/Linux/LogindListener.h"

#include <QSocketNotifier>
#include <QTimer>

#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <utility>

namespace quenda {

namespace {

// Launching is done by then; nobody is missed who goes to sleep within this time.
constexpr std::chrono::milliseconds kLogindDelay{500};

constexpr std::array kSignals{SIGTERM, SIGINT};
std::array<struct sigaction, kSignals.size()> previousActions;

// What the signal handler writes to: it counts the signals that have not been handled yet.
int signalCounter = -1;

// Only what is allowed inside a signal handler. A full counter loses nothing: it is readable.
void countSignal(int) {
    const int savedErrno = errno;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(signalCounter, &one, sizeof one);
    errno = savedErrno;
}

} // namespace

LinuxSessionEvents::LinuxSessionEvents() = default;

LinuxSessionEvents::~LinuxSessionEvents() {
    if (m_logind)
        m_logind->stop();
    if (!m_signals)
        return;
    for (std::size_t i = 0; i < kSignals.size(); ++i)
        sigaction(kSignals[i], &previousActions[i], nullptr);
    m_signals.reset();
    close(std::exchange(signalCounter, -1));
}

void LinuxSessionEvents::setWakeHandler(std::function<void()> handler) {
    m_onWake = std::move(handler);
    if (m_logind || !m_onWake)
        return;
    m_logind = LogindListener::create([this] {
        if (m_onWake)
            m_onWake();
    });
    QTimer::singleShot(kLogindDelay, m_logind.get(), [listener = std::weak_ptr(m_logind)] {
        if (const auto alive = listener.lock())
            LogindListener::listen(alive);
    });
}

// A handler, neither an ignored signal nor a blocked one: child processes would inherit those two,
// while a handler is back at the default in every program that is executed.
void LinuxSessionEvents::setTerminateHandler(std::function<void()> handler) {
    m_onTerminate = std::move(handler);
    if (m_signals)
        return;
    signalCounter = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (signalCounter < 0)
        return;
    m_signals = std::make_unique<QSocketNotifier>(signalCounter, QSocketNotifier::Read);
    connect(m_signals.get(), &QSocketNotifier::activated, this, &LinuxSessionEvents::readSignals);
    struct sigaction action {};
    action.sa_handler = countSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < kSignals.size(); ++i)
        sigaction(kSignals[i], &action, &previousActions[i]);
}

void LinuxSessionEvents::readSignals() {
    std::uint64_t count = 0;
    if (read(signalCounter, &count, sizeof count) != ssize_t(sizeof count))
        return;
    for (; count > 0 && m_onTerminate; --count) {
        const std::function<void()> handler = m_onTerminate;
        handler();
    }
}

} // namespace quenda
