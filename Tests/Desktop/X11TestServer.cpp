#include "X11TestServer.h"

namespace quenda {

X11TestServer::~X11TestServer() {
    stop();
}

bool X11TestServer::start() {
    QStringList arguments{QStringLiteral("-displayfd"), QStringLiteral("1"),
                          QStringLiteral("-noreset"), QStringLiteral("-nolisten"),
                          QStringLiteral("tcp")};
    if (!m_number.isEmpty())
        arguments.prepend(QString::fromLatin1(display()));
    m_process.start(QStringLiteral("Xvfb"), arguments);
    QByteArray number;
    while (!number.endsWith('\n')) {
        if (!m_process.waitForReadyRead(10000))
            return false;
        number += m_process.readAllStandardOutput();
    }
    m_number = number.trimmed();
    return true;
}

void X11TestServer::stop() {
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    m_process.waitForFinished(10000);
}

X11TestDisplay::X11TestDisplay(const QByteArray &display) : m_previous(qgetenv("DISPLAY")) {
    qputenv("DISPLAY", display);
}

X11TestDisplay::~X11TestDisplay() {
    qputenv("DISPLAY", m_previous);
}

} // namespace quenda
