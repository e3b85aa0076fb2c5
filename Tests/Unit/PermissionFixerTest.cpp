#include "Quenda/PermissionFixer.h"

#include "Fakes/FakePlatform.h"
#include "Fakes/TestMain.h"
#include "Fakes/VirtualScheduler.h"
#include "Quenda/Log.h"

#include <QFile>
#include <QSettings>

#include <gtest/gtest.h>

using namespace quenda;
using namespace std::chrono_literals;

namespace {

const QString kPending = QStringLiteral("pendingPermissionFix");

class PermissionFixerTest : public testing::Test {
protected:
    fakes::FakePlatform fake;
    fakes::VirtualScheduler scheduler;
    QSettings defaults{fakes::testHome() + QStringLiteral("/defaults.ini"), QSettings::IniFormat};
    int terminations = 0;
    std::unique_ptr<PermissionFixer> fixer = std::make_unique<PermissionFixer>(
        PermissionFixer::Environment{fake.platform, scheduler, defaults, [this] {
                                         // What must have happened before the end.
                                         EXPECT_EQ(fake.workspace->relaunches, 1);
                                         EXPECT_EQ(fake.workspace->resets.size(), 1);
                                         ++terminations;
                                     }});

    static QByteArray log() {
        Log::flush();
        QFile file(Log::fileURL());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
};

TEST_F(PermissionFixerTest, RepairStoresResetsRelaunchesAndEnds) {
    fixer->resetAndRelaunch(QStringLiteral("Microphone"));
    EXPECT_EQ(defaults.value(kPending).toString(), QStringLiteral("Microphone"));
    EXPECT_EQ(fake.workspace->resets, QStringList{QStringLiteral("Microphone")});
    EXPECT_EQ(terminations, 1);
    EXPECT_TRUE(log().contains(
        "permissions: user triggered fix for Microphone — resetting and relaunching\n"));
}

TEST_F(PermissionFixerTest, WithoutABundleIdentifierNothingHappens) {
    fake.bundle->identifierText.reset();
    fixer->resetAndRelaunch(QStringLiteral("Microphone"));
    EXPECT_FALSE(defaults.contains(kPending));
    EXPECT_TRUE(fake.workspace->resets.isEmpty());
    EXPECT_EQ(fake.workspace->relaunches, 0);
    EXPECT_EQ(terminations, 0);
    EXPECT_TRUE(log().isEmpty());
}

TEST_F(PermissionFixerTest, NothingPendingAsksNothing) {
    fixer->completePendingFixIfNeeded();
    scheduler.advance(5s);
    EXPECT_EQ(fake.microphonePermission->requests, 0);
    EXPECT_EQ(fake.accessibility->prompts, 0);
}

TEST_F(PermissionFixerTest, MicrophoneStillDeniedOpensItsPaneOnce) {
    defaults.setValue(kPending, QStringLiteral("Microphone"));
    fixer->completePendingFixIfNeeded();
    EXPECT_FALSE(defaults.contains(kPending));
    EXPECT_TRUE(fake.workspace->panes.isEmpty());
    fake.microphonePermission->answer(false);
    EXPECT_EQ(fake.workspace->panes, QStringList{QStringLiteral("Privacy_Microphone")});
    fixer->completePendingFixIfNeeded();
    EXPECT_EQ(fake.microphonePermission->requests, 1);
}

TEST_F(PermissionFixerTest, GrantedMicrophoneOpensNothing) {
    defaults.setValue(kPending, QStringLiteral("Microphone"));
    fixer->completePendingFixIfNeeded();
    fake.microphonePermission->answer(true);
    EXPECT_TRUE(fake.workspace->panes.isEmpty());
}

TEST_F(PermissionFixerTest, AccessibilityIsAskedForAndLookedAtAfterASecond) {
    defaults.setValue(kPending, QStringLiteral("Accessibility"));
    fake.accessibility->trusted = false;
    fixer->completePendingFixIfNeeded();
    EXPECT_EQ(fake.accessibility->prompts, 1);
    scheduler.advance(999ms);
    EXPECT_TRUE(fake.workspace->panes.isEmpty());
    scheduler.advance(1ms);
    EXPECT_EQ(fake.workspace->panes, QStringList{QStringLiteral("Privacy_Accessibility")});
    EXPECT_EQ(fake.accessibility->prompts, 1);
}

TEST_F(PermissionFixerTest, AccessibilityGrantedByThenOpensNothing) {
    defaults.setValue(kPending, QStringLiteral("Accessibility"));
    fake.accessibility->trusted = false;
    fixer->completePendingFixIfNeeded();
    fake.accessibility->trusted = true;
    scheduler.advance(1s);
    EXPECT_TRUE(fake.workspace->panes.isEmpty());
}

TEST_F(PermissionFixerTest, UnknownValueIsRemovedAndIgnored) {
    defaults.setValue(kPending, QStringLiteral("microphone"));
    fixer->completePendingFixIfNeeded();
    scheduler.advance(5s);
    EXPECT_FALSE(defaults.contains(kPending));
    EXPECT_EQ(fake.microphonePermission->requests, 0);
    EXPECT_EQ(fake.accessibility->prompts, 0);
}

TEST_F(PermissionFixerTest, AnswerAfterTheFixerIsGoneOpensNothing) {
    defaults.setValue(kPending, QStringLiteral("Microphone"));
    fixer->completePendingFixIfNeeded();
    fixer.reset();
    fake.microphonePermission->answer(false);
    EXPECT_TRUE(fake.workspace->panes.isEmpty());
}

TEST_F(PermissionFixerTest, RequestMicrophoneAsksAndIgnoresTheAnswer) {
    fixer->requestMicrophone();
    fake.microphonePermission->answer(false);
    EXPECT_EQ(fake.microphonePermission->requests, 1);
    EXPECT_TRUE(fake.workspace->panes.isEmpty());
}

TEST_F(PermissionFixerTest, OpensPanesByName) {
    fixer->openSystemSettings(QStringLiteral("Privacy_Accessibility"));
    EXPECT_EQ(fake.workspace->panes, QStringList{QStringLiteral("Privacy_Accessibility")});
}

} // namespace
