#include "Platform/Linux/X11SelectionLink.h"

#include "Platform/Linux/X11Connection.h"

#include <xcb/xfixes.h>

#include <algorithm>

namespace quenda {

namespace {
constexpr std::uint32_t kSliceBytes = 1024 * 1024;
// As large as other toolkits' chunks; every server takes requests of this size.
constexpr std::uint64_t kMaxChunkBytes = 256 * 1024;
constexpr int kMaxNameBytes = 255;
constexpr qsizetype kMaxRemembered = 4096;
} // namespace

std::unique_ptr<X11SelectionLink> X11SelectionLink::open(const QByteArray &display) {
    int screen = 0;
    xcb_connection_t *xcb = connectToX(display.isEmpty() ? nullptr : display.constData(), &screen);
    std::unique_ptr<X11SelectionLink> link(new X11SelectionLink(xcb));
    if (link->broken() || !link->setUp(screen))
        return nullptr;
    return link;
}

X11SelectionLink::~X11SelectionLink() {
    xcb_disconnect(m_xcb);
}

bool X11SelectionLink::setUp(int screen) {
    const xcb_query_extension_reply_t *extension = xcb_get_extension_data(m_xcb, &xcb_xfixes_id);
    if (!extension || !extension->present)
        return false;
    m_selectionNotify = std::uint8_t(extension->first_event + XCB_XFIXES_SELECTION_NOTIFY);
    const XcbPointer<xcb_xfixes_query_version_reply_t> version(
        xcb_xfixes_query_version_reply(m_xcb, xcb_xfixes_query_version(m_xcb, 1, 0), nullptr));
    if (!version)
        return false;

    const std::uint64_t requestBytes = std::uint64_t(xcb_get_maximum_request_length(m_xcb)) * 4;
    const std::uint64_t header = 64;
    if (requestBytes <= header)
        return false;
    m_chunkBytes = int(std::min(kMaxChunkBytes, (requestBytes - header) / 4 * 4));

    xcb_screen_iterator_t each = xcb_setup_roots_iterator(xcb_get_setup(m_xcb));
    for (; each.rem > 1 && screen > 0; --screen)
        xcb_screen_next(&each);
    if (each.rem == 0)
        return false;
    m_root = each.data->root;
    m_window = createWindow();
    return !broken();
}

xcb_window_t X11SelectionLink::createWindow() {
    const xcb_window_t window = xcb_generate_id(m_xcb);
    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_create_window(m_xcb, XCB_COPY_FROM_PARENT, window, m_root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
    return window;
}

bool X11SelectionLink::isOwnWindow(xcb_window_t window) const {
    const xcb_setup_t *setup = xcb_get_setup(m_xcb);
    return (window & ~setup->resource_id_mask) == setup->resource_id_base;
}

void X11SelectionLink::remember(const QByteArray &name, xcb_atom_t atom) {
    // Other programs choose the names, so the memory of them has a bound.
    if (m_atoms.size() >= kMaxRemembered || m_names.size() >= kMaxRemembered) {
        m_atoms.clear();
        m_names.clear();
    }
    m_atoms.insert(name, atom);
    m_names.insert(atom, name);
}

xcb_atom_t X11SelectionLink::atom(const QByteArray &name) {
    return atoms({name}).front();
}

std::vector<xcb_atom_t> X11SelectionLink::atoms(const std::vector<QByteArray> &names) {
    std::vector<xcb_intern_atom_cookie_t> cookies(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!m_atoms.contains(names[i])) {
            cookies[i] =
                xcb_intern_atom(m_xcb, 0, std::uint16_t(names[i].size()), names[i].constData());
        }
    }
    std::vector<xcb_atom_t> found;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (cookies[i].sequence == 0) {
            found.push_back(m_atoms.value(names[i], XCB_NONE));
            continue;
        }
        const XcbPointer<xcb_intern_atom_reply_t> reply(
            xcb_intern_atom_reply(m_xcb, cookies[i], nullptr));
        found.push_back(reply ? reply->atom : XCB_NONE);
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (cookies[i].sequence != 0 && found[i] != XCB_NONE)
            remember(names[i], found[i]);
    }
    return found;
}

std::vector<QByteArray> X11SelectionLink::names(const std::vector<xcb_atom_t> &atoms) {
    std::vector<xcb_get_atom_name_cookie_t> cookies(atoms.size());
    for (std::size_t i = 0; i < atoms.size(); ++i) {
        if (!m_names.contains(atoms[i]))
            cookies[i] = xcb_get_atom_name(m_xcb, atoms[i]);
    }
    std::vector<QByteArray> found;
    for (std::size_t i = 0; i < atoms.size(); ++i) {
        if (cookies[i].sequence == 0) {
            found.push_back(m_names.value(atoms[i]));
            continue;
        }
        // With a place for the error it is not queued as an event.
        xcb_generic_error_t *error = nullptr;
        const XcbPointer<xcb_get_atom_name_reply_t> reply(
            xcb_get_atom_name_reply(m_xcb, cookies[i], &error));
        const XcbPointer<xcb_generic_error_t> freed(error);
        const int length = reply ? xcb_get_atom_name_name_length(reply.get()) : 0;
        found.push_back(length <= kMaxNameBytes && length > 0
                            ? QByteArray(xcb_get_atom_name_name(reply.get()), length)
                            : QByteArray());
    }
    for (std::size_t i = 0; i < atoms.size(); ++i) {
        if (cookies[i].sequence != 0 && !found[i].isEmpty())
            remember(found[i], atoms[i]);
    }
    return found;
}

xcb_window_t X11SelectionLink::selectionOwner(xcb_atom_t selection) const {
    const XcbPointer<xcb_get_selection_owner_reply_t> reply(
        xcb_get_selection_owner_reply(m_xcb, xcb_get_selection_owner(m_xcb, selection), nullptr));
    return reply ? reply->owner : XCB_NONE;
}

PropertyValue X11SelectionLink::readProperty(xcb_window_t window, xcb_atom_t property,
                                             qsizetype limit,
                                             const std::function<bool()> &wanted) const {
    PropertyValue value;
    while (!wanted || wanted()) {
        xcb_generic_error_t *error = nullptr;
        const XcbPointer<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            m_xcb,
            xcb_get_property(m_xcb, 0, window, property, XCB_GET_PROPERTY_TYPE_ANY,
                             std::uint32_t(value.bytes.size() / 4), kSliceBytes / 4),
            &error));
        const XcbPointer<xcb_generic_error_t> freed(error);
        if (!reply)
            return {};
        const QByteArrayView bytes(static_cast<const char *>(xcb_get_property_value(reply.get())),
                                   xcb_get_property_value_length(reply.get()));
        switch (addSlice(value, {reply->type, reply->format, bytes, reply->bytes_after}, limit)) {
        case SliceOutcome::More:
            break;
        case SliceOutcome::Whole:
        case SliceOutcome::TooLarge:
            return value;
        case SliceOutcome::Void:
            return {};
        }
    }
    return {};
}

} // namespace quenda
