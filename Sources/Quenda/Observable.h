#pragma once
// An observable value: it tells its observers before each change, and hands them the value of the
// moment of subscription and each new one. Main thread only. An observer may subscribe, end any
// subscription or change the value from inside its call.

#include <functional>
#include <memory>
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
    /// value is announced like any other.
    void set(T value) {
        notify(m_willChange, [](const std::function<void()> &observer) { observer(); });
        m_value = std::move(value);
        const T announced = m_value; // an observer may change the value again
        notify(m_observers, [&](const Observer &observer) { observer(announced); });
    }

    /// Calls `observer` with the present value at once, then with each new one.
    [[nodiscard]] Subscription subscribe(Observer observer) {
        auto entry = std::make_shared<Observer>(std::move(observer));
        m_observers.push_back(entry);
        const T announced = m_value;
        (*entry)(announced);
        return Subscription(entry);
    }

    /// Calls `observer` before each change, while value() still answers the old one.
    [[nodiscard]] Subscription onWillChange(std::function<void()> observer) {
        auto entry = std::make_shared<std::function<void()>>(std::move(observer));
        m_willChange.push_back(entry);
        return Subscription(entry);
    }

private:
    template <typename F, typename Call>
    static void notify(std::vector<std::weak_ptr<F>> &entries, Call call) {
        std::erase_if(entries, [](const std::weak_ptr<F> &entry) { return entry.expired(); });
        const std::vector<std::weak_ptr<F>> round = entries;
        for (const std::weak_ptr<F> &weak : round) {
            if (const std::shared_ptr<F> entry = weak.lock())
                call(*entry);
        }
    }

    T m_value;
    std::vector<std::weak_ptr<Observer>> m_observers;
    std::vector<std::weak_ptr<std::function<void()>>> m_willChange;
};

/// Maps each value with `project` and passes the result on only where it differs from the previous
/// one. The first one always passes.
template <typename T, typename Project, typename Sink>
std::function<void(const T &)> distinct(Project project, Sink sink) {
    using Projected = std::decay_t<decltype(project(std::declval<const T &>()))>;
    auto previous = std::make_shared<std::unique_ptr<Projected>>();
    return [previous, project = std::move(project), sink = std::move(sink)](const T &value) {
        Projected projected = project(value);
        if (*previous && **previous == projected)
            return;
        *previous = std::make_unique<Projected>(projected);
        sink(projected);
    };
}

} // namespace quenda
