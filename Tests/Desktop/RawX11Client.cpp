#include "RawX11Client.h"

#include "Platform/Linux/X11Connection.h"

#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace quenda::tests {

namespace {

template <typename T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

template <typename T>
Reply<T> own(T *reply) {
    return Reply<T>(reply, &std::free);
}

template <typename T>
const T &as(const std::vector<std::uint8_t> &event) {
    return *reinterpret_cast<const T *>(event.data());
}

int type(const std::vector<std::uint8_t> &event) {
    return event[0] & 0x7F;
}

} // namespace

RawX11Client::RawX11Client() : m_xcb(connectToX(nullptr, nullptr)) {
    if (xcb_connection_has_error(m_xcb))
        std::abort();
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(m_xcb)).data;
    m_window = xcb_generate_id(m_xcb);
    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(m_xcb, XCB_COPY_FROM_PARENT, m_window, screen->root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
    m_property = atom("TEST_PROPERTY");
}

RawX11Client::~RawX11Client() {
    xcb_disconnect(m_xcb);
}

xcb_atom_t RawX11Client::atom(const QByteArray &name) const {
    const auto reply = own(xcb_intern_atom_reply(
        m_xcb, xcb_intern_atom(m_xcb, 0, std::uint16_t(name.size()), name.constData()), nullptr));
    return reply ? reply->atom : XCB_NONE;
}

QByteArray RawX11Client::name(xcb_atom_t atom) const {
    const auto reply = own(xcb_get_atom_name_reply(m_xcb, xcb_get_atom_name(m_xcb, atom), nullptr));
    return reply ? QByteArray(xcb_get_atom_name_name(reply.get()),
                              xcb_get_atom_name_name_length(reply.get()))
                 : QByteArray();
}

xcb_window_t RawX11Client::owner(const QByteArray &selection) const {
    const auto reply = own(xcb_get_selection_owner_reply(
        m_xcb, xcb_get_selection_owner(m_xcb, atom(selection)), nullptr));
    return reply ? reply->owner : XCB_NONE;
}

void RawX11Client::take(const QByteArray &selection) {
    xcb_set_selection_owner(m_xcb, m_window, atom(selection), XCB_CURRENT_TIME);
    sync();
}

void RawX11Client::sync() const {
    own(xcb_get_input_focus_reply(m_xcb, xcb_get_input_focus(m_xcb), nullptr));
}

RawX11Client::Event RawX11Client::nextEvent(std::chrono::steady_clock::time_point deadline) const {
    xcb_flush(m_xcb);
    for (;;) {
        if (const auto event = own(xcb_poll_for_event(m_xcb))) {
            const auto *bytes = reinterpret_cast<const std::uint8_t *>(event.get());
            return std::vector<std::uint8_t>(bytes, bytes + sizeof *event);
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || xcb_connection_has_error(m_xcb))
            return std::nullopt;
        pollfd descriptor{xcb_get_file_descriptor(m_xcb), POLLIN, 0};
        poll(&descriptor, 1, int(left.count()));
    }
}

RawX11Client::Answer RawX11Client::property(bool remove) const {
    const auto reply =
        own(xcb_get_property_reply(m_xcb,
                                   xcb_get_property(m_xcb, remove, m_window, m_property,
                                                    XCB_GET_PROPERTY_TYPE_ANY, 0, 1U << 28),
                                   nullptr));
    if (!reply || reply->type == XCB_NONE)
        return {};
    return {true, name(reply->type), reply->format,
            QByteArray(static_cast<const char *>(xcb_get_property_value(reply.get())),
                       xcb_get_property_value_length(reply.get())),
            0};
}

RawX11Client::Answer RawX11Client::convert(const QByteArray &selection, const QByteArray &target,
                                           int maxChunks, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    xcb_convert_selection(m_xcb, m_window, atom(selection), atom(target), m_property,
                          XCB_CURRENT_TIME);
    for (;;) {
        const Event event = nextEvent(deadline);
        if (!event)
            return {};
        if (type(*event) != XCB_SELECTION_NOTIFY)
            continue;
        if (as<xcb_selection_notify_event_t>(*event).property == XCB_NONE)
            return {};
        break;
    }
    Answer answer = property(true);
    if (answer.type != "INCR")
        return answer;
    answer.bytes.clear();
    while (answer.chunks < maxChunks) {
        const Event event = nextEvent(deadline);
        if (!event)
            return {};
        if (type(*event) != XCB_PROPERTY_NOTIFY ||
            as<xcb_property_notify_event_t>(*event).state != XCB_PROPERTY_NEW_VALUE)
            continue;
        // A chunk that is not to be the last is left with the owner waiting for it.
        const Answer chunk = property(answer.chunks + 1 < maxChunks);
        if (!chunk.given)
            continue;
        ++answer.chunks;
        answer.type = chunk.type;
        answer.format = chunk.format;
        if (chunk.bytes.isEmpty())
            break;
        answer.bytes += chunk.bytes;
    }
    return answer;
}

