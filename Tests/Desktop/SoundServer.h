#pragma once
// A sound server of the test's own, with a folder of its own, that can be made to fail.
// Only inside namespaces: see isolated.py.

#include <QByteArray>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

namespace quenda::desktop {

class SoundServer {
public:
    /// Points this process's libpulse to a server that is not running yet.
    SoundServer();
    ~SoundServer();

    /// Starts the server without any source or sink, and waits until it answers.
    void start();
    void kill();
    /// Stops the server from doing anything, and lets it go on.
    void freeze();
    void thaw();

    /// Runs pactl and returns what it printed; a failure of pactl fails the test.
    QByteArray control(const QStringList &arguments) const;
    /// Gives the server a command that pactl does not have.
    void command(const QByteArray &line) const;

    /// Adds a microphone in which a tone of 440 Hz is heard for ever; returns its module.
    QByteArray addMicrophone(const QString &name, const QString &description, int rate = 48000);
    /// Adds such a microphone, in stereo, that is as prompt as a device: another program listens to
    /// it already. Virtual ones that were idle take up to two seconds for their first sound.
    void addPromptMicrophone(const QString &name, int rate);
    /// Adds an output named `name`, and with it the source "`name`.monitor".
    QByteArray addOutput(const QString &name);
    void remove(const QByteArray &module) const;
    void setDefault(const QString &source) const;
    /// How many recording streams there are, of whatever program.
    int recordings() const;

private:
    QTemporaryDir m_home;
    std::unique_ptr<QProcess> m_process;
    std::unique_ptr<QProcess> m_listener;
};

} // namespace quenda::desktop
