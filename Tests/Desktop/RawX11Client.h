#pragma once
// An X11 client of the barest kind, for tests: an owner that behaves as badly as a test wants, on a
// thread of its own, and a requestor that blocks its caller.

#include <QByteArray>

#include <xcb/xcb.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

namespace quenda::tests {

class RawX11Client {
public:
    RawX11Client();
    ~RawX11Client();
    RawX11Client(const RawX11Client &) = delete;
    RawX11Client &operator=(const RawX11Client &) = delete;

    xcb_connection_t *xcb() const { return m_xcb; }
    xcb_window_t window() const { return m_window; }
    xcb_atom_t atom(const QByteArray &name) const;
    QByteArray name(xcb_atom_t atom) const;
    xcb_window_t owner(const QByteArray &selection) const;
    /// In effect when the call returns.
    void take(const QByteArray &selection);
    void sync() const;

    struct Answer {
        bool given = false; ///< the owner answered in time, and did not refuse
        QByteArray type;
        int format = 0;
        QByteArray bytes;
        int chunks = 0; ///< 0: the answer came in one piece
    };
    /// Asks the selection's owner, and takes at most `maxChunks` chunks of what it sends.
    Answer convert(const QByteArray &selection, const QByteArray &target, int maxChunks = 1 << 30,
                   std::chrono::milliseconds patience = std::chrono::seconds(10));
    /// Takes one more chunk of an answer that was left; false where none comes in time.
    bool takeChunk(std::chrono::milliseconds patience);
    /// Of a property of the own window, up to 1 MB.
    QByteArray propertyBytes(const QByteArray &name) const;
    /// The names in a list of atoms.
    std::vector<QByteArray> atomNames(const QByteArray &list) const;

protected:
    using Event = std::optional<std::vector<std::uint8_t>>;
    Event nextEvent(std::chrono::steady_clock::time_point deadline) const;
    Answer property(bool remove) const;

    xcb_connection_t *m_xcb;
    xcb_window_t m_window;
    xcb_atom_t m_property;
};

/// Owns a selection and hands each request to the test.
class RawX11Owner : public RawX11Client {
public:
    using Request = xcb_selection_request_event_t;
    struct Behaviour {
        std::function<void(RawX11Owner &, const Request &)> request;
        /// A property that was sent to a requestor has been taken.
        std::function<void(RawX11Owner &, xcb_window_t, xcb_atom_t)> taken;
    };

    explicit RawX11Owner(Behaviour behaviour, const QByteArray &selection = "CLIPBOARD");
    ~RawX11Owner();

    // For the behaviours; on the owner's thread.
    void put(const Request &request, const QByteArray &type, int format, const QByteArray &bytes);
    void putProperty(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, int format,
                     const QByteArray &bytes);
    void putTargets(const Request &request, const std::vector<QByteArray> &targets);
    void startChunks(const Request &request, std::uint32_t announced);
    void notify(const Request &request, bool done = true);
    void flush() const { xcb_flush(m_xcb); }
    bool is(xcb_atom_t atom, const char *wanted) const { return atom == this->atom(wanted); }
    void quit() { m_quit = true; } ///< the connection closes

    std::atomic<int> requests = 0;

private:
    void run();

    Behaviour m_behaviour;
    std::atomic<bool> m_quit = false;
    std::thread m_thread;
};

} // namespace quenda::tests
