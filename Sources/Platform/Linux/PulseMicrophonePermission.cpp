#include "Platform/Linux/PulseMicrophonePermission.h"

#include "Platform/Linux/MicrophonePortal.h"

#include <utility>

namespace quenda {

PulseMicrophonePermission::PulseMicrophonePermission(std::shared_ptr<PulseConnection> connection,
                                                     std::shared_ptr<MicrophonePortal> portal)
    : m_connection(std::move(connection)),
      m_portal(std::move(portal)) {}

PulseMicrophonePermission::~PulseMicrophonePermission() {
    if (m_portal)
        m_portal->stop();
}

AuthorizationStatus PulseMicrophonePermission::status() const {
    const auto word = m_portal ? m_portal->status() : std::nullopt;
    if (word && *word != AuthorizationStatus::Authorized)
        return *word;
    return m_connection->state().server == PulseState::Server::Refused
               ? AuthorizationStatus::Denied
               : AuthorizationStatus::Authorized;
}

void PulseMicrophonePermission::requestAccess(std::function<void(bool granted)> completion) {
    const auto report = [this, completion = std::move(completion)] {
        if (!completion)
            return;
        m_connection->callMainThread(
            [completion, granted = status() == AuthorizationStatus::Authorized] {
                completion(granted);
            });
    };
    if (m_portal)
        m_portal->request(report);
    else
        report();
}

} // namespace quenda
