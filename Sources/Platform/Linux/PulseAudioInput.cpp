#include "Platform/Linux/PulseAudioInput.h"

#include "Platform/Linux/PulseRecordStream.h"

#include <QPointer>

#include <chrono>
#include <cmath>
#include <utility>

namespace quenda {

namespace {

using namespace std::chrono_literals;

constexpr AudioFormat kUsualFormat{48000, 2};

// The connection's thread needs some 0.1 ms; a machine under load must not make the release of the
// key wait for longer than a person could notice.
constexpr auto kCatchUpLimit = 20ms;

Error pulseError(int code) {
    return {QStringLiteral("PulseAudio"), code, QString::fromUtf8(pa_strerror(code))};
}

bool canBeAskedFor(const AudioFormat &format) {
    return format.sampleRate >= 1 && format.sampleRate <= PA_RATE_MAX &&
           format.sampleRate == std::floor(format.sampleRate) && format.channels >= 1 &&
           format.channels <= int(PA_CHANNELS_MAX);
}

class PulseCapture final : public AudioCapture {
public:
    PulseCapture(std::shared_ptr<PulseConnection> connection,
                 std::shared_ptr<PulseRecordStream> stream)
        : m_connection(std::move(connection)),
          m_stream(std::move(stream)) {
        m_connection->post([stream = m_stream](PulseConnection &there) { stream->open(there); });
    }

    ~PulseCapture() override {
        // The last sound that the server has sent may still lie unread.
        m_connection->catchUp(kCatchUpLimit,
                              [stream = m_stream](PulseConnection &) { stream->flush(); });
        m_stream->stop();
        m_connection->post([stream = std::move(m_stream)](PulseConnection &) { stream->close(); });
    }

private:
    std::shared_ptr<PulseConnection> m_connection;
    std::shared_ptr<PulseRecordStream> m_stream;
};

} // namespace

PulseAudioInput::PulseAudioInput(std::shared_ptr<PulseConnection> connection)
    : m_connection(std::move(connection)) {
    connect(m_connection.get(), &PulseConnection::microphoneChanged, this,
            [this] { reportChange(); });
}

PulseAudioInput::~PulseAudioInput() = default;

AudioFormat PulseAudioInput::nativeFormat() const {
    const PulseState state = m_connection->state();
    if (state.server == PulseState::Server::Connecting)
        return kUsualFormat;
    return state.microphone ? state.microphone->format : AudioFormat();
}

Result<std::unique_ptr<AudioCapture>>
PulseAudioInput::startCapture(const AudioFormat &format, int maxFrames, TapHandler handler) {
    const PulseState state = m_connection->state();
    switch (state.server) {
    case PulseState::Server::Unreachable:
        return pulseError(PA_ERR_CONNECTIONREFUSED);
    case PulseState::Server::Refused:
        return pulseError(PA_ERR_ACCESS);
    case PulseState::Server::Ready:
        if (!state.microphone)
            return pulseError(PA_ERR_NOENTITY);
        break;
    case PulseState::Server::Connecting:
        break;
    }
    if (!canBeAskedFor(format))
        return pulseError(PA_ERR_INVALID);
    auto stream = std::make_shared<PulseRecordStream>(format, maxFrames, std::move(handler),
                                                      [self = QPointer<PulseAudioInput>(this)] {
                                                          if (self)
                                                              self->reportChange();
                                                      });
    return std::unique_ptr<AudioCapture>(
        std::make_unique<PulseCapture>(m_connection, std::move(stream)));
}

std::optional<QString> PulseAudioInput::defaultDeviceName() const {
    const PulseState state = m_connection->state();
    if (!state.microphone)
        return {};
    return state.microphone->description.isEmpty() ? state.microphone->name
                                                   : state.microphone->description;
}

void PulseAudioInput::setDefaultDeviceChangedHandler(std::function<void()> handler) {
    m_changed = std::move(handler);
}

void PulseAudioInput::reportChange() const {
    const std::function<void()> changed = m_changed; // it may replace itself
    if (changed)
        changed();
}

} // namespace quenda
