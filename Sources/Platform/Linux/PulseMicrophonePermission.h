#pragma once
// Whether the sound server lets this program record. Plain servers have nobody to ask: they let
// every program of the user in, or refuse it. Main thread.

#include "Platform/Linux/PulseConnection.h"
#include "Platform/MicrophonePermission.h"

#include <memory>

namespace quenda {

class PulseMicrophonePermission final : public MicrophonePermission {
public:
    explicit PulseMicrophonePermission(std::shared_ptr<PulseConnection> connection);

    /// Denied only where a server is there and refuses. Without a server nobody has denied
    /// anything: what is missing then is a device, and that is what the user is told.
    AuthorizationStatus status() const override;
    void requestAccess(std::function<void(bool granted)> completion) override;

private:
    std::shared_ptr<PulseConnection> m_connection;
};

} // namespace quenda
