#include "Platform/Linux/PulseRecordStream.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

namespace quenda {

namespace {

using namespace std::chrono_literals;

// A server that has not made the stream by then hangs.
constexpr auto kReadyLimit = 2s;

// What the server is asked to send at a time, and what the handler gets at the least: the level is
// live, and no more than that is missing at the end. Devices that cannot do that send more.
constexpr int kFragmentsPerSecond = 100;
constexpr pa_usec_t kFragment = PA_USEC_PER_SEC / kFragmentsPerSecond;

pa_sample_spec sampleSpec(const AudioFormat &format) {
    return {PA_SAMPLE_FLOAT32NE, uint32_t(format.sampleRate), uint8_t(format.channels)};
}

} // namespace

PulseRecordStream::PulseRecordStream(const AudioFormat &format, int maxFrames,
                                     AudioInput::TapHandler handler, std::function<void()> onLost)
    : m_format(format),
      m_maxFrames(std::max(maxFrames, 1)),
      m_leastFrames(qsizetype(format.sampleRate) / kFragmentsPerSecond),
      m_handler(std::move(handler)),
      m_onLost(std::move(onLost)),
      m_channels(size_t(format.channels)) {}

void PulseRecordStream::stop() {
    AudioInput::TapHandler handler; // both die outside the lock
    std::function<void()> onLost;
    const std::scoped_lock lock(m_gate);
    m_isStopped = true;
    handler.swap(m_handler);
    onLost.swap(m_onLost);
}

void PulseRecordStream::open(PulseConnection &connection) {
    m_connection = &connection;
    if (connection.state().server == PulseState::Server::Connecting) {
        connection.whenRefreshed(
            [self = shared_from_this()](PulseConnection &settled) { self->open(settled); });
        return;
    }
    if (m_isClosing)
        return;
    if (connection.context() && connection.state().microphone)
        connectTo({}); // no name: the server follows the default
    else
        lose();
}

void PulseRecordStream::connectTo(const QByteArray &sourceName) {
    const pa_sample_spec sampleFormat = sampleSpec(m_format);
    // With the source's own channel map nothing is remixed on the way.
    const auto microphone = m_connection->state().microphone;
    const pa_channel_map *const map = microphone && microphone->format == m_format &&
                                              pa_channel_map_valid(&microphone->channelMap)
                                          ? &microphone->channelMap
                                          : nullptr;
    m_stream = pa_stream_new(m_connection->context(), "Dictation", &sampleFormat, map);
    if (!m_stream) {
        lose();
        return;
    }
    m_self = shared_from_this();
    pa_stream_set_state_callback(
        m_stream,
        [](pa_stream *, void *self) { static_cast<PulseRecordStream *>(self)->stateChanged(); },
        this);
    pa_stream_set_read_callback(
        m_stream,
        [](pa_stream *, size_t, void *self) {
            static_cast<PulseRecordStream *>(self)->deliverReadable();
        },
        this);
    pa_stream_set_moved_callback(
        m_stream,
        [](pa_stream *, void *data) {
            auto &self = *static_cast<PulseRecordStream *>(data);
            self.m_wasMoved = true;
            self.m_isPlaceGood = false;
            self.checkPlace(false);
        },
        this);
    m_limit = m_connection->newTimer(
        kReadyLimit,
        [](pa_mainloop_api *, pa_time_event *, const timeval *, void *self) {
            static_cast<PulseRecordStream *>(self)->lose();
        },
        this);
    pa_buffer_attr attributes;
    attributes.maxlength = uint32_t(-1);
    attributes.tlength = attributes.prebuf = attributes.minreq = uint32_t(-1); // playback only
    attributes.fragsize = uint32_t(pa_usec_to_bytes(kFragment, &sampleFormat));
    m_namesItsSource = !sourceName.isEmpty();
    if (pa_stream_connect_record(m_stream, m_namesItsSource ? sourceName.constData() : nullptr,
                                 &attributes, PA_STREAM_ADJUST_LATENCY) < 0)
        lose();
}

void PulseRecordStream::stateChanged() {
    const std::shared_ptr<PulseRecordStream> keep = m_self;
    switch (pa_stream_get_state(m_stream)) {
    case PA_STREAM_READY:
        if (m_isClosing) {
            release();
            break;
        }
        m_connection->freeTimer(m_limit);
        checkPlace(false);
        break;
    case PA_STREAM_FAILED:
    case PA_STREAM_TERMINATED:
        if (m_isClosing)
            release();
        else
            lose();
        break;
    default:
        break;
    }
}

// Wherever the server put the stream (its default may be remembered otherwise for this program, or
// it may have moved the stream away from a source that went), it records from microphones only,
// never what the speakers play: on a monitor that is not the chosen default nothing is delivered.
void PulseRecordStream::checkPlace(bool isSecondLook) {
    const std::optional<bool> isGood =
        m_connection->mayRecordFrom(pa_stream_get_device_index(m_stream));
    if (!isGood && !isSecondLook) {
        m_connection->whenRefreshed([weak = weak_from_this()](PulseConnection &) {
            const auto self = weak.lock();
            if (self && self->m_stream && !self->m_isClosing)
                self->checkPlace(true);
        });
        return;
    }
    if (isGood.value_or(false)) {
        m_isPlaceGood = true;
        deliverReadable();
        return;
    }
    const auto microphone = m_connection->state().microphone;
    if (m_wasMoved || m_namesItsSource || !microphone) {
        lose();
        return;
    }
    release();
    connectTo(microphone->name.toUtf8());
}

void PulseRecordStream::deliverReadable() {
    if (!m_isPlaceGood || m_isClosing)
        return; // what was read so far waits in the stream
    const size_t frameBytes = m_channels.size() * sizeof(float);
    while (pa_stream_readable_size(m_stream) != size_t(-1)) {
        const void *data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(m_stream, &data, &bytes) < 0 || bytes == 0)
            break;
        const auto frames = qsizetype(bytes / frameBytes);
        const bool isAligned = reinterpret_cast<uintptr_t>(data) % alignof(float) == 0;
        if (data && isAligned) {
            deliver(static_cast<const float *>(data), frames);
        } else {
            // A hole, where the server lost sound: silence keeps the rest in its place in time.
            const auto longest = qsizetype(m_format.sampleRate);
            m_silence.assign(size_t(std::min(frames, longest)) * m_channels.size(), 0.0F);
            deliver(m_silence.data(), std::min(frames, longest));
        }
        pa_stream_drop(m_stream);
    }
}

