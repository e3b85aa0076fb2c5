#include "Quenda/TimelyEnd.h"

#include <cstdlib>

namespace quenda {

TimelyEnd::~TimelyEnd() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_over = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void TimelyEnd::expect(std::chrono::milliseconds patience, int status) {
    m_thread = std::thread([this, patience, status] {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_changed.wait_for(lock, patience, [this] { return m_over; }))
            std::_Exit(status);
    });
}

} // namespace quenda
