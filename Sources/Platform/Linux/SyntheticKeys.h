#pragma once
// The key strokes that the program itself types, so that whoever listens to the keyboard can tell
// them from the user's. The X server marks synthetic events as such, but not whose they are, and
// remote desktops drive the whole keyboard with synthetic ones: so the strokes are counted instead.
// Shared by the poster and the taps. Main thread only.

#include <array>
#include <cstdint>
#include <vector>

namespace quenda {

/// Strokes that were typed and have not been met again in the stream of events.
class OwnStrokes {
public:
    void expect(std::uint8_t keyCode, bool press) { ++m_counts[index(keyCode, press)]; }
    /// Whether this event is one of the expected; it is not expected any more then. Events that
    /// look alike are interchangeable: it does not matter which of two is taken for the user's.
    bool claim(std::uint8_t keyCode, bool press);
    void clear() { m_counts.fill(0); }

private:
    static std::size_t index(std::uint8_t keyCode, bool press) {
        return std::size_t(keyCode) * 2 + (press ? 1 : 0);
    }
    std::array<std::uint8_t, 512> m_counts{};
};

class SyntheticKeys {
public:
    class Listener {
    public:
        Listener() = default;
        Listener(const Listener &) = delete;
        Listener &operator=(const Listener &) = delete;
        virtual ~Listener() = default;
        /// Reads every event that the X server has generated up to now.
        virtual void readArrivedEvents() = 0;

        OwnStrokes ownStrokes;
    };

    void addListener(Listener *listener) { m_listeners.push_back(listener); }
    void removeListener(Listener *listener) { std::erase(m_listeners, listener); }

    /// Announces a stroke to every listener, before it is typed.
    void announce(std::uint8_t keyCode, bool press);
    /// All announced strokes have been typed and processed by the X server: every listener reads
    /// them now; those that did not become events are forgotten.
    void finish();
    /// Changes whenever something was typed.
    std::uint64_t generation() const { return m_generation; }

private:
    std::vector<Listener *> m_listeners;
    std::uint64_t m_generation = 0;
};

} // namespace quenda
