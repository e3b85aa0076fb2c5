// What a person binds where, on the desktops that let no program listen for a key.

#include "Platform/Linux/LinuxWorkspace.h"

#include <QCoreApplication>
#include <QStringList>

namespace quenda {

namespace {

struct Text {
    Q_DECLARE_TR_FUNCTIONS(KeyBindingAdvice)
};

} // namespace

QString LinuxWorkspace::keyBindingAdvice() const {
    const QStringList desktops = qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':');
    const auto is = [&desktops](QLatin1String name) {
        return desktops.contains(name, Qt::CaseInsensitive);
    };
    if (is(QLatin1String("GNOME")))
        return Text::tr("In GNOME: Settings → Keyboard → View and Customize Shortcuts → Custom "
                        "Shortcuts.");
    if (is(QLatin1String("KDE")))
        return Text::tr("In KDE Plasma: the system settings → Keyboard → Shortcuts → Add New.");
    if (is(QLatin1String("sway")))
        return Text::tr("In sway, for a key to hold, add to ~/.config/sway/config:\n"
                        "bindsym --no-repeat F9 exec quenda start\n"
                        "bindsym --release F9 exec quenda stop");
    if (is(QLatin1String("Hyprland")))
        return Text::tr("In Hyprland, for a key to hold, add to ~/.config/hypr/hyprland.conf:\n"
                        "bind = , F9, exec, quenda start\n"
                        "bindr = , F9, exec, quenda stop");
    return {};
}

} // namespace quenda
