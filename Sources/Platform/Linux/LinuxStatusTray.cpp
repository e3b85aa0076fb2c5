#include "Platform/Linux/LinuxStatusTray.h"

#include "Platform/Linux/X11Connection.h"
#include "Platform/Linux/X11Windows.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QMetaObject>

#include <xcb/xcb.h>

#include <utility>

namespace quenda {

namespace {

constexpr int kBusTimeout = 2000; // ms

QString watcherName() {
    return QStringLiteral("org.kde.StatusNotifierWatcher");
}

QString watcherPath() {
    return QStringLiteral("/StatusNotifierWatcher");
}

} // namespace

LinuxStatusTray::LinuxStatusTray(QObject *parent) : QObject(parent) {
    watchX11();
    watchBus();
}

LinuxStatusTray::~LinuxStatusTray() {
    if (qGuiApp)
        qGuiApp->removeNativeEventFilter(this);
}

bool LinuxStatusTray::hasHost() const {
    return m_busAnswered && (m_itemHost || m_x11Tray);
}

void LinuxStatusTray::setHostChangedHandler(std::function<void()> handler) {
    m_handler = std::move(handler);
}

void LinuxStatusTray::watchBus() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        m_busAnswered = true;
        return;
    }
    auto *owner =
        new QDBusServiceWatcher(watcherName(), bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(owner, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &newOwner) {
                setItemHost(false); // the items announced to the former one are forgotten
                if (!newOwner.isEmpty())
                    askForItemHost();
            });
    // Whoever keeps the list of items need not be the one that shows them.
    for (const QString &signal : {QStringLiteral("StatusNotifierHostRegistered"),
                                  QStringLiteral("StatusNotifierHostUnregistered")})
        bus.connect(watcherName(), watcherPath(), watcherName(), signal, this,
                    SLOT(askForItemHost()));
    askForItemHost();
}

void LinuxStatusTray::askForItemHost() {
    QDBusMessage question = QDBusMessage::createMethodCall(
        watcherName(), watcherPath(), QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    question << watcherName() << QStringLiteral("IsStatusNotifierHostRegistered");
    question.setAutoStartService(false);
    auto *answer = new QDBusPendingCallWatcher(
        QDBusConnection::sessionBus().asyncCall(question, kBusTimeout), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
        answer->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *answer;
        setItemHost(reply.isValid() && reply.value().variant().toBool());
    });
}

void LinuxStatusTray::setItemHost(bool present) {
    const bool first = !std::exchange(m_busAnswered, true);
    if (std::exchange(m_itemHost, present) == present && !first)
        return;
    if (m_handler)
        m_handler();
}

void LinuxStatusTray::watchX11() {
    const auto *application =
        qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    xcb_connection_t *connection = application ? application->connection() : nullptr;
    if (!connection)
        return;
    const auto atom = [connection](const QByteArray &name) {
        const XcbOwned<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            connection, xcb_intern_atom(connection, false, uint16_t(name.size()), name.constData()),
            nullptr));
        return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    };
    m_trayAtom = atom("_NET_SYSTEM_TRAY_S" + QByteArray::number(x11::screenNumber()));
    m_managerAtom = atom("MANAGER");
    // A tray that comes tells so to whoever listens at the root window, as Qt does.
    qGuiApp->installNativeEventFilter(this);
    const XcbOwned<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
        connection, xcb_get_selection_owner(connection, m_trayAtom), nullptr));
    m_x11Tray = owner && owner->owner != XCB_WINDOW_NONE;
}

bool LinuxStatusTray::nativeEventFilter(const QByteArray &type, void *message, qintptr *) {
    if (type != "xcb_generic_event_t")
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    if ((event->response_type & 0x7f) != XCB_CLIENT_MESSAGE)
        return false;
    const auto *news = reinterpret_cast<const xcb_client_message_event_t *>(event);
    // Items will be made; not in the middle of Qt's reading of events.
    if (news->format == 32 && news->type == m_managerAtom && news->data.data32[1] == m_trayAtom)
        QMetaObject::invokeMethod(this, &LinuxStatusTray::setX11Tray, Qt::QueuedConnection);
    return false;
}

void LinuxStatusTray::setX11Tray() {
    if (!std::exchange(m_x11Tray, true) && m_busAnswered && !m_itemHost && m_handler)
        m_handler();
}

} // namespace quenda
