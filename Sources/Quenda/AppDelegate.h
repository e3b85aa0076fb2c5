#pragma once
// The controller: builds and wires every component at launch, runs each dictation from key press
// to inserted text, keeps the status menu, opens the windows and ends it all. One instance, built
// by the entry point; lives until the process ends. Main thread only.
//
// Its implementation lies in one file per concern: AppDelegate.cpp (construction, launch, end),
// AppDelegateDictation.cpp, AppDelegateEngine.cpp, AppDelegateMenu.cpp, AppDelegateRemote.cpp,
// AppDelegateWindows.cpp.

#include "Platform/Platform.h"
#include "Platform/Scheduler.h"
#include "Quenda/AudioRecorder.h"
#include "Quenda/Config.h"
#include "Quenda/ConfigStore.h"
#include "Quenda/HotkeyMonitor.h"
#include "Quenda/Observable.h"
#include "Quenda/ProductSite.h"
#include "Quenda/RecordingIndicator.h"
#include "Quenda/TextInjector.h"
#include "Quenda/UpdateChecker.h"
#include "Quenda/WhisperEngine.h"

#include <QObject>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QAction;
class QMenu;
class QSettings;

namespace quenda {

class AboutView;
class HttpClient;
class ModelDownloader;
class PermissionFixer;
class SettingsView;
class StatusItem;
class WelcomeView;

class AppDelegate : public QObject {
    Q_OBJECT
public:
    /// What the entry point provides; all of it outlives the controller.
    struct Environment {
        Platform &platform;
        Scheduler &scheduler;
        HttpClient &http;
        QSettings &defaults;                  ///< the user defaults
        std::function<void()> terminate;      ///< ends the program through its normal termination
        QString modelBaseUrl = kModelBaseUrl; ///< what stands before a model's file name
    };

    /// The settings whose change restarts the local engine.
    struct EngineKey {
        QString modelPath;
        QString serverPath;
        qint64 port = 0;
        TranscriptionProvider provider = TranscriptionProvider::local;

        bool operator==(const EngineKey &) const = default;
        static EngineKey of(const Config &config);
    };

    static constexpr int kHistoryLimit = 10;

    explicit AppDelegate(Environment environment, QObject *parent = nullptr);
    ~AppDelegate() override;

    /// The launch sequence. Call it once, when the event loop runs.
    void applicationDidFinishLaunching();
    /// Stops the engine and the hotkey listener. Safe to call twice.
    void applicationWillTerminate();

    // --- dictation ---
    void beginDictation();
    void finishDictation();
    void cancelDictation();
    /// Whether a dictation may begin: the local engine is starting, ready or asleep, or the cloud
    /// provider has a key.
    bool transcriberIsReady();
    bool isDictating() const { return m_isDictating; }
    enum class RetryOutcome {
        started,
        nothingToRetry, ///< no dictation has failed since the last that was sent again with success
        busy,           ///< one is being recorded, or that one is being sent again already
        notReady,       ///< as transcriberIsReady() says
    };
    /// Sends the samples of the dictation that failed last once more, with the settings of now; its
    /// text goes where any dictation's goes. The samples live in memory only.
    RetryOutcome retryDictation();
    bool canRetryDictation() const { return m_failedDictation.has_value(); }

    // --- requests from other processes ---
    /// Does what another process of the user asks for, as the key or the menu would.
    RemoteAnswer carryOut(const RemoteRequest &request);

    // --- engine ---
    void startEngine();
    void restartEngine();

    // --- menu ---
    static QString hintText(HotkeyChoice hotkey, ActivationMode mode);
    void refreshStatus();
    /// What the status menu does each time just before it opens.
    void menuWillOpen();
    void copyHistoryItem(const QString &text);
    void clearHistory();
    QMenu *statusMenu() const { return m_menu.get(); }
    bool statusItemShowsRecording() const;
    const QStringList &history() const { return m_history; }

    // --- windows ---
    void openWelcome();
    void openSettings();
    void openAbout();
    /// Shows the menu's update entry; it stays until the program ends.
    void showUpdate(const UpdateChecker::Available &available);
    void openUpdate();
    void checkForUpdatesNow();
    /// Null until first opened.
    WelcomeView *welcomeWindow() const { return m_welcomeWindow.get(); }
    SettingsView *settingsWindow() const { return m_settingsWindow.get(); }
    AboutView *aboutWindow() const { return m_aboutWindow.get(); }

