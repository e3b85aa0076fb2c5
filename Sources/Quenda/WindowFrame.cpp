#include "Quenda/WindowFrame.h"

#include "Quenda/Symbols.h"

#include <QGuiApplication>
#include <QKeySequence>
#include <QLayout>
#include <QScreen>
#include <QShortcut>
#include <QWidget>

namespace quenda {

namespace {
constexpr int kTitleBarAllowance = 48; // what a window manager may need above the content
}

void frameWindow(QWidget &window, const QString &title, QSize content) {
    window.setWindowTitle(title);
    window.setWindowIcon(applicationIcon());
    window.setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                          Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint);
    auto *close = new QShortcut(QKeySequence::Close, &window);
    QObject::connect(close, &QShortcut::activated, &window, &QWidget::close);

    const QScreen *screen = QGuiApplication::primaryScreen();
    const QRect room = screen ? screen->availableGeometry() : QRect(0, 0, 1024, 768);
    if (content.isEmpty()) {
        window.layout()->setSizeConstraint(QLayout::SetFixedSize);
        content = window.sizeHint();
    } else {
        content.setHeight(std::min(content.height(), room.height() - kTitleBarAllowance));
        window.setFixedSize(content);
    }
    window.move(room.center() - QPoint(content.width() / 2, content.height() / 2));
}

void presentWindow(QWidget &window) {
    window.show();
    window.raise();
    window.activateWindow();
}

} // namespace quenda
