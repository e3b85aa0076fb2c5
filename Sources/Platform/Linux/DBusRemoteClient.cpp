// The other side: puts a request to the running program over the session bus.

#include "Platform/Linux/InstanceLock.h"
#include "Platform/Linux/RemoteWire.h"
#include "Platform/Linux/SessionBus.h"
#include "Platform/RemoteControl.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>

#include <chrono>
#include <future>
#include <memory>
#include <thread>

namespace quenda {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kBusPatience = 1000ms;
constexpr auto kAnswerPatience = 3000ms;
constexpr auto kTimerSlack = 200ms; // a time-out may come a little early by another clock
// A program that is starting, or ending: from the one lock to the other.
constexpr auto kChangePatience = 6000ms;
constexpr auto kLook = 25ms;
// Nothing takes longer, whatever the bus does.
constexpr auto kWholePatience = 12000ms;

struct Text {
    Q_DECLARE_TR_FUNCTIONS(RemoteClient)
};

RemoteReply notRunning() {
    return {RemoteOutcome::NotRunning, {}, Text::tr("Quenda is not running.")};
}

RemoteReply unreachable() {
    return {RemoteOutcome::NoAnswer,
            {},
            Text::tr("Quenda is running, but not to be reached over this session bus.")};
}

RemoteReply noAnswer() {
    return {RemoteOutcome::NoAnswer, {}, Text::tr("Quenda is running but does not answer.")};
}

RemoteReply foreign() {
    return {RemoteOutcome::Unavailable,
            {},
            Text::tr("Another program has the name %1 on the session bus.")
                .arg(QLatin1String(wire::kService))};
}

QDBusMessage call(const RemoteRequest &request) {
    QString name;
    for (const wire::Method &method : wire::kMethods) {
        if (method.command == request.command)
            name = QString::fromLatin1(method.name);
    }
    QDBusMessage message =
        QDBusMessage::createMethodCall(QLatin1String(wire::kService), QLatin1String(wire::kPath),
                                       QLatin1String(wire::kInterface), name);
    if (request.command == RemoteCommand::CopyHistory)
        message << request.entry;
    message.setAutoStartService(false);
    return message;
}

RemoteReply granted(const RemoteRequest &request, const QDBusMessage &message) {
    RemoteReply reply{RemoteOutcome::Answered, {}, {}};
    if (request.command == RemoteCommand::Status) {
        if (message.signature() != QLatin1String("a{sv}"))
            return foreign();
        const auto map =
            qdbus_cast<QVariantMap>(message.arguments().constFirst().value<QDBusArgument>());
        for (auto fact = map.begin(); fact != map.end(); ++fact) {
            const int type = fact->metaType().id();
            if (type == QMetaType::QString || type == QMetaType::Bool)
                reply.answer.status.insert(fact.key(), fact.value());
        }
    } else if (request.command == RemoteCommand::History) {
        if (message.signature() != QLatin1String("as"))
            return foreign();
        reply.answer.entries = message.arguments().constFirst().toStringList();
    }
    return reply;
}

enum class Heard { Something, NobodyThere, Nothing };

Heard heard(const QDBusMessage &message, Clock::duration waited) {
    if (message.type() == QDBusMessage::ReplyMessage)
        return Heard::Something;
    switch (QDBusError(message).type()) {
    case QDBusError::ServiceUnknown:
        return Heard::NobodyThere;
    case QDBusError::NoReply: // the bus says so, too, when the called program ends
        return waited < kAnswerPatience - kTimerSlack ? Heard::NobodyThere : Heard::Nothing;
    case QDBusError::Timeout:
    case QDBusError::TimedOut:
    case QDBusError::Disconnected:
        return Heard::Nothing;
    default:
        return message.errorName() == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner")
                   ? Heard::NobodyThere
                   : Heard::Something;
    }
}

RemoteReply waitForEnd(Clock::time_point deadline) {
    while (instanceExists()) {
        if (Clock::now() > deadline)
            return {RemoteOutcome::NoAnswer,
                    {},
                    Text::tr("Quenda was told to end and has not ended yet.")};
        std::this_thread::sleep_for(kLook);
    }
    return {RemoteOutcome::Answered, {}, {}};
}

RemoteReply ask(const RemoteRequest &request) {
    const std::optional<SessionBus> found = findSessionBus(kBusPatience);
    if (!found || !found->usable())
        return instanceExists() ? unreachable() : notRunning();
    const QDBusConnection bus =
        QDBusConnection::connectToBus(found->address, QStringLiteral("quenda-command"));
    if (!bus.isConnected())
        return instanceExists() ? unreachable() : notRunning();
    const Clock::time_point deadline = Clock::now() + kChangePatience;
    for (;;) {
        const Clock::time_point asked = Clock::now();
        const QDBusMessage message =
            bus.call(call(request), QDBus::Block, int(kAnswerPatience.count()));
        switch (heard(message, Clock::now() - asked)) {
        case Heard::Nothing:
            return instanceExists() ? noAnswer() : foreign();
        case Heard::Something:
            if (message.type() == QDBusMessage::ReplyMessage)
                return request.command == RemoteCommand::Quit ? waitForEnd(deadline)
                                                              : granted(request, message);
            if (message.errorName() != QLatin1String(wire::kRefused))
                return foreign();
            return {RemoteOutcome::Answered, {message.errorMessage(), {}, {}}, {}};
        case Heard::NobodyThere:
            if (request.command == RemoteCommand::Quit &&
                QDBusError(message).type() == QDBusError::NoReply)
                return waitForEnd(deadline); // it ended before its answer was out
            if (!instanceExists())
                return notRunning();
            if (Clock::now() > deadline)
                return unreachable();
            std::this_thread::sleep_for(kLook);
        }
    }
}

} // namespace

bool becomeOnlyInstance() {
    return takeInstanceLock();
}

// On a thread that may be left behind: connecting to a bus has no time limit of its own.
RemoteReply askRunningProgram(const RemoteRequest &request) {
    auto promise = std::make_shared<std::promise<RemoteReply>>();
    std::future<RemoteReply> reply = promise->get_future();
    std::thread([promise, request] { promise->set_value(ask(request)); }).detach();
    if (reply.wait_for(kWholePatience) != std::future_status::ready)
        return noAnswer();
    return reply.get();
}

} // namespace quenda
