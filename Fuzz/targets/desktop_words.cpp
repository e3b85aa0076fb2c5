// Small things that other programs of the desktop say: a window's class, the names of clipboard
// formats, key codes, the autostart entry that the user or a settings program may have edited.
#include "FuzzTarget.h"
#include "Input.h"
#include "Platform/KeyTap.h"
#include "Platform/Linux/LinuxLoginItem.h"
#include "Platform/Linux/PasteShortcut.h"
#include "Platform/Linux/SelectionContents.h"
#include "Platform/Linux/X11KeyCodes.h"

#include <QFile>

namespace {

using quenda::PasteShortcut;

void windowClass(const QByteArray &bytes) {
    const PasteShortcut shortcut = quenda::pasteShortcutFor(bytes);
    PROMISE(shortcut == quenda::pasteShortcutFor(bytes.toUpper()));
    const QByteArray lower = bytes.toLower();
    PROMISE(shortcut == PasteShortcut::ControlV || !lower.isEmpty());
    // The name stands alone: nothing that only contains a terminal's name is taken for one.
    PROMISE(quenda::pasteShortcutFor("my-" + lower.split('\0').front() + "-editor") ==
            PasteShortcut::ControlV);
    PROMISE(quenda::pasteShortcutFor(bytes + QByteArray("\0xterm\0", 7)) ==
            PasteShortcut::ShiftInsert);
}

void formats(const QByteArray &name, const QString &text) {
    const quenda::SelectionContents contents = quenda::plainTextContents(text);
    PROMISE(contents.size() >= 4 && quenda::plainTextOf(contents) == contents);
    for (const quenda::SelectionData &each : contents) {
        const bool latin1 = each.type == "STRING";
        const QString back =
            latin1 ? QString::fromLatin1(each.bytes) : QString::fromUtf8(each.bytes);
        PROMISE(back == text && each.format == 8 && !quenda::isPseudoTarget(each.target));
    }
    const quenda::SelectionContents foreign{{name, name, 8, "x"}};
    PROMISE(quenda::plainTextOf(foreign).empty() || !quenda::isPseudoTarget(name));
}

void keyCode(unsigned code) {
    if (const std::optional<quenda::MacKey> key = quenda::macKey(std::uint8_t(code))) {
        PROMISE((key->keyCode == quenda::keys::kEscape) == (key->flag == 0));
        PROMISE((key->flag & (key->flag - 1)) == 0); // one flag at the most
    }
}

void autostartEntry(const QByteArray &text) {
    quenda::LinuxLoginItem item(quenda::fuzz::home() + QLatin1String("/autostart"));
    PROMISE(item.setEnabled(true) == quenda::LoginItemOutcome::Done && item.isEnabled());
    QFile file(quenda::fuzz::home() + QLatin1String("/autostart/org.quenda.Quenda.desktop"));
    PROMISE(file.open(QIODevice::WriteOnly) && file.write(text) == text.size());
    file.close();
    const QByteArray lower = text.toLower();
    const bool marked = lower.contains("hidden") || lower.contains("x-gnome-autostart-enabled");
    PROMISE(item.isEnabled() || marked);
    file.open(QIODevice::WriteOnly | QIODevice::Append);
    file.write("\nHidden=true\n");
    file.close();
    PROMISE(!item.isEnabled());
    PROMISE(item.setEnabled(true) == quenda::LoginItemOutcome::Done && item.isEnabled());
    PROMISE(item.setEnabled(false) == quenda::LoginItemOutcome::Done && !item.isEnabled());
}

} // namespace

// By the first byte: "c" and a window's class, "e" and an autostart entry, "k" and key codes, else
// a line with the name of a format, and text.
QUENDA_FUZZ_TARGET(desktop_words) {
    quenda::fuzz::Input parts(input);
    switch (parts.byte()) {
    case 'c':
        windowClass(parts.rest());
        break;
    case 'e':
        autostartEntry(parts.rest());
        break;
    case 'k':
        while (!parts.atEnd())
            keyCode(parts.byte());
        break;
    default:
        const QByteArray name = parts.line();
        formats(name, QString::fromUtf8(parts.rest()));
    }
}
