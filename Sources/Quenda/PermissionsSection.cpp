#include "Quenda/PermissionsSection.h"

#include "Platform/Platform.h"
#include "Quenda/AudioRecorder.h"
#include "Quenda/PermissionFixer.h"
#include "Quenda/PermissionRow.h"

#include <QLabel>

namespace quenda {

PermissionsSection::PermissionsSection(ConfigStore &store, Platform &platform,
                                       PermissionFixer &fixer, QWidget *parent)
    : SettingsSection(tr("Permissions"), store, parent),
      m_platform(platform) {
    m_microphone = new PermissionRow(tr("Microphone"), tr("Fix Microphone"));
    m_microphone->onEnable = [&fixer] { fixer.requestMicrophone(); };
    m_microphone->onOpenSettings = [&fixer] {
        fixer.openSystemSettings(QStringLiteral("Privacy_Microphone"));
    };
    m_microphone->onFix = [&fixer] { fixer.resetAndRelaunch(QStringLiteral("Microphone")); };
    addWide(m_microphone);

    m_inputDevice = new QLabel;
    m_inputDevice->setTextFormat(Qt::PlainText);
    m_inputDevice->setWordWrap(true);
    m_inputDevice->setAlignment(sideOf(Qt::AlignTrailing | Qt::AlignVCenter));
    addRow(tr("Input device"), m_inputDevice);

    m_accessibility = new PermissionRow(tr("Accessibility"), tr("Fix Accessibility"));
    m_accessibility->onEnable = [this] {
        m_platform.accessibility->isTrusted(TrustPrompt::Ask);
        recheck();
    };
    m_accessibility->onOpenSettings = [&fixer] {
        fixer.openSystemSettings(QStringLiteral("Privacy_Accessibility"));
    };
    m_accessibility->onFix = [&fixer] { fixer.resetAndRelaunch(QStringLiteral("Accessibility")); };
    addWide(m_accessibility);

    addNote(tr("Needed for the dictation key and text insertion"));
    addNote(tr("“Fix” clears the stuck permission, relaunches Quenda, and asks macOS again "
               "automatically — even when Quenda is missing from the System Settings list. If "
               "macOS still refuses to ask, the right Settings pane opens by itself."));
    recheck();
}

void PermissionsSection::recheck() {
    using Actions = PermissionRow::Actions;
    const AuthorizationStatus status = m_platform.microphonePermission->status();
    switch (status) {
    case AuthorizationStatus::Authorized:
        m_microphone->showState(true, tr("Granted"), Actions{});
        break;
    case AuthorizationStatus::Restricted:
        m_microphone->showState(false, tr("Restricted by a management profile"),
                                Actions{false, true, true});
        break;
    case AuthorizationStatus::Denied:
        m_microphone->showState(false, tr("Denied or stuck — use Reset & Relaunch"),
                                Actions{false, true, true});
        break;
    case AuthorizationStatus::NotDetermined:
        m_microphone->showState(false, tr("Not requested yet — click Enable"),
                                Actions{true, false, false});
        break;
    default:
        m_microphone->showState(false, tr("Unknown"), Actions{false, true, true});
        break;
    }
    const bool trusted = m_platform.accessibility->isTrusted();
    m_accessibility->showState(trusted, trusted ? tr("Granted") : QString(),
                               trusted ? Actions{} : Actions{true, true, true});

    const QString device =
        AudioRecorder::defaultInputDeviceName(*m_platform.audioInput).value_or(tr("None found"));
    if (m_inputDevice->text() != device)
        m_inputDevice->setText(device);
    m_inputDevice->setAccessibleName(tr("Input device") + QStringLiteral(": ") + device);
}

} // namespace quenda
