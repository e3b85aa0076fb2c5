#pragma once
// Copies what another program has put on a selection, every representation of it, as far as that
// program plays along: it may hang, die, lie, or send without end, and costs a bounded amount of
// memory and time then. Owned by the clipboard session; clipboard thread only. Waits for no owner.

#include "Platform/Linux/SelectionContents.h"

#include <xcb/xcb.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace quenda {

class X11SelectionLink;

class X11SelectionReader {
public:
    using Clock = std::chrono::steady_clock;
    using Done = std::function<void(const std::shared_ptr<SelectionFetch> &)>;

    /// Bounds of one fetch. What does not fit is not copied.
    static constexpr qsizetype kMaxBytes = 64 * 1024 * 1024;
    static constexpr std::size_t kMaxRepresentations = 256;

    /// `done` is called once for each fetch that was not stopped.
    X11SelectionReader(X11SelectionLink &link, xcb_atom_t selection, Done done);

    bool busy() const { return m_fetch != nullptr; }
    /// Begins to fill `fetch` with what the present owner offers; requests carry `time`.
    /// Ends the one before.
    void start(std::shared_ptr<SelectionFetch> fetch, xcb_timestamp_t time);
    /// Gives the fetch back without a call of `done`; null where none is under way.
    std::shared_ptr<SelectionFetch> stop();

    void handleSelectionNotify(const xcb_selection_notify_event_t &notify);
    void handlePropertyChanged(xcb_window_t window, xcb_atom_t property);

    void tick(Clock::time_point now);
    std::optional<Clock::time_point> nextDeadline() const;

private:
    /// Each conversion has a window to itself, so that an answer that comes late is not taken for
    /// another one's.
    struct Window {
        xcb_window_t id = XCB_NONE;
        enum class State { Free, Busy, Abandoned } state = State::Free;
    };
    struct Conversion {
        xcb_window_t window = XCB_NONE;
        xcb_atom_t target = XCB_NONE;
        std::optional<std::size_t> index; ///< of the representation; none: the list of targets
        bool incremental = false;
        xcb_atom_t type = XCB_NONE; ///< of the chunks so far
        SelectionData data;
        Clock::time_point moved; ///< when the owner last did something for it
    };
    using Conversions = std::vector<Conversion>;

    bool wanted() const { return !m_fetch->cancelled() && Clock::now() < m_deadline; }
    void request(xcb_atom_t target, std::optional<std::size_t> index);
    xcb_window_t takeWindow();
    void setState(xcb_window_t window, Window::State state);
    void handleLateAnswer(Window &window);
    void receive(Conversions::iterator conversion);
    void receiveChunk(Conversions::iterator conversion);
    void acceptTargets(const QByteArray &bytes, xcb_atom_t type, int format);
    void offerTargets(const std::vector<xcb_atom_t> &atoms);
    void complete(Conversions::iterator conversion, xcb_atom_t type);
    void fail(Conversions::iterator conversion);
    void abandon(const Conversion &conversion);
    void proceed();
    void finish();

    X11SelectionLink &m_link;
    xcb_atom_t m_selection;
    Done m_done;
    xcb_atom_t m_property;
    xcb_atom_t m_targets;
    xcb_atom_t m_incr;

    std::vector<Window> m_windows;
    std::shared_ptr<SelectionFetch> m_fetch; ///< null: idle
    xcb_timestamp_t m_time = 0;
    Clock::time_point m_deadline;
    qsizetype m_bytesLeft = 0;
    std::vector<std::pair<xcb_atom_t, QByteArray>> m_offered; ///< to be converted
    std::size_t m_next = 0;                                   ///< of m_offered
    Conversions m_running;
};

} // namespace quenda
