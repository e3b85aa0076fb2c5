#pragma once
// Settings, "Permissions": what the system grants, and the ways to mend it. Main thread only.

#include "Platform/MicrophonePermission.h"
#include "Quenda/SettingsForm.h"

namespace quenda {

class PermissionFixer;
class PermissionRow;
struct Platform;

class PermissionsSection : public SettingsSection {
    Q_OBJECT
public:
    PermissionsSection(ConfigStore &store, Platform &platform, PermissionFixer &fixer,
                       QWidget *parent = nullptr);

    /// Reads both permissions and the input device's name again.
    void recheck();

private:
    Platform &m_platform;
    PermissionRow *m_microphone = nullptr;
    PermissionRow *m_accessibility = nullptr;
    QLabel *m_inputDevice = nullptr;
};

} // namespace quenda
