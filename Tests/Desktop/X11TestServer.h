#pragma once
// A second X server, without a window manager, that a test may stop and start again.

#include <QByteArray>
#include <QProcess>

namespace quenda {

class X11TestServer {
public:
    ~X11TestServer();
    /// Starts it, after the first time under the same number. False where it does not come up.
    bool start();
    void stop();
    /// As $DISPLAY has it.
    QByteArray display() const { return ':' + m_number; }

private:
    QProcess m_process;
    QByteArray m_number;
};

/// While it lives, $DISPLAY is another.
class X11TestDisplay {
public:
    explicit X11TestDisplay(const QByteArray &display);
    ~X11TestDisplay();
    X11TestDisplay(const X11TestDisplay &) = delete;
    X11TestDisplay &operator=(const X11TestDisplay &) = delete;

private:
    QByteArray m_previous;
};

} // namespace quenda
