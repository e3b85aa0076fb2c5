#pragma once
// One recording stream on the sound server, from the key press to its release. Made and stopped on
// the main thread, which gives the handler and takes it away; all else happens on the connection's
// thread, which calls it.

#include "Platform/AudioInput.h"
#include "Platform/Linux/PulseConnection.h"

#include <QByteArray>

#include <pulse/pulseaudio.h>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace quenda {

class PulseRecordStream final : public std::enable_shared_from_this<PulseRecordStream> {
public:
    /// `onLost` is called on the main thread where the stream could not be made or has ended,
    /// unless stop() came before.
    PulseRecordStream(const AudioFormat &format, int maxFrames, AudioInput::TapHandler handler,
                      std::function<void()> onLost);

    /// Main thread: ends the calls of both handlers; waits for one that is in progress.
    void stop();

    /// Connection's thread: records from the default source.
    void open(PulseConnection &connection);
    /// Connection's thread: passes on what was too little to pass on so far.
    void flush();
    /// Connection's thread: closes the microphone.
    void close();

private:
    void connectTo(const QByteArray &sourceName);
    void stateChanged();
    void release();
    void checkPlace(bool isSecondLook);
    void deliverReadable();
    void deliver(const float *interleaved, qsizetype frames);
    void lose();
    void reportLost();

    const AudioFormat m_format;
    const qsizetype m_maxFrames;
    const qsizetype m_leastFrames;

    std::mutex m_gate; // held while the tap handler runs; guards the next three
    bool m_isStopped = false;
    AudioInput::TapHandler m_handler;
    std::function<void()> m_onLost;

    // Of the connection's thread.
    PulseConnection *m_connection = nullptr;
    pa_stream *m_stream = nullptr;
    std::shared_ptr<PulseRecordStream> m_self; // while libpulse may call back
    pa_time_event *m_limit = nullptr;          // for becoming ready
    bool m_isClosing = false;
    bool m_isLost = false;
    bool m_isPlaceGood = false; // it records from a microphone
    bool m_wasMoved = false;
    bool m_namesItsSource = false;
    bool m_hasDelivered = false;
    std::vector<float> m_gathered; // interleaved
    std::vector<const float *> m_channels;
    std::vector<float> m_silence;
};

} // namespace quenda