// The server cuts its fragments wherever its own memory blocks end, down to a few samples, which
// say nothing about a level: what comes is gathered. Only the very first is passed on as it is.
void PulseRecordStream::deliver(const float *interleaved, qsizetype frames) {
    const size_t count = size_t(frames) * m_channels.size();
    m_gathered.insert(m_gathered.end(), interleaved, interleaved + count);
    if (m_hasDelivered && qsizetype(m_gathered.size() / m_channels.size()) < m_leastFrames)
        return;
    m_hasDelivered = true;
    flush();
}

void PulseRecordStream::flush() {
    const auto frames = qsizetype(m_gathered.size() / m_channels.size());
    const std::scoped_lock lock(m_gate);
    for (qsizetype start = 0; start < frames && !m_isStopped; start += m_maxFrames) {
        for (size_t channel = 0; channel < m_channels.size(); ++channel)
            m_channels[channel] = m_gathered.data() + size_t(start) * m_channels.size() + channel;
        AudioBuffer buffer;
        buffer.channels = m_channels.data();
        buffer.stride = qsizetype(m_channels.size());
        buffer.frames = std::min(m_maxFrames, frames - start);
        buffer.format = m_format;
        m_handler(buffer);
    }
    m_gathered.clear();
}

void PulseRecordStream::close() {
    m_isClosing = true;
    if (!m_stream)
        return;
    // A stream that the server is still making cannot be taken back: it is released once it is
    // there, or it would keep the microphone open.
    if (pa_stream_get_state(m_stream) != PA_STREAM_CREATING)
        release();
}

void PulseRecordStream::release() {
    m_connection->freeTimer(m_limit);
    pa_stream *const stream = std::exchange(m_stream, nullptr);
    pa_stream_set_state_callback(stream, nullptr, nullptr);
    pa_stream_set_read_callback(stream, nullptr, nullptr);
    pa_stream_set_moved_callback(stream, nullptr, nullptr);
    pa_stream_disconnect(stream); // fails where it has ended already
    pa_stream_unref(stream);
    m_self.reset(); // callers hold another reference
}

void PulseRecordStream::lose() {
    const std::shared_ptr<PulseRecordStream> keep = shared_from_this();
    if (std::exchange(m_isLost, true))
        return;
    if (m_connection)
        m_connection->freeTimer(m_limit);
    close();
    m_connection->callMainThread([weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->reportLost();
    });
}

void PulseRecordStream::reportLost() {
    std::function<void()> onLost;
    {
        const std::scoped_lock lock(m_gate);
        onLost.swap(m_onLost);
    }
    if (onLost)
        onLost();
}

} // namespace quenda
