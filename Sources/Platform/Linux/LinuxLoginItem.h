#pragma once
// Launch at login as an XDG autostart entry of the user, over those that an administrator may have
// put there for everybody. Main thread only.

#include "Platform/Desktop.h"

#include <QString>
#include <QStringList>

namespace quenda {

class LinuxLoginItem final : public LoginItem {
public:
    /// `folder`: where the autostart entries lie; empty for the user's own,
    /// `$XDG_CONFIG_HOME/autostart`. `systemFolders`: where everybody's lie, the most important
    /// first; if `folder` is empty too, those of `$XDG_CONFIG_DIRS`.
    explicit LinuxLoginItem(QString folder = {}, QStringList systemFolders = {});

    /// Whether the entry is there and not switched off ("Hidden" or GNOME's own key). The user's
    /// own entry decides; without one, the first of everybody's.
    bool isEnabled() const override;
    /// Writes the user's entry, or removes it. Where everybody's would then start the program all
    /// the same, "off" is an entry that hides it.
    LoginItemOutcome setEnabled(bool enabled) override;

private:
    QString entryPath() const;
    LoginItemOutcome write(const QString &text) const;

    QString m_folder;
    QStringList m_systemFolders;
};

} // namespace quenda
