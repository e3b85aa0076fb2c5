#pragma once
// Waiting in a test for what comes through the event loop. On the test's main thread.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <functional>

namespace quenda {

/// Runs the event loop until `condition` holds. False where it does not within `milliseconds`.
inline bool waitUntil(const std::function<bool()> &condition, int milliseconds = 5000) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > milliseconds)
            return false;
        QCoreApplication::processEvents();
        QThread::msleep(1);
    }
    return true;
}

/// Runs the event loop for that long.
inline void pass(int milliseconds) {
    waitUntil([] { return false; }, milliseconds);
}

} // namespace quenda
