#include "Platform/Linux/DBusRemoteControl.h"

#include "DBusInterface.h"
#include "Platform/Linux/RemoteWire.h"
#include "Platform/Linux/SessionBus.h"
#include "Quenda/Log.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include <utility>

namespace quenda {

namespace {

constexpr std::chrono::milliseconds kPatience{500}; // for a bus that has answered before
constexpr uint kNameIsOurs = 1;                     // RequestName: primary owner

const QString kApplication = QStringLiteral("org.freedesktop.Application");

// freedesktop.org on desktop entries, "D-Bus Activation".
constexpr char kApplicationXml[] = R"xml(
  <interface name="org.freedesktop.Application">
    <method name="Activate">
      <arg name="platform_data" type="a{sv}" direction="in"/>
    </method>
    <method name="Open">
      <arg name="uris" type="as" direction="in"/>
      <arg name="platform_data" type="a{sv}" direction="in"/>
    </method>
    <method name="ActivateAction">
      <arg name="action_name" type="s" direction="in"/>
      <arg name="parameter" type="av" direction="in"/>
      <arg name="platform_data" type="a{sv}" direction="in"/>
    </method>
  </interface>
)xml";

// Actions are called as the words of the command line.
std::optional<RemoteCommand> actionCommand(const QString &name) {
    static const std::pair<QLatin1String, RemoteCommand> kActions[] = {
        {QLatin1String("start"), RemoteCommand::Start},
        {QLatin1String("stop"), RemoteCommand::Stop},
        {QLatin1String("toggle"), RemoteCommand::Toggle},
        {QLatin1String("cancel"), RemoteCommand::Cancel},
        {QLatin1String("retry"), RemoteCommand::Retry},
        {QLatin1String("settings"), RemoteCommand::ShowSettings},
        {QLatin1String("welcome"), RemoteCommand::ShowWelcome},
        {QLatin1String("about"), RemoteCommand::ShowAbout},
        {QLatin1String("quit"), RemoteCommand::Quit},
    };
    for (const auto &[word, command] : kActions) {
        if (name == word)
            return command;
    }
    return std::nullopt;
}

std::optional<RemoteRequest> applicationRequest(const QDBusMessage &message) {
    const QString member = message.member();
    const QString signature = message.signature();
    // The program opens no files; whoever wants it to sees where it is set up.
    if ((member == QLatin1String("Activate") && signature == QLatin1String("a{sv}")) ||
        (member == QLatin1String("Open") && signature == QLatin1String("asa{sv}")))
        return RemoteRequest{};
    if (member != QLatin1String("ActivateAction") || signature != QLatin1String("sava{sv}"))
        return std::nullopt;
    const std::optional<RemoteCommand> command =
        actionCommand(message.arguments().constFirst().toString());
    return command ? std::optional(RemoteRequest{*command, 0}) : std::nullopt;
}

std::optional<RemoteRequest> ownRequest(const QDBusMessage &message) {
    for (const wire::Method &method : wire::kMethods) {
        if (message.member() != QLatin1String(method.name))
            continue;
        const bool numbered = method.command == RemoteCommand::CopyHistory;
        if (message.signature() != (numbered ? QStringLiteral("u") : QString()))
            return std::nullopt;
        return RemoteRequest{method.command,
                             numbered ? message.arguments().constFirst().toUInt() : 0};
    }
    return std::nullopt;
}

} // namespace

DBusRemoteControl::DBusRemoteControl() = default;

DBusRemoteControl::~DBusRemoteControl() {
    if (m_offered)
        QDBusConnection::sessionBus().unregisterObject(QLatin1String(wire::kPath));
}

void DBusRemoteControl::setHandler(Handler handler) {
    m_handler = std::move(handler);
    if (m_handler && !std::exchange(m_offered, true))
        offer();
}

void DBusRemoteControl::offer() {
    const std::optional<SessionBus> found = findSessionBus(kPatience);
    if (found && found->usable()) {
        QDBusConnection bus = QDBusConnection::sessionBus();
        m_offered =
            bus.isConnected() && bus.registerVirtualObject(QLatin1String(wire::kPath), this);
        if (m_offered)
            return requestName(bus);
    }
    Log::log(QStringLiteral("remote: no session bus of this user, no commands are taken"));
}

// Asked for with a place in the queue: what another program holds becomes ours when it lets go.
void DBusRemoteControl::requestName(const QDBusConnection &bus) {
    QDBusMessage request = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("RequestName"));
    request << QString::fromLatin1(wire::kService) << 0U;
    auto *answer = new QDBusPendingCallWatcher(bus.asyncCall(request), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [answer] {
        answer->deleteLater();
        const QDBusPendingReply<uint> reply = *answer;
        if (!reply.isValid() || reply.value() != kNameIsOurs)
            Log::log(QStringLiteral("remote: another program has the bus name %1")
                         .arg(QLatin1String(wire::kService)));
    });
}

QString DBusRemoteControl::introspect(const QString &) const {
    return QLatin1String(kInterfaceXml) + QLatin1String(kApplicationXml);
}

bool DBusRemoteControl::handleMessage(const QDBusMessage &message,
                                      const QDBusConnection &connection) {
    const QString interface = message.interface();
    std::optional<RemoteRequest> request;
    if (interface == kApplication)
        request = applicationRequest(message);
    else if (interface.isEmpty() || interface == QLatin1String(wire::kInterface))
        request = ownRequest(message);
    else
        return false; // Qt knows the bus's own interfaces
    const QDBusMessage reply =
        request ? answer(message, *request)
                : message.createErrorReply(QDBusError::UnknownMethod,
                                           QStringLiteral("No such method, action or signature"));
    if (message.isReplyRequired())
        connection.send(reply);
    return true;
}

QDBusMessage DBusRemoteControl::answer(const QDBusMessage &message, const RemoteRequest &request) {
    const RemoteAnswer said =
        m_handler ? m_handler(request)
                  : RemoteAnswer{
                        QCoreApplication::translate("DBusRemoteControl", "Quenda is about to end."),
                        {},
                        {}};
    if (!said.refusal.isEmpty())
        return message.createErrorReply(QLatin1String(wire::kRefused), said.refusal);
    if (request.command == RemoteCommand::Status)
        return message.createReply(said.status);
    if (request.command == RemoteCommand::History)
        return message.createReply(said.entries);
    return message.createReply();
}

} // namespace quenda
