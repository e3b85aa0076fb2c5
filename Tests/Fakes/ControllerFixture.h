#pragma once
// A whole controller on fakes and virtual time, with the real settings store, engine supervisor,
// recorder, monitor, injector and pill between them.

#include "Fakes/FakeHttpClient.h"
#include "Fakes/FakePlatform.h"
#include "Fakes/TestMain.h"
#include "Fakes/VirtualScheduler.h"
#include "Quenda/AppDelegate.h"

#include <QMessageBox>
#include <QSettings>

#include <gtest/gtest.h>

#include <memory>

namespace quenda::fakes {

class ControllerFixture : public testing::Test {
protected:
    ControllerFixture();
    ~ControllerFixture() override;

    /// Builds the controller and runs its launch sequence.
    void launch();
    /// Launches with a model and a server in place, and answers the readiness poll.
    void launchReady();
    /// Puts an executable server and a model file where the settings expect them.
    void installEngine();
    /// Answers every open request to the engine's root address with 200, letting time pass.
    void becomeReady();
    void writeConfig(const Config &config);

    void pressKey();
    void releaseKey();
    void pressEscape();
    /// Holds the key while speaking `seconds` at `peak`, then lets go. Hold mode.
    void dictate(double seconds = 1.0, float peak = 0.5F);
    /// Answers the open transcription request with `text`.
    void answerTranscript(const QString &text);

    void advance(std::chrono::milliseconds span) { scheduler.advance(span); }
    Config config() { return controller->store().config(); }
    WhisperEngine::State::Kind engineKind() { return controller->engine().state().kind; }

    /// Alerts on the screen, oldest first, and their dismissal.
    static QList<QMessageBox *> alerts();
    static QString alertTitle();
    static QString alertText();
    static void dismissAlerts();

    /// What the pill shows; null while it is hidden.
    QString pillText();
    /// All lines of the log so far, without their time stamps.
    static QStringList logLines();

    FakePlatform fake;
    VirtualScheduler scheduler;
    FakeHttpClient http;
    std::unique_ptr<QSettings> defaults;
    int terminations = 0;
    std::unique_ptr<AppDelegate> controller;
};

} // namespace quenda::fakes
