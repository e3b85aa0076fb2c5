#pragma once
// The floating pill: status, level and clock of a dictation, and short notices. It never takes the
// keyboard focus. One instance, owned by the controller. Main thread only.

#include "Platform/Scheduler.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace quenda {

class Workspace;
class PillPanel;

class RecordingIndicator : public QObject {
    Q_OBJECT
public:
    enum class Mode { recording, transcribing };
    using LevelSource = std::function<float()>;

    RecordingIndicator(Scheduler &scheduler, Workspace &workspace, QObject *parent = nullptr);
    ~RecordingIndicator() override;

    /// Called when the cancel button is clicked.
    std::function<void()> onCancel;

    /// Shows the pill; `levelSource` answers the live level, 0 to 1.
    void show(Mode mode, LevelSource levelSource = {});
    /// Shows a short notice for 1.4 seconds.
    void showTransient(const QString &text);
    void hide();

    bool isVisible() const;
    /// The pill's window; null before the first show.
    PillPanel *panel() const { return m_panel.get(); }

private:
    PillPanel &builtPanel();
    void restartClock();
    void conceal();

    Scheduler &m_scheduler;
    Workspace &m_workspace;
    std::unique_ptr<PillPanel> m_panel; ///< built on first use, then kept
    LevelSource m_levelSource;
    Scheduler::TimerHandle m_clockTimer;
    std::chrono::milliseconds m_clockStarted{0};
    /// The hiding that ends the latest notice. Dropped by whatever is shown or hidden next, so that
    /// an old notice never takes away a newer picture.
    Scheduler::TimerHandle m_transientHide;
};

} // namespace quenda
