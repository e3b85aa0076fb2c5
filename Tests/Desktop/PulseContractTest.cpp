// The PulseAudio backend keeps to the contract of audio inputs, on a real sound server.

#include "Contract/AudioInputContract.h"
#include "Platform/Linux/PulseConnection.h"
#include "PulseFixture.h"

namespace quenda::contract {
namespace {

class PulseWorld {
public:
    PulseWorld() {
        m_server.start();
        m_server.addPromptMicrophone(desktop::kDesk, 48000);
        m_server.setDefault(desktop::kDesk);
        m_connection = std::make_shared<PulseConnection>();
        m_input = std::make_unique<PulseAudioInput>(m_connection);
        desktop::waitFor([this] { return m_input->defaultDeviceName().has_value(); });
    }
    AudioInput &input() { return *m_input; }
    QString deviceName() const { return m_input->defaultDeviceName().value_or(QString()); }
    qsizetype longestBuffer(int asked) const { return asked; }
    void speak() { desktop::letPass(600); } // its tone is heard for ever
    void removeDevice() {
        m_server.kill();
        desktop::waitFor([this] { return !m_input->defaultDeviceName().has_value(); });
        desktop::letPass(50);
    }

private:
    desktop::SoundServer m_server;
    std::shared_ptr<PulseConnection> m_connection;
    std::unique_ptr<PulseAudioInput> m_input;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Pulse, AudioInputContract, PulseWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Pulse, LostAudioInputContract, PulseWorld);

} // namespace
} // namespace quenda::contract
