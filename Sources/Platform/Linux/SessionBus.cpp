#include "Platform/Linux/SessionBus.h"

#include "Platform/Linux/BusSignOfLife.h"

#include <QFile>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

namespace quenda {

namespace {

class Descriptor {
public:
    explicit Descriptor(int number) : m_number(number) {}
    ~Descriptor() {
        if (m_number >= 0)
            close(m_number);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int number() const { return m_number; }

private:
    int m_number;
};

bool connectTo(const Descriptor &socket, const QByteArray &name, bool abstract) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t offset = abstract ? 1 : 0; // an abstract name begins with a zero
    const auto length = std::size_t(name.size());
    if (name.isEmpty() || offset + length >= sizeof address.sun_path) {
        errno = EINVAL;
        return false;
    }
    std::memcpy(address.sun_path + offset, name.constData(), length);
    const std::size_t used = offsetof(sockaddr_un, sun_path) + offset + length + (abstract ? 0 : 1);
    return connect(socket.number(), reinterpret_cast<const sockaddr *>(&address),
                   socklen_t(used)) == 0;
}

} // namespace

QByteArray sessionBusAddress() {
    const QByteArray named = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    if (!named.isEmpty())
        return named;
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    if (!runtime.startsWith('/'))
        return {};
    return "unix:path=" + runtime.toPercentEncoding("/-_.~") + "/bus";
}

std::optional<SessionBus> findSessionBus(std::chrono::milliseconds patience) {
    const QByteArray address = sessionBusAddress();
    bool abstract = false;
    const QByteArray name = QFile::encodeName(busSocket(address, abstract));
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket.number() < 0)
        return std::nullopt;
    if (!connectTo(socket, name, abstract)) {
        if (errno != EAGAIN) // nobody has accepted a connection for long
            return std::nullopt;
        return SessionBus{QString::fromLocal8Bit(address), false, false};
    }

    // The first line of the handshake; whatever comes back was sent by something alive.
    const QByteArray hello =
        QByteArray(1, '\0') + "AUTH EXTERNAL " + QByteArray::number(getuid()).toHex() + "\r\n";
    const bool sent = send(socket.number(), hello.constData(), std::size_t(hello.size()),
                           MSG_NOSIGNAL) == hello.size();
    pollfd answer{socket.number(), POLLIN, 0};
    char first = 0;
    const bool alive = sent && poll(&answer, 1, int(patience.count())) == 1 &&
                       recv(socket.number(), &first, 1, 0) == 1;

    ucred peer{};
    socklen_t size = sizeof peer;
    const bool known = getsockopt(socket.number(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
    return SessionBus{QString::fromLocal8Bit(address), alive, known && peer.uid == getuid()};
}

} // namespace quenda
