// Counting and cutting what people see as characters, for menus and the log.
#include "FuzzTarget.h"
#include "Quenda/GraphemeText.h"
#include "Quenda/MenuText.h"

#include <QList>

#include <algorithm>

QUENDA_FUZZ_TARGET(grapheme) {
    // The first byte gives the number of characters to keep.
    const qsizetype most = input.isEmpty() ? 0 : quint8(input.front()) % 64;
    const QString text = QString::fromUtf8(input.isEmpty() ? input : input.sliced(1));

    const qsizetype count = quenda::graphemeCount(text);
    PROMISE((count == 0) == text.isEmpty());
    PROMISE(count <= text.toUcs4().size());
    const QString first = quenda::firstGraphemes(text, most);
    PROMISE(text.startsWith(first) && first.isValidUtf16());
    PROMISE(count > most || first == text);
    PROMISE(count <= most || first.size() < text.size());
    PROMISE((most == 0 || text.isEmpty()) == first.isEmpty());
    // What stands before a letter of Hindi, Thai or the like is divided by that script's rules; cut
    // off from it, it may be fewer characters.
    PROMISE(quenda::graphemeCount(first) <= std::min(count, most));

    const QString entry = quenda::menuText(text);
    PROMISE(!entry.contains(u'\t'));
    PROMISE(QString(entry).remove(QStringLiteral("&&")).contains(u'&') == false);
}
