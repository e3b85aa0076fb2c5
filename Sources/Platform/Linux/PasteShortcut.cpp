#include "Platform/Linux/PasteShortcut.h"

#include <QList>

#include <algorithm>
#include <array>
#include <string_view>

namespace quenda {

namespace {

using namespace std::string_view_literals;

// In lower case; instance or class, whichever is the same everywhere.
constexpr std::array kPrimaryTerminals{
    "aterm"sv, "eterm"sv,        "koi8rxterm"sv, "mlterm"sv, "mrxvt"sv, "multi-aterm"sv,
    "rxvt"sv,  "rxvt-unicode"sv, "urxvt"sv,      "uxterm"sv, "wterm"sv, "xterm"sv,
};

constexpr std::array kClipboardTerminals{
    "alacritty"sv,
    "blackbox"sv,
    "com.mitchellh.ghostty"sv,
    "com.raggesilver.blackbox"sv,
    "contour"sv,
    "cool-retro-term"sv,
    "deepin-terminal"sv,
    "gnome-terminal"sv,
    "gnome-terminal-server"sv,
    "guake"sv,
    "kgx"sv,
    "kitty"sv,
    "konsole"sv,
    "lxterminal"sv,
    "mate-terminal"sv,
    "org.codeberg.dnkl.foot"sv,
    "org.gnome.console"sv,
    "org.gnome.ptyxis"sv,
    "org.wezfurlong.wezterm"sv,
    "ptyxis"sv,
    "qterminal"sv,
    "roxterm"sv,
    "sakura"sv,
    "st"sv,
    "st-256color"sv,
    "terminator"sv,
    "terminology"sv,
    "termite"sv,
    "tilda"sv,
    "tilix"sv,
    "xfce4-terminal"sv,
    "yakuake"sv,
};

} // namespace

PasteShortcut pasteShortcutFor(const QByteArray &windowClass) {
    const QList<QByteArray> names = windowClass.toLower().split('\0');
    const auto contains = [&names](const auto &terminals) {
        return std::any_of(terminals.begin(), terminals.end(), [&names](std::string_view terminal) {
            return names.contains(QByteArray(terminal.data(), qsizetype(terminal.size())));
        });
    };
    if (contains(kPrimaryTerminals))
        return PasteShortcut::ShiftInsert;
    if (contains(kClipboardTerminals))
        return PasteShortcut::ControlShiftV;
    return PasteShortcut::ControlV;
}

} // namespace quenda
