#include "Platform/Linux/PulseMicrophonePermission.h"

#include <utility>

namespace quenda {

PulseMicrophonePermission::PulseMicrophonePermission(std::shared_ptr<PulseConnection> connection)
    : m_connection(std::move(connection)) {}

AuthorizationStatus PulseMicrophonePermission::status() const {
    return m_connection->state().server == PulseState::Server::Refused
               ? AuthorizationStatus::Denied
               : AuthorizationStatus::Authorized;
}

void PulseMicrophonePermission::requestAccess(std::function<void(bool granted)> completion) {
    if (!completion)
        return;
    m_connection->callMainThread(
        [completion = std::move(completion),
         granted = status() == AuthorizationStatus::Authorized] { completion(granted); });
}

} // namespace quenda
