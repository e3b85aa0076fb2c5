#include "Platform/Linux/X11SelectionReader.h"

#include "Platform/Linux/X11SelectionLink.h"

#include <algorithm>
#include <utility>

namespace quenda {

namespace {
// The most that a fetch runs ahead of its use. Whoever needs the contents waits far shorter.
constexpr std::chrono::seconds kMaxDuration{3};
// A conversion that stands still this long does not hold up the others any more.
constexpr std::chrono::milliseconds kStall{30};
constexpr std::size_t kMaxRunning = 4;
// A window whose conversion never ended is kept: an owner that answers after all would otherwise
// get an error, and many programs end on one, with the user's contents.
constexpr std::size_t kMaxWindows = 32;
} // namespace

X11SelectionReader::X11SelectionReader(X11SelectionLink &link, xcb_atom_t selection, Done done)
    : m_link(link),
      m_selection(selection),
      m_done(std::move(done)),
      m_property(link.atom("QUENDA_SELECTION")),
      m_targets(link.atom("TARGETS")),
      m_incr(link.atom("INCR")) {}

void X11SelectionReader::start(std::shared_ptr<SelectionFetch> fetch, xcb_timestamp_t time) {
    stop();
    m_fetch = std::move(fetch);
    m_time = time;
    m_deadline = Clock::now() + kMaxDuration;
    m_bytesLeft = kMaxBytes;
    request(m_targets, std::nullopt);
}

std::shared_ptr<SelectionFetch> X11SelectionReader::stop() {
    for (const Conversion &each : m_running)
        abandon(each);
    m_running.clear();
    m_offered.clear();
    m_next = 0;
    return std::exchange(m_fetch, nullptr);
}

void X11SelectionReader::request(xcb_atom_t target, std::optional<std::size_t> index) {
    Conversion conversion;
    conversion.window = takeWindow();
    conversion.target = target;
    conversion.index = index;
    conversion.moved = Clock::now();
    xcb_convert_selection(m_link.xcb(), conversion.window, m_selection, target, m_property, m_time);
    m_running.push_back(std::move(conversion));
}

xcb_window_t X11SelectionReader::takeWindow() {
    const auto in = [this](Window::State state) {
        return std::find_if(m_windows.begin(), m_windows.end(),
                            [state](const Window &each) { return each.state == state; });
    };
    const auto free = in(Window::State::Free);
    if (free != m_windows.end()) {
        free->state = Window::State::Busy;
        return free->id;
    }
    if (m_windows.size() >= kMaxWindows) {
        const auto oldest = in(Window::State::Abandoned);
        if (oldest != m_windows.end()) {
            xcb_destroy_window(m_link.xcb(), oldest->id);
            m_windows.erase(oldest);
        }
    }
    m_windows.push_back({m_link.createWindow(), Window::State::Busy});
    return m_windows.back().id;
}

void X11SelectionReader::setState(xcb_window_t window, Window::State state) {
    for (Window &each : m_windows) {
        if (each.id == window)
            each.state = state;
    }
}

void X11SelectionReader::handleSelectionNotify(const xcb_selection_notify_event_t &notify) {
    const auto window =
        std::find_if(m_windows.begin(), m_windows.end(),
                     [&notify](const Window &each) { return each.id == notify.requestor; });
    if (window == m_windows.end())
        return;
    if (window->state == Window::State::Abandoned) {
        handleLateAnswer(*window);
        return;
    }
    const auto conversion =
        std::find_if(m_running.begin(), m_running.end(), [&notify](const Conversion &each) {
            return each.window == notify.requestor && each.target == notify.target &&
                   !each.incremental;
        });
    if (conversion == m_running.end() || notify.selection != m_selection)
        return;
    conversion->moved = Clock::now();
    if (notify.property == m_property)
        receive(conversion);
    else
        fail(conversion);
    proceed();
}

void X11SelectionReader::handleLateAnswer(Window &window) {
    const PropertyValue value = m_link.readProperty(window.id, m_property, 0);
    // To delete the announcement of chunks would call for the first of them.
    if (value.type == m_incr)
        return;
    xcb_delete_property(m_link.xcb(), window.id, m_property);
    window.state = Window::State::Free;
}

void X11SelectionReader::receive(Conversions::iterator conversion) {
    const PropertyValue value = m_link.readProperty(conversion->window, m_property, m_bytesLeft,
                                                    [this] { return wanted(); });
    if (value.type == m_incr) {
        const qsizetype atLeast = announcedBytes(value);
        if (atLeast > m_bytesLeft) {
            abandon(*conversion);
            m_running.erase(conversion);
            return;
        }
        conversion->incremental = true;
        conversion->data.bytes.reserve(atLeast);
        xcb_delete_property(m_link.xcb(), conversion->window, m_property);
        return;
    }
    xcb_delete_property(m_link.xcb(), conversion->window, m_property);
    if (value.type == XCB_NONE || value.tooLarge) {
        fail(conversion);
        return;
    }
    conversion->data.bytes = value.bytes;
    conversion->data.format = value.format;
    m_bytesLeft -= value.bytes.size();
    complete(conversion, value.type);
}

void X11SelectionReader::handlePropertyChanged(xcb_window_t window, xcb_atom_t property) {
    const auto conversion =
        std::find_if(m_running.begin(), m_running.end(), [window](const Conversion &each) {
            return each.window == window && each.incremental;
        });
    if (conversion == m_running.end() || property != m_property)
        return;
    conversion->moved = Clock::now();
    receiveChunk(conversion);
    proceed();
}

void X11SelectionReader::receiveChunk(Conversions::iterator conversion) {
    const PropertyValue chunk = m_link.readProperty(conversion->window, m_property, m_bytesLeft,
                                                    [this] { return wanted(); });
    if (chunk.type == XCB_NONE)
        return; // another event for a chunk that has been taken
    const ChunkOutcome outcome = addChunk(conversion->data, conversion->type, chunk);
    if (outcome == ChunkOutcome::Unsound) {
        m_bytesLeft += conversion->data.bytes.size();
        abandon(*conversion);
        m_running.erase(conversion);
        return;
    }
    xcb_delete_property(m_link.xcb(), conversion->window, m_property);
    m_bytesLeft -= chunk.bytes.size();
    if (outcome == ChunkOutcome::Last)
        complete(conversion, conversion->type);
}

void X11SelectionReader::complete(Conversions::iterator conversion, xcb_atom_t type) {
    setState(conversion->window, Window::State::Free);
    Conversion done = std::move(*conversion);
    m_running.erase(conversion);
    if (!done.index) {
        m_bytesLeft += done.data.bytes.size();
        acceptTargets(done.data.bytes, type, done.data.format);
        return;
    }
    done.data.target = m_offered[*done.index].second;
    done.data.type = m_link.names({type}).front();
    done.data.bytes.squeeze();
    if (!done.data.type.isEmpty())
        m_fetch->set(*done.index, std::move(done.data));
}

void X11SelectionReader::acceptTargets(const QByteArray &bytes, xcb_atom_t type, int format) {
    if ((type != XCB_ATOM_ATOM && type != m_targets) || format != 32) {
        offerTargets({});
        return;
    }
    // Twice as many as are fetched: room for the pseudo-targets, which are told by their names.
    offerTargets(distinctAtoms(bytes, 2 * kMaxRepresentations));
}

void X11SelectionReader::offerTargets(const std::vector<xcb_atom_t> &atoms) {
    const std::vector<QByteArray> names = m_link.names(atoms);
    for (std::size_t i = 0; i < atoms.size() && m_offered.size() < kMaxRepresentations; ++i) {
        if (!isPseudoTarget(names[i]))
            m_offered.emplace_back(atoms[i], names[i]);
    }
    m_fetch->setCount(m_offered.size());
}

// The owner refused, or what it sent is of no use.
void X11SelectionReader::fail(Conversions::iterator conversion) {
    const bool list = !conversion->index;
    setState(conversion->window, Window::State::Free);
    m_running.erase(conversion);
    // Some old owners keep no list and yet give text.
    if (list)
        offerTargets(m_link.atoms({"UTF8_STRING", "STRING"}));
}

// The owner may yet answer or send on: the window stays as it is, less what it holds.
void X11SelectionReader::abandon(const Conversion &conversion) {
    setState(conversion.window, Window::State::Abandoned);
    if (conversion.incremental) {
        xcb_change_property(m_link.xcb(), XCB_PROP_MODE_REPLACE, conversion.window, m_property,
                            m_incr, 32, 0, nullptr);
    }
}

void X11SelectionReader::proceed() {
    if (!m_fetch)
        return;
    const auto stalled = [now = Clock::now()](const Conversion &each) {
        return now - each.moved >= kStall;
    };
    while (m_next < m_offered.size() && m_running.size() < kMaxRunning &&
           std::all_of(m_running.begin(), m_running.end(), stalled)) {
        request(m_offered[m_next].first, m_next);
        ++m_next;
    }
    if (m_running.empty() && m_next == m_offered.size())
        finish();
}

void X11SelectionReader::finish() {
    const std::shared_ptr<SelectionFetch> fetch = stop();
    fetch->finish();
    m_done(fetch);
}

void X11SelectionReader::tick(Clock::time_point now) {
    if (!m_fetch)
        return;
    if (m_fetch->cancelled())
        stop();
    else if (now >= m_deadline)
        finish();
    else
        proceed();
}

std::optional<X11SelectionReader::Clock::time_point> X11SelectionReader::nextDeadline() const {
    if (!m_fetch)
        return std::nullopt;
    Clock::time_point next = m_deadline;
    if (m_next < m_offered.size() && m_running.size() < kMaxRunning && !m_running.empty()) {
        const auto last = std::max_element(
            m_running.begin(), m_running.end(),
            [](const Conversion &one, const Conversion &other) { return one.moved < other.moved; });
        next = std::min(next, last->moved + kStall);
    }
    return next;
}

} // namespace quenda
