#pragma once
// The default microphone of the sound server. Owned by the platform; main thread. Recording streams
// exist only while a capture is alive: in between, the microphone is closed.

#include "Platform/AudioInput.h"
#include "Platform/Linux/PulseConnection.h"

#include <QObject>

#include <functional>
#include <memory>

namespace quenda {

class PulseAudioInput final : public QObject, public AudioInput {
public:
    explicit PulseAudioInput(std::shared_ptr<PulseConnection> connection);
    ~PulseAudioInput() override;

    /// While the first connection to the server is still being made, a usual format: the server
    /// converts to whatever a capture asks for, so a key pressed that early need not wait.
    AudioFormat nativeFormat() const override;

    /// Returns at once. What the server refuses later ends the buffers and is reported as a change
    /// of the default device, unless the capture is gone by then.
    Result<std::unique_ptr<AudioCapture>> startCapture(const AudioFormat &format, int maxFrames,
                                                       TapHandler handler) override;

    std::optional<QString> defaultDeviceName() const override;
    void setDefaultDeviceChangedHandler(std::function<void()> handler) override;

private:
    void reportChange() const;

    std::shared_ptr<PulseConnection> m_connection;
    std::function<void()> m_changed;
};

} // namespace quenda
