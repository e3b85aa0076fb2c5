// Tells which functions the main thread is in, while it is in them; for the stall watch.
//
// Owned by the watch. Made on the main thread; used from the watch's own. There can be one only.
//
// A signal interrupts the main thread, whose handler notes the return addresses in a static buffer;
// names are looked up afterwards, on the watch's thread. System calls go on where they were
// (SA_RESTART), and those that the kernel never continues, as poll(), are begun again by whoever
// calls them for any other signal's sake. The signal is SIGURG: nothing here uses it, it is there
// on every Unix, and by default nothing happens on it.
#pragma once

#include <QStringList>

#include <pthread.h>

namespace quenda {

class MainThreadFrames {
public:
    MainThreadFrames();
    MainThreadFrames(const MainThreadFrames &) = delete;
    MainThreadFrames &operator=(const MainThreadFrames &) = delete;
    ~MainThreadFrames();

    /// Has the main thread interrupted. What an earlier call asked for and nobody took is
    /// forgotten.
    void ask();
    /// The functions, the innermost first, if the main thread has answered since; once.
    [[nodiscard]] QStringList take();

private:
    const pthread_t m_main;
};

} // namespace quenda
