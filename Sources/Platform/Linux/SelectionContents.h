#pragma once
// What an X11 selection holds, as plain values that any thread may carry, and the result of
// fetching it that the clipboard thread fills while the main thread waits.

#include <QByteArray>
#include <QString>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace quenda {

/// One representation. Names are those of atoms, in Latin-1.
struct SelectionData {
    QByteArray target;
    QByteArray type;  ///< the property's type; mostly the target again
    int format = 8;   ///< 8, 16 or 32: the width of the units that the server may swap
    QByteArray bytes; ///< whole units in this host's byte order

    bool operator==(const SelectionData &) const = default;
};

/// In the owner's order.
using SelectionContents = std::vector<SelectionData>;

/// `text` under every name that X11 programs ask plain text by.
SelectionContents plainTextContents(const QString &text);
/// The part of `contents` that is plain text by its name.
SelectionContents plainTextOf(const SelectionContents &contents);
/// Whether `target` is a question to the owner or an order to it, not a representation.
bool isPseudoTarget(const QByteArray &target);

/// A fetch under way. Any thread.
class SelectionFetch {
public:
    /// Starts over for the contents of change number `tag`.
    void begin(std::int64_t tag) {
        const std::lock_guard lock(m_mutex);
        m_data.clear();
        m_tag = tag;
    }
    void setCount(std::size_t count) {
        const std::lock_guard lock(m_mutex);
        m_data.resize(count);
    }
    void set(std::size_t index, SelectionData data) {
        const std::lock_guard lock(m_mutex);
        m_data.at(index) = std::move(data);
    }
    void finish() { m_complete = true; }
    /// All that could be read has been read.
    bool complete() const { return m_complete; }

    /// Nobody waits any more.
    void cancel() { m_cancelled = true; }
    bool cancelled() const { return m_cancelled; }

    std::int64_t tag() const {
        const std::lock_guard lock(m_mutex);
        return m_tag;
    }
    /// What has arrived so far.
    SelectionContents contents() const {
        const std::lock_guard lock(m_mutex);
        SelectionContents arrived;
        for (const std::optional<SelectionData> &data : m_data) {
            if (data)
                arrived.push_back(*data);
        }
        return arrived;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::optional<SelectionData>> m_data;
    std::int64_t m_tag = 0;
    std::atomic<bool> m_complete = false;
    std::atomic<bool> m_cancelled = false;
};

} // namespace quenda
