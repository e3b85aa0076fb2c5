#pragma once
// While it lives, a child process is born with SIGTERM and SIGINT at their defaults although this
// process ignores them. Main thread only; hold it around the launch of a child.

#include <csignal>

namespace quenda::mac {

/// An ignored signal stays ignored in a child, a caught one does not. So the two are caught here,
/// to no effect: one that arrives meanwhile still reaches the dispatch source that watches for it.
class ChildSignals {
public:
    ChildSignals() {
        catchIgnored(SIGTERM, m_terminate);
        catchIgnored(SIGINT, m_interrupt);
    }
    ChildSignals(const ChildSignals &) = delete;
    ChildSignals &operator=(const ChildSignals &) = delete;
    ~ChildSignals() {
        sigaction(SIGINT, &m_interrupt, nullptr);
        sigaction(SIGTERM, &m_terminate, nullptr);
    }

private:
    static void doNothing(int) {}

    static void catchIgnored(int number, struct sigaction &before) {
        sigaction(number, nullptr, &before);
        if ((before.sa_flags & SA_SIGINFO) != 0 || before.sa_handler != SIG_IGN)
            return;
        struct sigaction caught = {};
        caught.sa_handler = &doNothing;
        caught.sa_flags = SA_RESTART;
        sigaction(number, &caught, nullptr);
    }

    struct sigaction m_terminate = {};
    struct sigaction m_interrupt = {};
};

} // namespace quenda::mac
