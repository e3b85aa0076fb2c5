#pragma once
// Whether a D-Bus daemon is there and alive, found out without libdbus: a bus that takes
// connections but does not answer would hold up Qt's own bus thread for good, and with it the end
// of the program. One that answers the first line of the handshake is alive. Main thread, which
// never waits.

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>

class QLocalSocket;

namespace quenda {

/// The file name, or the abstract name, of the socket in a D-Bus address; empty where the address
/// has none. For abstract names `abstract` becomes true.
QString busSocket(const QByteArray &address, bool &abstract);

/// Knocks at the bus of that address. `alive` is called once when it has answered, `absent` where
/// there is none; neither as long as it keeps silent, and neither once the returned socket, which
/// does the asking, is gone. Null where the address names no socket; then neither is called.
std::unique_ptr<QLocalSocket> askForSignOfLife(const QByteArray &address,
                                               std::function<void()> alive,
                                               std::function<void()> absent = {});

} // namespace quenda
