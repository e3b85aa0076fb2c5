#pragma once
// Launch at login as an XDG autostart entry of the user. Main thread only.

#include "Platform/Desktop.h"

#include <QString>

namespace quenda {

class LinuxLoginItem final : public LoginItem {
public:
    /// `folder`: where the autostart entries lie; empty for the user's own,
    /// `$XDG_CONFIG_HOME/autostart`.
    explicit LinuxLoginItem(QString folder = {});

    /// Whether the entry is there and not switched off ("Hidden" or GNOME's own key).
    bool isEnabled() const override;
    LoginItemOutcome setEnabled(bool enabled) override;

private:
    QString entryPath() const;

    QString m_folder;
};

} // namespace quenda
