#include "Quenda/Symbols.h"

#include <QFile>
#include <QGuiApplication>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>

#include <utility>

// Not in a namespace, as Qt asks: the resources lie in a static library, whose unused parts the
// linker drops.
static void loadResources() {
    Q_INIT_RESOURCE(resources);
}

namespace quenda {

namespace {

SymbolProvider &provider() {
    static SymbolProvider current;
    return current;
}

QString resource(const QString &name) {
    static const bool loaded = [] {
        loadResources();
        return true;
    }();
    Q_UNUSED(loaded);
    return QStringLiteral(":/%1.svg").arg(name);
}

QString pathOf(const QString &symbol) {
    return resource(QStringLiteral("symbols/") + symbol);
}

QImage rendered(const QString &path, int pixels) {
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QSvgRenderer renderer(path);
    QPainter painter(&image);
    renderer.render(&painter);
    return image;
}

// The drawings are black ink with white holes: what is black takes the colour, what is white and
// what is empty lets the background through.
void paintInk(QImage &image, const QColor &colour) {
    const int red = colour.red();
    const int green = colour.green();
    const int blue = colour.blue();
    for (int y = 0; y < image.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const int ink = (qAlpha(line[x]) - qRed(line[x])) * colour.alpha() / 255;
            line[x] = qRgba(red * ink / 255, green * ink / 255, blue * ink / 255, ink);
        }
    }
}

QPixmap drawn(const QString &name, const QColor &colour, int pixels, qreal devicePixelRatio) {
    QImage image = rendered(pathOf(name), pixels);
    paintInk(image, colour);
    image.setDevicePixelRatio(devicePixelRatio);
    return QPixmap::fromImage(std::move(image));
}

// Draws at whatever size a host asks for. Sizes are device pixels in icon engines.
class PictureEngine : public QIconEngine {
public:
    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State) final {
        const int side = qMin(size.width(), size.height());
        return side > 0 ? picture(side, mode) : QPixmap();
    }

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State state) final {
        const qreal ratio = painter->device()->devicePixelRatio();
        const QPixmap drawing = pixmap((QSizeF(rect.size()) * ratio).toSize(), mode, state);
        QRectF place(QPointF(), QSizeF(drawing.size()) / ratio);
        place.moveCenter(QRectF(rect).center());
        painter->drawPixmap(place, drawing, QRectF(drawing.rect()));
    }

    QList<QSize> availableSizes(QIcon::Mode, QIcon::State) final {
        return {{16, 16}, {22, 22}, {24, 24}, {32, 32}, {48, 48}, {64, 64}};
    }

    bool isNull() final { return false; }

protected:
    virtual QPixmap picture(int pixels, QIcon::Mode mode) = 0;
};

class SymbolEngine final : public PictureEngine {
public:
    SymbolEngine(QString name, const QColor &colour) : m_name(std::move(name)), m_colour(colour) {}
    QIconEngine *clone() const override { return new SymbolEngine(m_name, m_colour); }

protected:
    QPixmap picture(int pixels, QIcon::Mode mode) override {
        const QColor colour = colourIn(mode);
        if (pixels != m_last.width() || colour != m_lastColour) {
            m_lastColour = colour;
            m_last = symbolPixmap(m_name, colour, pixels, 1.0);
        }
        return m_last;
    }

private:
    QColor colourIn(QIcon::Mode mode) const {
        if (m_colour.isValid() && mode != QIcon::Disabled)
            return m_colour;
        const QPalette palette = QGuiApplication::palette();
        if (mode == QIcon::Disabled)
            return palette.color(QPalette::Disabled, QPalette::WindowText);
        return palette.color(mode == QIcon::Selected ? QPalette::HighlightedText
                                                     : QPalette::WindowText);
    }

    QString m_name;
    QColor m_colour;
    QPixmap m_last; ///< hosts ask for one size again and again
    QColor m_lastColour;
};

class DrawingEngine final : public PictureEngine {
public:
    explicit DrawingEngine(QString path) : m_path(std::move(path)) {}
    QIconEngine *clone() const override { return new DrawingEngine(m_path); }

protected:
    QPixmap picture(int pixels, QIcon::Mode) override {
        return QPixmap::fromImage(rendered(m_path, pixels));
    }

private:
    QString m_path;
};

} // namespace

void setSymbolProvider(SymbolProvider wanted) {
    provider() = std::move(wanted);
}

QPixmap symbolPixmap(const QString &name, const QColor &colour, int size, qreal devicePixelRatio) {
    if (provider()) {
        const QPixmap picture = provider()(name, colour, size, devicePixelRatio);
        if (!picture.isNull())
            return picture;
    }
    if (name.contains(u'/') || !QFile::exists(pathOf(name)))
        return {};
    return drawn(name, colour, qRound(size * devicePixelRatio), devicePixelRatio);
}

QIcon symbolIcon(const QString &name, const QColor &colour) {
    if (symbolPixmap(name, Qt::black, 16, 1.0).isNull())
        return {};
    return QIcon(new SymbolEngine(name, colour));
}

QColor statusAreaColor() {
    const QPalette palette = QGuiApplication::palette();
    if (palette.color(QPalette::Window).lightness() < 128)
        return palette.color(QPalette::WindowText);
    return {118, 118, 118}; // 4.5 to 1 against both white and black
}

QIcon applicationIcon() {
    return QIcon(new DrawingEngine(resource(QStringLiteral("icons/quenda"))));
}

} // namespace quenda
