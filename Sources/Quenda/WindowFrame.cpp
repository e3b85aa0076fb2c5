#include "Quenda/WindowFrame.h"

#include "Quenda/Symbols.h"

#include <QEvent>
#include <QGuiApplication>
#include <QKeySequence>
#include <QLayout>
#include <QScreen>
#include <QShortcut>
#include <QWidget>

#include <algorithm>

namespace quenda {

namespace {

constexpr int kTitleBarAllowance = 48; // what a window manager may need above the content

int fittingHeight(const QWidget &window) {
    const QLayout &layout = *window.layout();
    return layout.hasHeightForWidth() ? layout.totalHeightForWidth(window.width())
                                      : layout.totalSizeHint().height();
}

// Keeps a window of fixed width as high as its content, as rows of it come and go.
class HeightKeeper : public QObject {
public:
    explicit HeightKeeper(QWidget &window) : QObject(&window), m_window(window) {
        window.installEventFilter(this);
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override {
        const bool handled = QObject::eventFilter(watched, event);
        if (event->type() == QEvent::LayoutRequest || event->type() == QEvent::Show)
            m_window.setFixedHeight(fittingHeight(m_window));
        return handled;
    }

private:
    QWidget &m_window;
};

} // namespace

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
        window.resize(window.minimumWidth(), 0);
        new HeightKeeper(window);
        content = QSize(window.width(), fittingHeight(window));
        window.setFixedSize(content);
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
