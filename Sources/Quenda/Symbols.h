#pragma once
// The program's small pictures: named symbols in any colour, and its own icon. The symbols are our
// drawings under Resources/symbols; a platform that has symbols of its own under these names puts
// them in their place. Main thread only.

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QString>

#include <functional>

namespace quenda {

/// Draws the named symbol in one colour, `size` device-independent pixels square, for a screen with
/// that device pixel ratio. A null pixmap where it has no such symbol.
using SymbolProvider = std::function<QPixmap(const QString &name, const QColor &colour, int size,
                                             qreal devicePixelRatio)>;

/// Asks `provider` for every symbol before our own drawing; unset ends that.
void setSymbolProvider(SymbolProvider provider);

/// The symbol, "mic.fill" for instance, drawn at once. Null for an unknown name.
QPixmap symbolPixmap(const QString &name, const QColor &colour, int size, qreal devicePixelRatio);

/// The symbol as an icon, crisp at every size. Without a colour it takes the application's text
/// colour at the moment it is painted: in menus it follows the theme, greys out with a disabled
/// entry and stands out from a selected one. Null for an unknown name.
QIcon symbolIcon(const QString &name, const QColor &colour = QColor());

/// A colour for a symbol among other programs' items in the desktop's panel, whose own colour is
/// not known. Light where the whole desktop is dark; else a grey that reads on white and on black.
QColor statusAreaColor();

/// The program's own icon.
QIcon applicationIcon();

} // namespace quenda
