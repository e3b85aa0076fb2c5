#include "SoundServer.h"

#include <QLocalSocket>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>

namespace quenda::desktop {

SoundServer::SoundServer() {
    // The bus is that of the session, where another server may be known already.
    qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    qputenv("HOME", m_home.path().toUtf8());
    qputenv("XDG_RUNTIME_DIR", m_home.path().toUtf8());
    qunsetenv("PULSE_SERVER");
    qunsetenv("XDG_CONFIG_HOME");
}

SoundServer::~SoundServer() {
    kill();
}

void SoundServer::start() {
    m_process = std::make_unique<QProcess>();
    m_process->setStandardErrorFile(QProcess::nullDevice()); // it misses the system bus, loudly
    m_process->start(QStringLiteral("pulseaudio"),
                     {QStringLiteral("-n"), QStringLiteral("--daemonize=no"),
                      QStringLiteral("--exit-idle-time=-1"), QStringLiteral("--use-pid-file=no"),
                      QStringLiteral("--log-target=stderr"),
                      QStringLiteral("--load=module-native-protocol-unix"),
                      QStringLiteral("--load=module-cli-protocol-unix")});
    ASSERT_TRUE(m_process->waitForStarted());
    for (int attempt = 0; attempt < 100; ++attempt) {
        QProcess pactl;
        pactl.start(QStringLiteral("pactl"), {QStringLiteral("info")});
        if (pactl.waitForFinished(5000) && pactl.exitCode() == 0)
            return;
        QThread::msleep(20);
    }
    FAIL() << "the sound server does not answer";
}

void SoundServer::kill() {
    if (m_listener) {
        m_listener->kill();
        m_listener->waitForFinished();
        m_listener.reset();
    }
    if (!m_process)
        return;
    m_process->kill();
    m_process->waitForFinished();
    m_process.reset();
}

void SoundServer::freeze() {
    ::kill(pid_t(m_process->processId()), SIGSTOP);
}

void SoundServer::thaw() {
    ::kill(pid_t(m_process->processId()), SIGCONT);
}

QByteArray SoundServer::control(const QStringList &arguments) const {
    QProcess pactl;
    pactl.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    pactl.start(QStringLiteral("pactl"), arguments);
    EXPECT_TRUE(pactl.waitForFinished(5000));
    EXPECT_EQ(pactl.exitCode(), 0) << qPrintable(arguments.join(u' '));
    return pactl.readAllStandardOutput().trimmed();
}

void SoundServer::command(const QByteArray &line) const {
    QLocalSocket socket;
    socket.connectToServer(m_home.filePath(QStringLiteral("pulse/cli")));
    ASSERT_TRUE(socket.waitForConnected(5000));
    socket.write(line + "\nstat\n"); // the answer to the second says that the first is done
    ASSERT_TRUE(socket.waitForReadyRead(5000));
}

QByteArray SoundServer::addMicrophone(const QString &name, const QString &description, int rate) {
    return control(
        {QStringLiteral("load-module"), QStringLiteral("module-sine-source"),
         QStringLiteral("source_name=") + name, QStringLiteral("frequency=440"),
         QStringLiteral("rate=%1").arg(rate),
         QStringLiteral("source_properties=\"device.description='%1'\"").arg(description)});
}

QByteArray SoundServer::addOutput(const QString &name) {
    return control({QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                    QStringLiteral("sink_name=") + name, QStringLiteral("rate=48000")});
}

void SoundServer::remove(const QByteArray &module) const {
    control({QStringLiteral("unload-module"), QString::fromUtf8(module)});
}

void SoundServer::setDefault(const QString &source) const {
    control({QStringLiteral("set-default-source"), source});
}

void SoundServer::addPromptMicrophone(const QString &name, int rate) {
    const QString sink = name + QLatin1String("-sink");
    control({QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
             QStringLiteral("sink_name=") + sink, QStringLiteral("rate=%1").arg(rate)});
    control({QStringLiteral("load-module"), QStringLiteral("module-sine"),
             QStringLiteral("frequency=440"), QStringLiteral("sink=") + sink});
    control({QStringLiteral("load-module"), QStringLiteral("module-remap-source"),
             QStringLiteral("source_name=") + name, QStringLiteral("master=%1.monitor").arg(sink)});
    m_listener = std::make_unique<QProcess>();
    m_listener->setStandardOutputFile(QProcess::nullDevice());
    m_listener->start(QStringLiteral("parec"),
                      {QStringLiteral("-d"), name, QStringLiteral("--latency-msec=10")});
    for (int attempt = 0; attempt < 100 && recordings() < 2; ++attempt)
        QThread::msleep(20);
    // It has planned its next sound up to two seconds ahead, and plans anew when it is resumed.
    control({QStringLiteral("suspend-sink"), sink, QStringLiteral("1")});
    control({QStringLiteral("suspend-sink"), sink, QStringLiteral("0")});
}

int SoundServer::recordings() const {
    const QByteArray listed = control(
        {QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("source-outputs")});
    return listed.isEmpty() ? 0 : int(listed.count('\n')) + 1;
}

} // namespace quenda::desktop