    ConfigStore &store() { return *m_store; }
    HotkeyMonitor &hotkey() { return *m_hotkey; }
    AudioRecorder &recorder() { return *m_recorder; }
    RecordingIndicator &indicator() { return *m_indicator; }
    ModelDownloader &downloader() { return *m_downloader; }
    UpdateChecker &updateChecker() { return *m_updateChecker; }
    /// Created on first use.
    WhisperEngine &engine();

private:
    struct Dictation {
        quint64 number; ///< a later dictation has a higher one
        std::shared_ptr<const std::vector<float>> samples;
    };

    // launch
    void observeSignals();
    void observeConfigChanges();
    void installEngineCallback();
    void installComponentCallbacks();
    void requestMicrophoneIfUndetermined();
    void observeWake();
    void observeInputDevice();

    // engine
    void engineKeySettled(const EngineKey &key);

    // dictation
    void hotkeyPressed();
    void hotkeyReleased();
    void escapePressed();
    void cancelWithNotice(const QString &notice);
    void endRecordingState(const QString &cue);
    void maxDurationReached();
    void startCap();
    void transcribe(const Dictation &dictation);
    void keepIfFailed(const Dictation &dictation, bool recognised);
    void transcriptionDone(const Result<QString> &result, double audioSeconds,
                           std::chrono::milliseconds started);
    void playCue(const QString &name);
    void setIcon(bool recording);

    // requests from other processes
    void takeRequests();
    RemoteAnswer begin(bool capped);
    RemoteAnswer end(void (AppDelegate::*how)());
    RemoteAnswer retry();
    RemoteAnswer copyEntry(quint32 entry);
    RemoteAnswer status();

    // menu
    void setupStatusItem();
    QString statusLine();
    void rebuildHistoryMenu();

    // windows
    void ensureAccessibilityAndStartHotkey();
    KeyReach keyReach();
    void startHotkey();
    void runFirstLaunchFlowIfNeeded();
    void scheduleUpdateCheck();
    void scheduleFirstWindow();
    void chooseFirstWindow();
    void tellOnceWhereToBind();
    void installUpdateCallback();

    Environment m_env;
    std::unique_ptr<QMenu> m_menu;
    std::unique_ptr<StatusItem> m_statusItem;
    std::unique_ptr<ConfigStore> m_store;
    std::unique_ptr<HotkeyMonitor> m_hotkey;
    std::unique_ptr<AudioRecorder> m_recorder;
    std::unique_ptr<ModelDownloader> m_downloader;
    std::unique_ptr<RecordingIndicator> m_indicator;
    std::unique_ptr<UpdateChecker> m_updateChecker;
    std::unique_ptr<TextInjector> m_injector;
    std::unique_ptr<PermissionFixer> m_fixer;
    std::unique_ptr<WhisperEngine> m_engine;

    std::optional<std::chrono::milliseconds> m_pressStartedAt;
    bool m_isDictating = false;
    quint64 m_dictationCount = 0;
    std::optional<Dictation> m_failedDictation;
    std::optional<quint64> m_retried; ///< the number of the one that is being sent again
    Scheduler::TimerHandle m_maxDurationTimer;
    /// Held also by every transcription that is under way.
    std::shared_ptr<const char> m_transcriptions = std::make_shared<const char>();
    QStringList m_history; ///< newest first; in memory only

    QAction *m_statusMenuItem = nullptr;
    QAction *m_hintMenuItem = nullptr;
    QAction *m_micMenuItem = nullptr;
    QAction *m_updateMenuItem = nullptr;
    QAction *m_updateSeparator = nullptr;
    QMenu *m_historyMenu = nullptr;

    std::optional<EngineKey> m_runningEngineKey;
    Scheduler::TimerHandle m_engineKeyDebounce;
    std::vector<Subscription> m_cancellables;
    int m_axPollCount = 0;
    std::optional<KeyReach> m_keyReach; ///< once it was asked for

    std::unique_ptr<WelcomeView> m_welcomeWindow;
    std::unique_ptr<SettingsView> m_settingsWindow;
    std::unique_ptr<AboutView> m_aboutWindow;
};

} // namespace quenda
