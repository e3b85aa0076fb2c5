#include "Fakes/VirtualScheduler.h"

#include <algorithm>

namespace quenda::fakes {

struct VirtualScheduler::Entry {
    std::chrono::milliseconds due{0};
    long long order = 0;
    Task task;
    std::chrono::milliseconds interval{0}; ///< 0: once
    bool bound = false;                    ///< dies with `context`
    QPointer<const QObject> context;
    bool dead = false;
};

class VirtualScheduler::Handle final : public Scheduler::Timer {
public:
    explicit Handle(std::shared_ptr<Entry> entry) : m_entry(std::move(entry)) {}
    ~Handle() override { m_entry->dead = true; }

private:
    std::shared_ptr<Entry> m_entry;
};

VirtualScheduler::VirtualScheduler() : m_wallStart(QDate(2026, 3, 1), QTime(9, 0), Qt::UTC) {}

VirtualScheduler::~VirtualScheduler() = default;

std::shared_ptr<VirtualScheduler::Entry> VirtualScheduler::add(std::chrono::milliseconds delay,
                                                               Task task) {
    auto entry = std::make_shared<Entry>();
    entry->due = m_uptime + std::max(delay, std::chrono::milliseconds(0));
    entry->order = m_order++;
    entry->task = std::move(task);
    m_entries.push_back(entry);
    return entry;
}

void VirtualScheduler::after(std::chrono::milliseconds delay, const QObject *context, Task task) {
    const auto entry = add(delay, std::move(task));
    entry->bound = true;
    entry->context = context;
}

Scheduler::TimerHandle VirtualScheduler::once(std::chrono::milliseconds delay, Task task) {
    return std::make_unique<Handle>(add(delay, std::move(task)));
}

Scheduler::TimerHandle VirtualScheduler::every(std::chrono::milliseconds interval, Task task) {
    const auto entry = add(interval, std::move(task));
    entry->interval = interval;
    return std::make_unique<Handle>(entry);
}

std::shared_ptr<VirtualScheduler::Entry>
VirtualScheduler::nextDue(std::chrono::milliseconds until) const {
    std::shared_ptr<Entry> best;
    for (const auto &entry : m_entries) {
        if (entry->dead || (entry->bound && !entry->context) || entry->due > until)
            continue;
        if (!best || entry->due < best->due ||
            (entry->due == best->due && entry->order < best->order))
            best = entry;
    }
    return best;
}

void VirtualScheduler::advance(std::chrono::milliseconds span) {
    const std::chrono::milliseconds until = m_uptime + span;
    while (const std::shared_ptr<Entry> entry = nextDue(until)) {
        m_uptime = std::max(m_uptime, entry->due);
        const Task task = entry->task;
        if (entry->interval.count() > 0) {
            entry->due += entry->interval;
            entry->order = m_order++;
        } else {
            entry->dead = true;
        }
        task();
        std::erase_if(m_entries, [](const auto &each) {
            return each->dead || (each->bound && !each->context);
        });
    }
    m_uptime = until;
}

int VirtualScheduler::repeatingTimers() const {
    return int(repeatingIntervals().size());
}

std::vector<std::chrono::milliseconds> VirtualScheduler::repeatingIntervals() const {
    std::vector<std::chrono::milliseconds> intervals;
    for (const auto &entry : m_entries) {
        if (!entry->dead && entry->interval.count() > 0)
            intervals.push_back(entry->interval);
    }
    std::sort(intervals.begin(), intervals.end());
    return intervals;
}

int VirtualScheduler::pendingOneShots() const {
    return int(std::count_if(m_entries.begin(), m_entries.end(), [](const auto &entry) {
        return !entry->dead && entry->interval.count() == 0 && !(entry->bound && !entry->context);
    }));
}

} // namespace quenda::fakes
