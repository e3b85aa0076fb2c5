#pragma once
// An observable value: it tells its observers before each change, and hands them the value of the
// moment of subscription and each new one. Main thread only. An observer may subscribe, end any
// subscription or change the value from inside its call, but not destroy the observable.

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace quenda {

/// Keeps one subscription alive; destroying it ends the subscription. May outlive the observable.
class Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::shared_ptr<void> entry) : m_entry(std::move(entry)) {}

private:
    std::shared_ptr<void> m_entry;
};

template <typename T>
class Observable {
public:
    using Observer = std::function<void(const T &)>;

    explicit Observable(T initial = T()) : m_value(std::move(initial)) {}
    Observable(const Observable &) = delete;
    Observable &operator=(const Observable &) = delete;

    const T &value() const { return m_value; }

    /// Tells the will-change observers, stores `value`, then hands it to the observers. An equal
    /// value is announced like any other. Called by an observer, it stores the value at once and
    /// hands it on after the present one, so that every observer gets all values in their order.
    void set(T value) {
        for (const auto &weak : living(m_willChange)) {
            if (const auto observer = weak.lock())
                (*observer)();
        }
        m_value = std::move(value);
        m_rounds.push_back({m_value, living(m_observers)});
        deliver();
    }

    /// Calls `observer` with the present value at once, then with each new one.
    [[nodiscard]] Subscription subscribe(Observer observer) {
        auto entry = std::make_shared<Observer>(std::move(observer));
        m_observers.push_back(entry);
        const bool outermost = !std::exchange(m_delivering, true);
        (*entry)(T(m_value)); // a copy: the observer may change the value
        if (outermost) {
            m_delivering = false;
            deliver();
        }
        return Subscription(entry);
    }

    /// Calls `observer` before each change, while value() still answers the old one.
    [[nodiscard]] Subscription onWillChange(std::function<void()> observer) {
        auto entry = std::make_shared<std::function<void()>>(std::move(observer));
        m_willChange.push_back(entry);
        return Subscription(entry);
    }

private:
    template <typename F>
    using Entries = std::vector<std::weak_ptr<F>>;
    struct Round {
        T value;
        Entries<Observer> observers; ///< those who were subscribed when it was set
    };

    template <typename F>
    static Entries<F> living(Entries<F> &entries) {
        std::erase_if(entries, [](const auto &entry) { return entry.expired(); });
        return entries;
    }

    void deliver() {
        if (std::exchange(m_delivering, true))
            return;
        while (!m_rounds.empty()) {
            const Round round = std::move(m_rounds.front());
            m_rounds.pop_front();
            for (const auto &weak : round.observers) {
                if (const auto observer = weak.lock())
                    (*observer)(round.value);
            }
        }
        m_delivering = false;
    }

    T m_value;
    Entries<Observer> m_observers;
    Entries<std::function<void()>> m_willChange;
    std::deque<Round> m_rounds;
    bool m_delivering = false;
};

/// Maps each value with `project` and passes on the first result and each that differs from the
/// previous one.
template <typename T, typename Project, typename Sink>
std::function<void(const T &)> distinct(Project project, Sink sink) {
    using Projected = std::decay_t<decltype(project(std::declval<const T &>()))>;
    auto previous = std::make_shared<std::optional<Projected>>();
    return [previous, project = std::move(project), sink = std::move(sink)](const T &value) {
        const Projected projected = project(value);
        if (*previous && **previous == projected)
            return;
        previous->emplace(projected);
        sink(projected);
    };
}

} // namespace quenda