bool RawX11Client::takeChunk(std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    xcb_delete_property(m_xcb, m_window, m_property);
    while (const Event event = nextEvent(deadline)) {
        if (type(*event) == XCB_PROPERTY_NOTIFY &&
            as<xcb_property_notify_event_t>(*event).state == XCB_PROPERTY_NEW_VALUE)
            return true;
    }
    return false;
}

QByteArray RawX11Client::propertyBytes(const QByteArray &name) const {
    const auto reply = own(xcb_get_property_reply(
        m_xcb,
        xcb_get_property(m_xcb, 0, m_window, atom(name), XCB_GET_PROPERTY_TYPE_ANY, 0, 1U << 18),
        nullptr));
    return reply ? QByteArray(static_cast<const char *>(xcb_get_property_value(reply.get())),
                              xcb_get_property_value_length(reply.get()))
                 : QByteArray();
}

std::vector<QByteArray> RawX11Client::atomNames(const QByteArray &list) const {
    std::vector<QByteArray> names;
    for (qsizetype i = 0; i + 4 <= list.size(); i += 4) {
        xcb_atom_t each = XCB_NONE;
        std::memcpy(&each, list.constData() + i, sizeof each);
        names.push_back(name(each));
    }
    return names;
}

RawX11Owner::RawX11Owner(Behaviour behaviour, const QByteArray &selection)
    : m_behaviour(std::move(behaviour)) {
    take(selection);
    m_thread = std::thread([this] { run(); });
}

RawX11Owner::~RawX11Owner() {
    m_quit = true;
    m_thread.join();
}

void RawX11Owner::run() {
    using namespace std::chrono_literals;
    while (!m_quit) {
        const Event event = nextEvent(std::chrono::steady_clock::now() + 10ms);
        if (!event)
            continue;
        if (type(*event) == XCB_SELECTION_REQUEST) {
            const auto &request = as<Request>(*event);
            ++requests;
            // To see when the requestor takes what is sent.
            const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
            xcb_change_window_attributes(m_xcb, request.requestor, XCB_CW_EVENT_MASK, &mask);
            if (m_behaviour.request)
                m_behaviour.request(*this, request);
        } else if (type(*event) == XCB_PROPERTY_NOTIFY) {
            const auto &change = as<xcb_property_notify_event_t>(*event);
            if (change.state == XCB_PROPERTY_DELETE && m_behaviour.taken)
                m_behaviour.taken(*this, change.window, change.atom);
        }
        flush();
    }
    // What ends here is the client, as if it had been killed.
    xcb_set_close_down_mode(m_xcb, XCB_CLOSE_DOWN_DESTROY_ALL);
    xcb_destroy_window(m_xcb, m_window);
    flush();
}

void RawX11Owner::putProperty(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, int format,
                              const QByteArray &bytes) {
    xcb_change_property(m_xcb, XCB_PROP_MODE_REPLACE, window, property, type, std::uint8_t(format),
                        std::uint32_t(bytes.size() / (format / 8)), bytes.constData());
}

void RawX11Owner::put(const Request &request, const QByteArray &type, int format,
                      const QByteArray &bytes) {
    putProperty(request.requestor, request.property, atom(type), format, bytes);
    notify(request);
}

void RawX11Owner::putTargets(const Request &request, const std::vector<QByteArray> &targets) {
    QByteArray list;
    for (const QByteArray &target : targets) {
        const xcb_atom_t each = atom(target);
        list.append(reinterpret_cast<const char *>(&each), sizeof each);
    }
    put(request, "ATOM", 32, list);
}

void RawX11Owner::startChunks(const Request &request, std::uint32_t announced) {
    put(request, "INCR", 32,
        QByteArray(reinterpret_cast<const char *>(&announced), sizeof announced));
}

void RawX11Owner::notify(const Request &request, bool done) {
    xcb_selection_notify_event_t event{};
    event.response_type = XCB_SELECTION_NOTIFY;
    event.time = request.time;
    event.requestor = request.requestor;
    event.selection = request.selection;
    event.target = request.target;
    event.property = done ? request.property : XCB_NONE;
    char bytes[32] = {};
    std::memcpy(bytes, &event, sizeof event);
    xcb_send_event(m_xcb, 0, request.requestor, 0, bytes);
    flush();
}

} // namespace quenda::tests
