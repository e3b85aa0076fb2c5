#pragma once
// The content of the welcome window: three steps, each with a live check, and the way out.
// Created on first use by the controller, then kept. Main thread only.

#include "Platform/MicrophonePermission.h"
#include "Platform/Scheduler.h"
#include "Quenda/Observable.h"

#include <QWidget>

#include <functional>
#include <vector>

class QLabel;
class QPushButton;

namespace quenda {

class ConfigStore;
class DownloadBar;
class ModelDownloader;
class PermissionFixer;
class StepRow;
struct Platform;

class WelcomeView : public QWidget {
    Q_OBJECT
public:
    /// All of it outlives the view.
    struct Environment {
        ConfigStore &store;
        ModelDownloader &downloader;
        PermissionFixer &fixer;
        Platform &platform;
        Scheduler &scheduler;
        std::function<void()> onDone; ///< closes the window
    };

    static constexpr int kWidth = 440;

    explicit WelcomeView(Environment environment, QWidget *parent = nullptr);
    ~WelcomeView() override;

    /// Whether microphone, keyboard and model are all there.
    bool allDone() const;

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void addHeading();
    void addSteps();
    void addClosing();
    void recheck();
    void refresh();

    Environment m_env;
    AuthorizationStatus m_micStatus = AuthorizationStatus::NotDetermined;
    bool m_axTrusted = false;
    StepRow *m_microphone = nullptr;
    StepRow *m_accessibility = nullptr;
    StepRow *m_model = nullptr;
    QPushButton *m_micButton = nullptr;
    QPushButton *m_downloadButton = nullptr;
    DownloadBar *m_bar = nullptr;
    QLabel *m_downloadError = nullptr;
    QWidget *m_ready = nullptr;
    QPushButton *m_close = nullptr;
    std::vector<Subscription> m_subscriptions;
    Scheduler::TimerHandle m_ticker; ///< only while the window is on the screen
};

} // namespace quenda
