#pragma once
// What the tests against a real sound server share: the server, the input connected to it, and a
// capture that is counted.

#include "Platform/Linux/PulseAudioInput.h"
#include "SoundServer.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <memory>

namespace quenda::desktop {

inline const QString kDesk = QStringLiteral("desk");
inline const QString kHeadset = QStringLiteral("headset");
inline const QString kSpeakers = QStringLiteral("speakers");

inline bool waitFor(const std::function<bool()> &condition, int milliseconds = 5000) {
    QElapsedTimer since;
    since.start();
    while (!condition()) {
        if (since.hasExpired(milliseconds))
            return false;
        QThread::msleep(1);
        QCoreApplication::processEvents();
    }
    return true;
}

inline void letPass(int milliseconds) {
    waitFor([] { return false; }, milliseconds);
}

struct PulseFixture : testing::Test {
    SoundServer server;
    std::shared_ptr<PulseConnection> connection;
    std::unique_ptr<PulseAudioInput> input;
    int changes = 0;

    void connectInput() {
        connection = std::make_shared<PulseConnection>();
        input = std::make_unique<PulseAudioInput>(connection);
        input->setDefaultDeviceChangedHandler([this] { ++changes; });
    }
    bool settled() const { return connection->state().server != PulseState::Server::Connecting; }
    // A server with the microphone "desk", and the input connected to it.
    void startWithDesk(int rate = 48000) {
        server.start();
        server.addMicrophone(kDesk, QStringLiteral("Desk Microphone"), rate);
        server.setDefault(kDesk);
        connectInput();
        ASSERT_TRUE(waitFor([this] { return settled(); }));
    }
    void startWithPromptDesk(int rate) {
        server.start();
        server.addPromptMicrophone(kDesk, rate);
        server.setDefault(kDesk);
        connectInput();
        ASSERT_TRUE(waitFor([this] { return settled(); }));
    }

    std::atomic<qint64> frames{0};
    std::atomic<qint64> longest{0};
    std::atomic<qint64> shortest{1000000}; // of all but the first
    std::atomic<float> peak{0};
    AudioInput::TapHandler counting() {
        return [this](const AudioBuffer &buffer) {
            for (qsizetype frame = 0; frame < buffer.frames; ++frame)
                peak = std::max<float>(peak, std::abs(buffer.channels[0][frame * buffer.stride]));
            longest = std::max<qint64>(longest, buffer.frames);
            if (frames > 0)
                shortest = std::min<qint64>(shortest, buffer.frames);
            frames += buffer.frames;
        };
    }
    std::unique_ptr<AudioCapture> capture(int maxFrames = 4096) {
        auto started = input->startCapture(input->nativeFormat(), maxFrames, counting());
        EXPECT_TRUE(started.ok());
        return started.ok() ? std::move(started).value() : nullptr;
    }
};

} // namespace quenda::desktop
