#pragma once
// Settings, "General": launch at login, sounds, update checks. Main thread only.

#include "Quenda/SettingsForm.h"

class QCheckBox;

namespace quenda {

class LoginItem;

class GeneralSection : public SettingsSection {
    Q_OBJECT
public:
    GeneralSection(ConfigStore &store, LoginItem &loginItem, QWidget *parent = nullptr);

    /// Shows whether the system will really launch the program at login.
    void refreshLaunchAtLogin();

private:
    LoginItem &m_loginItem;
    QCheckBox *m_launchAtLogin = nullptr;
};

} // namespace quenda
