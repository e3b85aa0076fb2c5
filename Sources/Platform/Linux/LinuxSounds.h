#pragma once
// The cues, played through the sound server, and the desktop's beep. Owned by the platform; main
// thread. Cues go the same way as a recording's opening and closing and after it, so they hold
// nothing up; they are short, quiet, and marked as event sounds, which the user can turn down or
// off for the whole desktop.

#include "Platform/Desktop.h"
#include "Platform/Linux/PulseConnection.h"

#include <QByteArray>
#include <QHash>

#include <atomic>
#include <memory>

namespace quenda {

class LinuxSounds final : public Sounds {
public:
    explicit LinuxSounds(std::shared_ptr<PulseConnection> connection);

    void play(const QString &name) override;

    /// The bell of the window system: the desktop decides whether it is heard, seen or neither, and
    /// which sound it has.
    void beep() override;

private:
    std::shared_ptr<PulseConnection> m_connection;
    QHash<QString, QByteArray> m_sounds; ///< 16-bit little-endian mono, by name; read once
    std::shared_ptr<std::atomic<int>> m_playing;
};

} // namespace quenda
