#pragma once
// The user's consent to record, as the system has it. Main thread only.

#include "Platform/MicrophonePermission.h"

namespace quenda::mac {

class MacMicrophonePermission final : public MicrophonePermission {
public:
    AuthorizationStatus status() const override;
    void requestAccess(std::function<void(bool granted)> completion) override;
};

} // namespace quenda::mac
