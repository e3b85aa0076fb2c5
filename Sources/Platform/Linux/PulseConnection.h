#pragma once
// The one connection to the sound server (PulseAudio, or PipeWire speaking its protocol), and what
// is known of the default microphone. Shared by the audio input, the microphone permission and the
// sounds. Lives on the main thread; talks to the server on a thread of its own, so that a server
// that hangs, goes or comes back never holds up the main thread.

#include "Platform/AudioInput.h"

#include <QObject>
#include <QString>

#include <pulse/pulseaudio.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace quenda {

struct PulseSource {
    QString name;        ///< the server's own, unique name
    QString description; ///< as a person knows it
    quint32 index = PA_INVALID_INDEX;
    AudioFormat format;
    pa_channel_map channelMap{};
    bool isMonitor = false;  ///< carries what an output plays
    bool isPluggedIn = true; ///< false where the server knows that its socket is empty
};

struct PulseState {
    enum class Server {
        Connecting,  ///< the first attempt is still under way
        Ready,       ///< connected, and `microphone` is up to date
        Unreachable, ///< not running, or gone; tried again from time to time
        Refused,     ///< there, but it does not let this program record
    };
    Server server = Server::Connecting;
    /// The default source where that counts as a microphone: always unless it is the monitor of an
    /// output; a monitor only where another, plugged-in source was there to be chosen instead.
    /// Without one the server falls back to a monitor by itself, and nobody chose that.
    std::optional<PulseSource> microphone;
};

class PulseConnection final : public QObject {
    Q_OBJECT
public:
    /// Runs on the connection's thread.
    using Task = std::function<void(PulseConnection &)>;

    /// Begins to connect, to the server that the environment names, without starting one.
    PulseConnection();
    ~PulseConnection() override;

    /// What is known now. Any thread.
    PulseState state() const;

    /// Runs `task` on the connection's thread, soon, in the order of the calls. Any thread.
    void post(Task task);

    /// Waits until the connection's thread has handled what the server had sent by now, and has run
    /// `last`; but no longer than `limit`. Main thread.
    void catchUp(std::chrono::milliseconds limit, Task last);

    // The rest is for tasks and for callbacks of streams: on the connection's thread only.
    /// None unless the server is connected.
    pa_context *context() const { return m_isConnected ? m_context : nullptr; }
    /// Whether a stream may record from the source with this index: not from a monitor that is not
    /// the default microphone. None where the source is not known yet.
    std::optional<bool> mayRecordFrom(quint32 sourceIndex) const;
    /// Asks the server afresh and runs `task` when it has answered or has gone.
    void whenRefreshed(Task task);

    /// Fires once; to be freed with freeTimer().
    pa_time_event *newTimer(std::chrono::milliseconds delay, pa_time_event_cb_t callback,
                            void *userData);
    void freeTimer(pa_time_event *&timer);
    /// Runs `task` on the main thread, unless the connection is gone by then.
    void callMainThread(std::function<void()> task);

Q_SIGNALS:
    /// The default microphone has become another one, has gone or has come. On the main thread.
    void microphoneChanged();

private:
    void connectToServer();
    void contextStateChanged();
    void dropContext();
    void connectionLost(int error);
    void refresh();
    void sourceListed(const pa_source_info *info, int endOfList);
    void publish(PulseState::Server server);
    std::optional<PulseSource> chosenMicrophone() const;
    void runWaiting();
    void runPosted();
    void wake();

    mutable std::mutex m_mutex; // guards the next two
    PulseState m_state;
    std::vector<Task> m_posted;

    // Of the connection's thread.
    pa_threaded_mainloop *m_loop = nullptr;
    pa_mainloop_api *m_api = nullptr;
    int m_wakeFd = -1;
    pa_io_event *m_wakeEvent = nullptr;
    pa_time_event *m_timer = nullptr; // the limit of an attempt, or the pause before the next
    pa_context *m_context = nullptr;
    bool m_isConnected = false;
    bool m_isRefreshing = false;
    bool m_refreshAgain = false;
    int m_failedAttempts = 0;
    QString m_defaultSource;
    std::vector<PulseSource> m_sources;
    std::vector<PulseSource> m_listed; // of the list being read
    std::vector<Task> m_waiting;
};

} // namespace quenda
