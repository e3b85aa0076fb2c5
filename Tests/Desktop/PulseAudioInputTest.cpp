// The microphone of a real sound server: what is known of it, what is recorded, and what happens
// when it goes, moves or hangs.
#include "Platform/Linux/PulseAudioInput.h"

#include "Platform/Linux/PulseMicrophonePermission.h"
#include "PulseFixture.h"
#include "Quenda/AudioRecorder.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

namespace quenda::desktop {
namespace {

double toneAmplitude(std::span<const float> samples, double frequency) {
    double sine = 0;
    double cosine = 0;
    for (size_t index = 0; index < samples.size(); ++index) {
        const double phase =
            2 * std::numbers::pi * frequency * double(index) / AudioRecorder::kSampleRate;
        sine += double(samples[index]) * std::sin(phase);
        cosine += double(samples[index]) * std::cos(phase);
    }
    return 2 * std::hypot(sine, cosine) / double(samples.size());
}

struct PulseAudioInputTest : PulseFixture {};

TEST_F(PulseAudioInputTest, KnowsTheDefaultMicrophone) {
    startWithDesk(44100);
    EXPECT_EQ(input->nativeFormat(), (AudioFormat{44100, 1}));
    EXPECT_EQ(input->defaultDeviceName(), QStringLiteral("Desk Microphone"));
    EXPECT_EQ(PulseMicrophonePermission(connection).status(), AuthorizationStatus::Authorized);
    EXPECT_EQ(changes, 0) << "the first thing known is no change";
}

TEST_F(PulseAudioInputTest, RecordsWhatTheMicrophoneHears) {
    startWithPromptDesk(44100);
    AudioRecorder recorder(*input);
    ASSERT_EQ(recorder.start(), Failure());
    letPass(300);
    // Live all the time: no buffer is so short that it would have no peak.
    EXPECT_FALSE(waitFor([&recorder] { return recorder.currentLevel() < 0.9F; }, 1200));
    const std::vector<float> samples = recorder.stop();
    ASSERT_GT(samples.size(), 16000U) << "more than a second of it";
    const double amplitude = toneAmplitude(std::span(samples).subspan(4000, 8000), 440);
    EXPECT_GT(amplitude, 0.1);
    // Nothing but the tone, though its sudden end rings a little in the filter.
    EXPECT_NEAR(amplitude, recorder.sessionPeak(), 0.15 * amplitude);
    EXPECT_EQ(changes, 0);
}

TEST_F(PulseAudioInputTest, BuffersAreShortAndSoon) {
    startWithPromptDesk(48000);
    QElapsedTimer since;
    since.start();
    auto running = capture(100);
    ASSERT_TRUE(waitFor([this] { return frames > 0; }));
    EXPECT_LT(since.elapsed(), 200) << "milliseconds to the first sample";
    ASSERT_TRUE(waitFor([this] { return frames > 24000; }));
    running.reset();
    EXPECT_LE(longest, 100) << "no longer than asked for";

    longest = 0;
    shortest = 1000000;
    frames = 0;
    running = capture();
    ASSERT_TRUE(waitFor([this] { return frames > 24000; }));
    EXPECT_LE(longest, 48 * 20) << "20 ms";
    EXPECT_GE(shortest, 48 * 10) << "10 ms";
}

TEST_F(PulseAudioInputTest, TheMicrophoneIsOpenOnlyDuringACapture) {
    startWithDesk();
    letPass(200);
    EXPECT_EQ(server.recordings(), 0) << "idle";
    auto running = capture();
    ASSERT_TRUE(waitFor([this] { return frames > 0; }));
    EXPECT_EQ(server.recordings(), 1);
    running.reset();
    const qint64 atEnd = frames;
    EXPECT_TRUE(waitFor([this] { return server.recordings() == 0; }));
    EXPECT_EQ(frames, atEnd) << "nothing comes after the end";
}

TEST_F(PulseAudioInputTest, ATapOfTheKeyLeavesNoMicrophoneOpen) {
    startWithDesk();
    for (int tap = 0; tap < 20; ++tap)
        capture().reset();
    auto last = capture();
    ASSERT_TRUE(waitFor([this] { return frames > 0; })) << "all before it has been answered";
    last.reset();
    EXPECT_TRUE(waitFor([this] { return server.recordings() == 0; }));
    EXPECT_EQ(changes, 0);
}

TEST_F(PulseAudioInputTest, AKeyPressedBeforeTheConnectionStandsStillRecords) {
    server.start();
    server.addMicrophone(kDesk, QStringLiteral("Desk Microphone"));
    server.setDefault(kDesk);
    connectInput();
    const auto running = capture();
    EXPECT_TRUE(waitFor([this] { return frames > 4800; }));
    EXPECT_GT(peak, 0.1F);
    EXPECT_EQ(changes, 0);
}

TEST_F(PulseAudioInputTest, AKeyPressedBeforeItIsKnownThatThereIsNoServer) {
    connectInput();
    auto started = input->startCapture({48000, 2}, 4096, counting());
    ASSERT_TRUE(waitFor([this] { return settled(); }));
    EXPECT_TRUE(!started.ok() || waitFor([this] { return changes == 1; }))
        << "what was begun is reported as over";
    letPass(50);
    EXPECT_EQ(input->nativeFormat().sampleRate, 0);
}

TEST_F(PulseAudioInputTest, WithoutAServerTheAnswerIsThereAtOnceAndAServerThatComesIsFound) {
    connectInput();
    ASSERT_TRUE(waitFor([this] { return settled(); }, 1000));
    EXPECT_EQ(input->nativeFormat(), AudioFormat());
    EXPECT_FALSE(input->defaultDeviceName().has_value());
    EXPECT_EQ(PulseMicrophonePermission(connection).status(), AuthorizationStatus::Authorized)
        << "nobody denied anything";
    const auto refused = input->startCapture({48000, 1}, 4096, counting());
    ASSERT_FALSE(refused.ok());
    EXPECT_FALSE(refused.error().localizedDescription.isEmpty());
    AudioRecorder recorder(*input);
    ASSERT_TRUE(recorder.start().has_value());
    EXPECT_EQ(recorder.start()->code, 1);

    server.start();
    server.addMicrophone(kDesk, QStringLiteral("Desk Microphone"));
    server.setDefault(kDesk);
    EXPECT_TRUE(waitFor([this] { return changes == 1; }, 10000));
    EXPECT_EQ(recorder.start(), Failure());
    EXPECT_TRUE(waitFor([&recorder] { return recorder.sessionPeak() > 0; }));
}

TEST_F(PulseAudioInputTest, AnotherDefaultIsReportedOnceAndNothingElseIs) {
    startWithDesk();
    server.addMicrophone(kHeadset, QStringLiteral("Headset"), 16000);
    server.control({QStringLiteral("set-source-volume"), kDesk, QStringLiteral("50%")});
    letPass(200);
    EXPECT_EQ(changes, 0) << "the default is the same";

    server.setDefault(kHeadset);
    ASSERT_TRUE(waitFor([this] { return changes > 0; }));
    EXPECT_EQ(input->defaultDeviceName(), QStringLiteral("Headset"));
    EXPECT_EQ(input->nativeFormat(), (AudioFormat{16000, 1}));
    letPass(200);
    EXPECT_EQ(changes, 1);
}

TEST_F(PulseAudioInputTest, AMonitorThatNobodyChoseIsNoMicrophone) {
    server.start();
    server.addOutput(kSpeakers);
    connectInput();
    ASSERT_TRUE(waitFor([this] { return settled(); }));
    EXPECT_EQ(input->nativeFormat(), AudioFormat());
    EXPECT_FALSE(input->defaultDeviceName().has_value());
    EXPECT_FALSE(input->startCapture({48000, 2}, 4096, counting()).ok());

    const QByteArray desk = server.addMicrophone(kDesk, QStringLiteral("Desk Microphone"));
    ASSERT_TRUE(waitFor([this] { return changes == 1; })) << "one has come";
    EXPECT_EQ(input->defaultDeviceName(), QStringLiteral("Desk Microphone"));

    server.remove(desk);
    ASSERT_TRUE(waitFor([this] { return changes == 2; }));
    EXPECT_FALSE(input->defaultDeviceName().has_value());
}

TEST_F(PulseAudioInputTest, AMonitorChosenBesideAMicrophoneIsRecorded) {
    server.start();
    server.addOutput(kSpeakers);
    server.addMicrophone(kDesk, QStringLiteral("Desk Microphone"));
    server.setDefault(kSpeakers + QLatin1String(".monitor"));
    connectInput();
    ASSERT_TRUE(waitFor([this] { return settled(); }));
    EXPECT_EQ(input->nativeFormat(), (AudioFormat{48000, 2}));
    const auto running = capture();
    EXPECT_TRUE(waitFor([this] { return frames > 0; }));
}

TEST_F(PulseAudioInputTest, AMicrophoneThatGoesEndsTheRecordingAndNothingIsOverheard) {
    server.start();
    server.addOutput(kSpeakers);
    const QByteArray desk = server.addMicrophone(kDesk, QStringLiteral("Desk Microphone"));
    server.setDefault(kDesk);
    connectInput();
    ASSERT_TRUE(waitFor([this] { return settled(); }));
    AudioRecorder recorder(*input);
    ASSERT_EQ(recorder.start(), Failure());
    ASSERT_TRUE(waitFor([&recorder] { return recorder.sessionPeak() > 0.1F; }));
    letPass(500);

    server.remove(desk); // the server would go on with the monitor of the speakers
    ASSERT_TRUE(waitFor([this] { return changes > 0; }));
    QElapsedTimer since;
    since.start();
    const std::vector<float> samples = recorder.stop();
    EXPECT_LT(since.elapsed(), 100);
    EXPECT_GT(samples.size(), 4800U) << "what was there is not lost";
    const auto tail = std::span(samples).last(800);
    EXPECT_GT(*std::max_element(tail.begin(), tail.end()), 0.05F)
        << "the tone to the end: no silence of the monitor";
    EXPECT_TRUE(waitFor([this] { return server.recordings() == 0; }));
    EXPECT_EQ(recorder.start()->code, 1);
}

TEST_F(PulseAudioInputTest, ARecordingMovedToAMonitorIsOver) {
    startWithDesk();
    server.addOutput(kSpeakers);
    const auto running = capture();
    ASSERT_TRUE(waitFor([this] { return frames > 0; }));
    const QByteArray listed = server.control(
        {QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("source-outputs")});
    server.control({QStringLiteral("move-source-output"),
                    QString::fromUtf8(listed.left(listed.indexOf('\t'))),
                    kSpeakers + QLatin1String(".monitor")});
    ASSERT_TRUE(waitFor([this] { return changes == 1; }));
    const qint64 atEnd = frames;
    letPass(300);
    EXPECT_EQ(frames, atEnd);
    EXPECT_EQ(server.recordings(), 0);
}

TEST_F(PulseAudioInputTest, AMonitorRememberedForThisProgramIsNotRecorded) {
    server.start();
    server.control({QStringLiteral("load-module"), QStringLiteral("module-stream-restore")});
    server.addMicrophone(kDesk, QStringLiteral("Desk Microphone"));
    server.setDefault(kDesk);
    server.addOutput(kSpeakers);
    connectInput();
    ASSERT_TRUE(waitFor([this] { return settled(); }));
    auto running = capture();
    ASSERT_TRUE(waitFor([this] { return frames > 0; }));
    const QByteArray listed = server.control(
        {QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("source-outputs")});
    server.control({QStringLiteral("move-source-output"),
                    QString::fromUtf8(listed.left(listed.indexOf('\t'))),
                    kSpeakers + QLatin1String(".monitor")});
    ASSERT_TRUE(waitFor([this] { return changes == 1; }));
    running.reset();

    frames = 0;
    peak = 0;
    running = capture();
    EXPECT_TRUE(waitFor([this] { return frames > 4800; }));
    EXPECT_GT(peak, 0.1F) << "the microphone's tone";
    EXPECT_EQ(changes, 1);
}

TEST_F(PulseAudioInputTest, ARecordingThatTheServerEndsIsReported) {
    startWithDesk();
    const auto running = capture();
    ASSERT_TRUE(waitFor([this] { return frames > 0; }));
    const QByteArray listed = server.control(
        {QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("source-outputs")});
    server.command("kill-source-output " + listed.left(listed.indexOf('\t')));
    EXPECT_TRUE(waitFor([this] { return changes == 1; }));
}

TEST_F(PulseAudioInputTest, AServerThatDiesEndsTheRecordingAndItsSuccessorIsUsed) {
    startWithDesk();
    AudioRecorder recorder(*input);
    ASSERT_EQ(recorder.start(), Failure());
    ASSERT_TRUE(waitFor([&recorder] { return recorder.sessionPeak() > 0.1F; }));
    letPass(300);
    server.kill();
    ASSERT_TRUE(waitFor([this] { return changes > 0; }));
    EXPECT_GT(recorder.stop().size(), 1600U);
    EXPECT_EQ(recorder.start()->code, 1);
    letPass(50);
    changes = 0;

    server.start();
    server.addMicrophone(kHeadset, QStringLiteral("Headset"));
    ASSERT_TRUE(waitFor([this] { return changes > 0; }, 10000));
    EXPECT_EQ(input->defaultDeviceName(), QStringLiteral("Headset"));
    EXPECT_EQ(recorder.start(), Failure());
    EXPECT_TRUE(waitFor([&recorder] { return recorder.sessionPeak() > 0.1F; }));
}

TEST_F(PulseAudioInputTest, AServerThatHangsHoldsNothingUp) {
    startWithDesk();
    server.freeze();
    QElapsedTimer since;
    since.start();
    auto running = capture();
    EXPECT_LT(since.elapsed(), 50);
    EXPECT_TRUE(waitFor([this] { return changes == 1; }, 4000)) << "the recording is over";
    since.restart();
    running.reset();
    EXPECT_LT(since.elapsed(), 50);

    capture().reset(); // a press and a release while it hangs
    server.thaw();
    EXPECT_TRUE(waitFor([this] { return server.recordings() == 0; }));
    running = capture();
    EXPECT_TRUE(waitFor([this] { return frames > 0; }));
}

TEST_F(PulseAudioInputTest, AServerThatHangsHoldsUpNeitherStartNorEnd) {
    server.start();
    server.freeze();
    QElapsedTimer since;
    since.start();
    connectInput();
    capture().reset();
    input.reset();
    connection.reset();
    EXPECT_LT(since.elapsed(), 200);
}

TEST_F(PulseAudioInputTest, TheEndOfTheProgramDuringARecording) {
    startWithDesk();
    auto running = capture();
    ASSERT_TRUE(waitFor([this] { return frames > 0; }));
    input.reset();
    connection.reset();
    running.reset(); // the last that holds the connection
    EXPECT_TRUE(waitFor([this] { return server.recordings() == 0; }));
}

TEST_F(PulseAudioInputTest, PermissionIsAnsweredLater) {
    startWithDesk();
    PulseMicrophonePermission permission(connection);
    std::vector<bool> answers;
    permission.requestAccess([&answers](bool granted) { answers.push_back(granted); });
    permission.requestAccess({});
    EXPECT_TRUE(answers.empty());
    EXPECT_TRUE(waitFor([&answers] { return answers == std::vector<bool>{true}; }));
}

TEST_F(PulseAudioInputTest, AServerThatRefusesIsADeniedPermission) {
    server.start();
    server.control({QStringLiteral("load-module"), QStringLiteral("module-native-protocol-tcp"),
                    QStringLiteral("port=4713")});
    QTemporaryDir elsewhere;
    QFile cookie(elsewhere.filePath(QStringLiteral("cookie")));
    ASSERT_TRUE(cookie.open(QIODevice::WriteOnly));
    cookie.write(QByteArray(256, 'x')); // not the server's
    cookie.close();
    qputenv("PULSE_COOKIE", cookie.fileName().toUtf8());
    qputenv("PULSE_SERVER", "tcp:127.0.0.1:4713");
    connectInput();
    EXPECT_TRUE(waitFor([this] { return settled(); }));
    qunsetenv("PULSE_COOKIE");
    qunsetenv("PULSE_SERVER");
    EXPECT_EQ(PulseMicrophonePermission(connection).status(), AuthorizationStatus::Denied);
    EXPECT_EQ(input->nativeFormat(), AudioFormat());
    EXPECT_FALSE(input->startCapture({48000, 1}, 4096, counting()).ok());
}

} // namespace
} // namespace quenda::desktop
