#include "Quenda/GeneralSection.h"

#include "Platform/Desktop.h"
#include "Quenda/ProductSite.h"
#include "Quenda/WrappingCheckBox.h"

#include <QCheckBox>
#include <QLabel>
#include <QSignalBlocker>

namespace quenda {

GeneralSection::GeneralSection(ConfigStore &store, LoginItem &loginItem, QWidget *parent)
    : SettingsSection(tr("General"), store, parent),
      m_loginItem(loginItem) {
    m_launchAtLogin = new WrappingCheckBox(tr("Launch at login"));
    connect(m_launchAtLogin, &QCheckBox::toggled, this, [this](bool on) {
        if (m_loginItem.setEnabled(on) == LoginItemOutcome::Refused)
            refreshLaunchAtLogin();
    });
    addWide(m_launchAtLogin);
    addToggle(tr("Play sound cues when recording starts/stops"), &Config::playSoundCues);
    addToggle(tr("Check for updates automatically"), &Config::checkForUpdates);
    addNote(tr("Update checks fetch a small version file from %1 once a day. No audio, text, or "
               "personal data is ever sent.")
                .arg(kProductSiteHost));
    refreshLaunchAtLogin();
}

void GeneralSection::refreshLaunchAtLogin() {
    const QSignalBlocker quiet(m_launchAtLogin);
    m_launchAtLogin->setChecked(m_loginItem.isEnabled());
}

} // namespace quenda
