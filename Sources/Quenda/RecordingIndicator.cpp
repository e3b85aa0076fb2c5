#include "Quenda/RecordingIndicator.h"

#include "Platform/Desktop.h"
#include "Quenda/PillPalette.h"
#include "Quenda/PillPanel.h"

#include <QPointer>

#include <utility>

namespace quenda {

namespace {

constexpr std::chrono::milliseconds kTransientTime{1400};
constexpr std::chrono::milliseconds kClockInterval{500};
constexpr float kTranscribingLevel = 0.3F; ///< a calm wave
constexpr float kTransientLevel = 0.06F;   ///< a faint ripple

QString clockText(std::chrono::milliseconds elapsed) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    return QStringLiteral("%1:%2")
        .arg(seconds / 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

} // namespace

RecordingIndicator::RecordingIndicator(Scheduler &scheduler, Workspace &workspace, QObject *parent)
    : QObject(parent),
      m_scheduler(scheduler),
      m_workspace(workspace) {
    m_workspace.setCompositingHandler([self = QPointer(this)] {
        if (self && self->isVisible())
            self->m_panel->present();
    });
}

RecordingIndicator::~RecordingIndicator() = default;

PillPanel &RecordingIndicator::builtPanel() {
    if (!m_panel) {
        m_panel = std::make_unique<PillPanel>(m_scheduler, m_workspace);
        m_panel->onCancel = [this] {
            const std::function<void()> cancel = onCancel; // which may set another
            if (cancel)
                cancel();
        };
    }
    return *m_panel;
}

void RecordingIndicator::show(Mode mode, LevelSource levelSource) {
    m_transientHide.reset();
    m_levelSource = std::move(levelSource);
    PillPanel &panel = builtPanel();
    panel.setDotVisible(true);
    panel.cancelButton()->show();
    if (mode == Mode::recording) {
        panel.setLabel(tr("Listening…"));
        panel.setClockVisible(true);
        panel.setDotColour(palette::recordRed);
        panel.setPulsing(true);
        panel.meter().levelSource = [self = QPointer(this)] {
            return self && self->m_levelSource ? self->m_levelSource() : 0.0F;
        };
    } else {
        panel.setLabel(tr("Transcribing…"));
        panel.setClockVisible(false);
        panel.setDotColour(palette::cyan);
        panel.setPulsing(false);
        panel.meter().levelSource = [] { return kTranscribingLevel; };
    }
    restartClock();
    panel.meter().startAnimating();
    panel.present();
}

void RecordingIndicator::restartClock() {
    m_clockStarted = m_scheduler.uptime();
    m_panel->setClock(clockText({}));
    m_clockTimer = m_scheduler.every(kClockInterval, [this] {
        m_panel->setClock(clockText(m_scheduler.uptime() - m_clockStarted));
    });
}

void RecordingIndicator::showTransient(const QString &text) {
    PillPanel &panel = builtPanel();
    m_clockTimer.reset();
    panel.setLabel(text, true);
    panel.cancelButton()->hide();
    panel.setDotVisible(false);
    panel.setClockVisible(false);
    panel.meter().levelSource = [] { return kTransientLevel; };
    panel.meter().startAnimating();
    panel.present();
    m_transientHide = m_scheduler.once(kTransientTime, [this] { conceal(); });
}

void RecordingIndicator::hide() {
    m_transientHide.reset();
    conceal();
}

void RecordingIndicator::conceal() {
    m_clockTimer.reset();
    if (!m_panel)
        return;
    m_panel->meter().stopAnimating();
    m_panel->hide();
}

bool RecordingIndicator::isVisible() const {
    return m_panel && m_panel->isVisible();
}

} // namespace quenda
