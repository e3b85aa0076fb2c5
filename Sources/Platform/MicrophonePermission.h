#pragma once
// The user's consent to record. Main thread only.

#include <functional>

namespace quenda {

/// The values of AVAuthorizationStatus.
enum class AuthorizationStatus { NotDetermined = 0, Restricted = 1, Denied = 2, Authorized = 3 };

class MicrophonePermission {
public:
    MicrophonePermission() = default;
    MicrophonePermission(const MicrophonePermission &) = delete;
    MicrophonePermission &operator=(const MicrophonePermission &) = delete;
    virtual ~MicrophonePermission() = default;

    /// The present status; cheap enough to be asked every second.
    virtual AuthorizationStatus status() const = 0;

    /// Asks the user where the status is not determined, and calls `completion` with whether
    /// recording is allowed, later, on the main thread. Elsewhere `completion` gets the present
    /// status, later as well. May be empty.
    virtual void requestAccess(std::function<void(bool granted)> completion) = 0;
};

} // namespace quenda
