#pragma once
// A microphone that tests speak into, and the permission to use it.

#include "Platform/AudioInput.h"
#include "Platform/MicrophonePermission.h"

#include <vector>

namespace quenda::fakes {

class FakeAudioInput final : public AudioInput {
public:
    AudioFormat nativeFormat() const override { return format; }
    Result<std::unique_ptr<AudioCapture>> startCapture(const AudioFormat &format, int maxFrames,
                                                       TapHandler handler) override;
    std::optional<QString> defaultDeviceName() const override { return deviceName; }
    void setDefaultDeviceChangedHandler(std::function<void()> handler) override {
        m_changed = std::move(handler);
    }

    AudioFormat format{16000, 1};
    std::optional<QString> deviceName = QStringLiteral("Fake Microphone");
    std::optional<Error> startError;
    int captures = 0; ///< started so far
    int lastMaxFrames = 0;
    bool capturing() const { return m_live != nullptr; }

    /// Delivers interleaved frames in `format` to the running capture, in one buffer.
    void deliver(const std::vector<float> &interleaved);
    /// Delivers `seconds` of a steady tone of amplitude `peak` in buffers of 10 ms.
    void speak(double seconds, float peak = 0.5F);
    void changeDefaultDevice(std::optional<QString> name);

private:
    class Capture;
    Capture *m_live = nullptr;
    std::function<void()> m_changed;
};

class FakeMicrophonePermission final : public MicrophonePermission {
public:
    AuthorizationStatus status() const override { return authorization; }
    void requestAccess(std::function<void(bool)> completion) override {
        ++requests;
        pending.push_back(std::move(completion));
    }
    /// Answers all requests that are waiting.
    void answer(bool granted);

    AuthorizationStatus authorization = AuthorizationStatus::Authorized;
    int requests = 0;
    std::vector<std::function<void(bool)>> pending;
};

} // namespace quenda::fakes
