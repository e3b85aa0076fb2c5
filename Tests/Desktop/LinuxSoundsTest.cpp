// The cues, as they are heard from the speakers of a real sound server.
#include "Platform/Linux/LinuxSounds.h"

#include "PulseFixture.h"

#include <gtest/gtest.h>

namespace quenda::desktop {
namespace {

struct LinuxSoundsTest : PulseFixture {};

TEST_F(LinuxSoundsTest, CuesAreHeardAndQuiet) {
    server.start();
    server.addOutput(kSpeakers);
    server.addMicrophone(kDesk, QStringLiteral("Desk Microphone"));
    server.setDefault(kSpeakers + QLatin1String(".monitor")); // we listen to the speakers
    connectInput();
    ASSERT_TRUE(waitFor([this] { return settled(); }));
    LinuxSounds sounds(connection);
    const auto running = capture();
    ASSERT_TRUE(waitFor([this] { return frames > 0; }));
    for (const QString &name :
         {QStringLiteral("Pop"), QStringLiteral("Tink"), QStringLiteral("Bottle")}) {
        peak = 0;
        QElapsedTimer since;
        since.start();
        sounds.play(name);
        EXPECT_LT(since.elapsed(), 20) << "returns at once";
        EXPECT_TRUE(waitFor([this] { return peak > 0.05F; })) << qPrintable(name);
        letPass(400);
        EXPECT_LT(peak, 0.12F) << qPrintable(name);
    }
    peak = 0;
    sounds.play(QStringLiteral("Sosumi"));
    sounds.play(QStringLiteral("../sounds/Pop"));
    letPass(400);
    EXPECT_EQ(peak, 0.0F) << "a name without a sound plays nothing";
}

TEST_F(LinuxSoundsTest, CuesNeitherPileUpNorOutliveTheServer) {
    startWithDesk();
    server.addOutput(kSpeakers);
    LinuxSounds sounds(connection);
    server.freeze();
    for (int cue = 0; cue < 50; ++cue)
        sounds.play(QStringLiteral("Pop"));
    server.thaw();
    const auto playing = [this] {
        const QByteArray listed = server.control(
            {QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("sink-inputs")});
        return listed.isEmpty() ? 0 : int(listed.count('\n')) + 1;
    };
    EXPECT_LE(playing(), 4);
    EXPECT_TRUE(waitFor([&playing] { return playing() == 0; }));
    sounds.play(QStringLiteral("Pop"));
    server.kill();
    EXPECT_TRUE(waitFor([this] { return changes > 0; }));
    sounds.play(QStringLiteral("Pop"));
    letPass(20);
}

} // namespace
} // namespace quenda::desktop
