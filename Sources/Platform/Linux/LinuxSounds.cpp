#include "Platform/Linux/LinuxSounds.h"

#include <QApplication>
#include <QFile>

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <chrono>
#include <utility>

// The sounds lie in a static library, whose resources nothing would pull in otherwise. The macro
// works only outside of a namespace.
static void initResources() {
    Q_INIT_RESOURCE(resources);
}

namespace quenda {

namespace {

using namespace std::chrono_literals;

constexpr uint32_t kRate = 44100; // of all files in Resources/sounds
constexpr qsizetype kWavHeader = 44;

// A server that plays nothing must not collect cues; whoever presses the key so fast hears enough.
constexpr int kMostAtOnce = 4;
constexpr auto kLimit = 3s;

// One cue on its way. Lives on the connection's thread, as long as its stream.
class Cue final : public std::enable_shared_from_this<Cue> {
public:
    Cue(QByteArray samples, std::shared_ptr<std::atomic<int>> playing)
        : m_samples(std::move(samples)),
          m_playing(std::move(playing)) {
        ++*m_playing;
    }
    ~Cue() { --*m_playing; }
    Cue(const Cue &) = delete;
    Cue &operator=(const Cue &) = delete;

    void start(PulseConnection &connection);

private:
    void stateChanged();
    void write();
    void finish();

    const QByteArray m_samples;
    qsizetype m_written = 0;
    std::shared_ptr<std::atomic<int>> m_playing;
    PulseConnection *m_connection = nullptr;
    pa_stream *m_stream = nullptr;
    pa_operation *m_draining = nullptr;
    pa_time_event *m_limit = nullptr;
    bool m_isGivenUp = false;
    std::shared_ptr<Cue> m_self; // while libpulse may call back
};

void Cue::start(PulseConnection &connection) {
    if (!connection.context())
        return;
    m_connection = &connection;
    const pa_sample_spec sampleFormat{PA_SAMPLE_S16LE, kRate, 1};
    pa_proplist *properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_MEDIA_ROLE, "event");
    m_stream = pa_stream_new_with_proplist(connection.context(), "Cue", &sampleFormat, nullptr,
                                           properties);
    pa_proplist_free(properties);
    if (!m_stream)
        return;
    m_self = shared_from_this();
    pa_stream_set_state_callback(
        m_stream, [](pa_stream *, void *self) { static_cast<Cue *>(self)->stateChanged(); }, this);
    pa_stream_set_write_callback(
        m_stream, [](pa_stream *, size_t, void *self) { static_cast<Cue *>(self)->write(); }, this);
    m_limit = connection.newTimer(
        kLimit,
        [](pa_mainloop_api *, pa_time_event *, const timeval *, void *self) {
            static_cast<Cue *>(self)->finish();
        },
        this);
    // Room for the whole cue; it starts when all of it is there.
    pa_buffer_attr attributes;
    attributes.maxlength = uint32_t(-1);
    attributes.tlength = attributes.prebuf = uint32_t(m_samples.size());
    attributes.minreq = attributes.fragsize = uint32_t(-1);
    if (pa_stream_connect_playback(m_stream, nullptr, &attributes, PA_STREAM_NOFLAGS, nullptr,
                                   nullptr) < 0)
        finish();
}

void Cue::stateChanged() {
    switch (pa_stream_get_state(m_stream)) {
    case PA_STREAM_READY:
        if (m_isGivenUp)
            finish();
        else
            write();
        break;
    case PA_STREAM_FAILED:
    case PA_STREAM_TERMINATED:
        finish();
        break;
    default:
        break;
    }
}

void Cue::write() {
    const auto left = size_t(m_samples.size() - m_written);
    if (left == 0 || pa_stream_get_state(m_stream) != PA_STREAM_READY)
        return;
    const size_t room = pa_stream_writable_size(m_stream);
    if (room == size_t(-1) || room < sizeof(qint16))
        return;
    const size_t count = std::min(left, room - room % sizeof(qint16));
    if (pa_stream_write(m_stream, m_samples.constData() + m_written, count, nullptr, 0,
                        PA_SEEK_RELATIVE) < 0) {
        finish();
        return;
    }
    m_written += qsizetype(count);
    if (m_written < m_samples.size())
        return;
    m_draining = pa_stream_drain(
        m_stream, [](pa_stream *, int, void *self) { static_cast<Cue *>(self)->finish(); }, this);
    if (!m_draining)
        finish();
}

void Cue::finish() {
    const std::shared_ptr<Cue> keep = m_self;
    m_connection->freeTimer(m_limit);
    if (!m_stream)
        return;
    if (pa_stream_get_state(m_stream) == PA_STREAM_CREATING) {
        m_isGivenUp = true; // it cannot be taken back before the server has made it
        return;
    }
    if (m_draining) {
        pa_operation_cancel(m_draining); // its answer must not come after the end
        pa_operation_unref(std::exchange(m_draining, nullptr));
    }
    pa_stream *const stream = std::exchange(m_stream, nullptr);
    pa_stream_set_state_callback(stream, nullptr, nullptr);
    pa_stream_set_write_callback(stream, nullptr, nullptr);
    pa_stream_disconnect(stream); // fails where it has ended already
    pa_stream_unref(stream);
    m_self.reset();
}

QByteArray samplesOf(const QString &name) {
    QFile file(QLatin1String(":/sounds/") + name + QLatin1String(".wav"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll().mid(kWavHeader);
}

} // namespace

LinuxSounds::LinuxSounds(std::shared_ptr<PulseConnection> connection)
    : m_connection(std::move(connection)),
      m_playing(std::make_shared<std::atomic<int>>(0)) {
    initResources();
    for (const auto &name : {u"Pop", u"Tink", u"Bottle"}) {
        const QString key = QString::fromUtf16(name);
        m_sounds.insert(key, samplesOf(key));
    }
}

void LinuxSounds::play(const QString &name) {
    const QByteArray samples = m_sounds.value(name);
    if (samples.isEmpty() || *m_playing >= kMostAtOnce)
        return;
    m_connection->post([cue = std::make_shared<Cue>(samples, m_playing)](PulseConnection &there) {
        cue->start(there);
    });
}

void LinuxSounds::beep() {
    QApplication::beep();
}

} // namespace quenda
