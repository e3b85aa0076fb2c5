#pragma once
// The content of the settings window: six sections that edit the settings through the store, and
// show permissions, models and the engine. Created on first use by the controller, then kept.
// Main thread only.

#include "Platform/Scheduler.h"
#include "Quenda/Observable.h"

#include <QWidget>

#include <functional>
#include <vector>

class QVBoxLayout;

namespace quenda {

class ConfigStore;
class GeneralSection;
class ModelDownloader;
class ModelSection;
class PermissionFixer;
class PermissionsSection;
class SettingsSection;
class WhisperEngine;
struct Platform;

class SettingsView : public QWidget {
    Q_OBJECT
public:
    /// All of it outlives the view.
    struct Environment {
        ConfigStore &store;
        WhisperEngine &engine;
        ModelDownloader &downloader;
        PermissionFixer &fixer;
        Platform &platform;
        Scheduler &scheduler;
        std::function<void()> restartEngine;
    };

    static constexpr int kContentWidth = 480;
    static constexpr int kContentHeight = 580;

    explicit SettingsView(const Environment &environment, QWidget *parent = nullptr);
    ~SettingsView() override;

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void refreshOwnState();

    Environment m_env;
    PermissionsSection *m_permissions = nullptr;
    ModelSection *m_models = nullptr;
    GeneralSection *m_general = nullptr;
    std::vector<SettingsSection *> m_sections;
    std::vector<Subscription> m_subscriptions;
    Scheduler::TimerHandle m_permissionTicker; ///< only while the window is on the screen
};

} // namespace quenda
