#pragma once
// Whether this program may record. Outside of a sandbox there is nobody to ask: a sound server lets
// every program of the user in, or refuses it. Inside one the desktop's portal governs. Main
// thread.

#include "Platform/Linux/PulseConnection.h"
#include "Platform/MicrophonePermission.h"

#include <memory>

namespace quenda {

class MicrophonePortal;

class PulseMicrophonePermission final : public MicrophonePermission {
public:
    /// `portal`: null outside of a sandbox.
    explicit PulseMicrophonePermission(std::shared_ptr<PulseConnection> connection,
                                       std::shared_ptr<MicrophonePortal> portal = nullptr);
    ~PulseMicrophonePermission() override;

    /// What the portal says, where one governs. Otherwise Denied only where a server is there and
    /// refuses. Without a server nobody has denied anything: what is missing then is a device, and
    /// that is what the user is told.
    AuthorizationStatus status() const override;
    void requestAccess(std::function<void(bool granted)> completion) override;

private:
    std::shared_ptr<PulseConnection> m_connection;
    std::shared_ptr<MicrophonePortal> m_portal;
};

} // namespace quenda
