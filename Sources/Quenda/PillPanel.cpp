#include "Quenda/PillPanel.h"

#include "Platform/Desktop.h"
#include "Quenda/PillPalette.h"
#include "Quenda/Symbols.h"

#include <QEasingCurve>
#include <QEvent>
#include <QGuiApplication>
#include <QPaintEvent>
#include <QPainter>
#include <QScreen>
#include <QWindow>

namespace quenda {

namespace {

// The layout is given with the origin at the lower left; here alone it is turned over.
constexpr QRect frame(int x, int yFromBottom, int width, int height) {
    return {x, PillPanel::panelSize.height() - yFromBottom - height, width, height};
}

constexpr QRect kDot = frame(20, 23, 10, 10);
constexpr QRect kMeter = frame(44, 13, 62, 30);
constexpr QRect kLabel = frame(118, 18, 118, 20);
constexpr QRect kClock = frame(232, 19, 46, 18);
constexpr QRect kCancel = frame(286, 18, 20, 20);
constexpr int kNoticeRight = 300; ///< as far from the right edge as the dot from the left one
constexpr int kDistanceFromBottom = 60;
constexpr int kRowsAtOnce = 4; ///< of device pixels: too few for Qt to share them out
constexpr std::chrono::milliseconds kPulseSweep{900};
constexpr double kPulseLow = 0.45;

// One pixel more on each side: a part that is repainted alone then ends in plain background, where
// a fractional device pixel ratio leaves no seam.
constexpr QRect around(const QRect &part) {
    return part.adjusted(-1, -1, 1, 1);
}

// Slow at both ends.
const QEasingCurve &easeInEaseOut() {
    static const QEasingCurve curve = [] {
        QEasingCurve made(QEasingCurve::BezierSpline);
        made.addCubicBezierSegment({0.42, 0.0}, {0.58, 1.0}, {1.0, 1.0});
        return made;
    }();
    return curve;
}

class CancelButton final : public QAbstractButton {
public:
    explicit CancelButton(QWidget *parent) : QAbstractButton(parent) {
        setGeometry(kCancel);
        setFocusPolicy(Qt::NoFocus);
        setAttribute(Qt::WA_Hover); // repaints when the mouse comes and goes
    }

protected:
    void paintEvent(QPaintEvent *) override {
        QPainter painter(this);
        const qreal ratio = painter.deviceTransform().m11();
        if (m_symbol.isNull() || m_symbol.devicePixelRatio() != ratio)
            m_symbol = symbolPixmap(QStringLiteral("xmark.circle.fill"), Qt::white, width(), ratio);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.setOpacity(isDown() ? 0.85 : underMouse() ? 0.65 : 0.4);
        painter.drawPixmap(QRectF(rect()), m_symbol, QRectF(m_symbol.rect()));
    }

private:
    QPixmap m_symbol;
};

} // namespace

PillPanel::PillPanel(Scheduler &scheduler, Workspace &workspace)
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowDoesNotAcceptFocus | Qt::BypassWindowManagerHint |
                           Qt::NoDropShadowWindowHint),
      m_scheduler(scheduler),
      m_workspace(workspace),
      m_meter(scheduler),
      m_cancelButton(new CancelButton(this)),
      m_clock(QStringLiteral("00:00")),
      m_dotColour(palette::recordRed) {
    setFixedSize(panelSize);
    setFocusPolicy(Qt::NoFocus);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_QuitOnClose, false);
    setWindowTitle(QStringLiteral("Quenda"));
    m_cancelButton->setAccessibleName(tr("Cancel dictation"));
    connect(m_cancelButton, &QAbstractButton::clicked, this, [this] {
        if (onCancel)
            onCancel();
    });
    m_meter.onRedraw = [this] { repaintMotion(); };
    connect(qGuiApp, &QGuiApplication::primaryScreenChanged, this, &PillPanel::followScreen);
    followScreen();
}

void PillPanel::setLabel(const QString &text, bool isNotice) {
    m_label = text;
    m_isNotice = isNotice;
    m_fittedLabel.reset();
    setAccessibleName(text);
    update();
}

void PillPanel::setClock(const QString &text) {
    if (m_clock == text)
        return;
    m_clock = text;
    update(around(kClock));
}

void PillPanel::setClockVisible(bool visible) {
    m_clockVisible = visible;
    m_fittedLabel.reset();
    update();
}

void PillPanel::setDotVisible(bool visible) {
    m_dotVisible = visible;
    update(around(kDot));
}

void PillPanel::setDotColour(const QColor &colour) {
    m_dotColour = colour;
    update(around(kDot));
}

void PillPanel::setPulsing(bool pulsing) {
    m_pulseStart.reset();
    if (pulsing)
        m_pulseStart = m_scheduler.uptime();
    update(around(kDot));
}

double PillPanel::dotOpacity() const {
    return m_pulseStart ? pulseOpacity(m_scheduler.uptime() - *m_pulseStart) : 1.0;
}

double PillPanel::pulseOpacity(std::chrono::milliseconds elapsed) {
    const auto inCycle = elapsed % (2 * kPulseSweep);
    const auto swept = inCycle < kPulseSweep ? inCycle : 2 * kPulseSweep - inCycle;
    const double progress = double(swept.count()) / double(kPulseSweep.count());
    return 1.0 - (1.0 - kPulseLow) * easeInEaseOut().valueForProgress(progress);
}

QPoint PillPanel::placeIn(const QRect &available) {
    return {available.x() + (available.width() - panelSize.width()) / 2,
            available.y() + available.height() - kDistanceFromBottom - panelSize.height()};
}

void PillPanel::present() {
    makeWindow();
    place();
    show();
    raise();
}

// A window is translucent from its creation on or never; where compositing came or went since, a
// new one takes its place.
void PillPanel::makeWindow() {
    const bool translucent = m_workspace.isCompositing();
    if (internalWinId() && translucent == m_translucent)
        return;
    hide();
    destroy();
    m_translucent = translucent;
    setAttribute(Qt::WA_TranslucentBackground, translucent);
    setAttribute(Qt::WA_NoSystemBackground, translucent);
    setAttribute(Qt::WA_OpaquePaintEvent, !translucent);
    create();
    m_workspace.makeFloatingPanel(windowHandle(), cornerRadius);
}

void PillPanel::place() {
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        move(placeIn(screen->availableGeometry()));
}

void PillPanel::followScreen() {
    disconnect(m_screenArea);
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        m_screenArea =
            connect(screen, &QScreen::availableGeometryChanged, this, &PillPanel::followArea);
    followArea();
}

void PillPanel::followArea() {
    if (isVisible())
        place();
}

void PillPanel::repaintMotion() {
    const bool pulses = m_dotVisible && m_pulseStart;
    update(pulses ? around(kMeter).united(around(kDot)) : around(kMeter));
}

QRect PillPanel::labelFrame() const {
    QRect room = kLabel;
    if (m_isNotice)
        room.setRight(kNoticeRight - 1);
    else if (!m_clockVisible)
        room.setRight(kClock.right());
    return room;
}

void PillPanel::changeEvent(QEvent *event) {
    if (event->type() == QEvent::FontChange) {
        m_fittedLabel.reset();
        update();
    }
    QWidget::changeEvent(event);
}

void PillPanel::drawCardShape(QPainter &painter) const {
    painter.setPen(Qt::NoPen);
    painter.setBrush(palette::cardBackground);
    if (m_translucent)
        painter.drawRoundedRect(rect(), cornerRadius, cornerRadius);
    else
        painter.fillRect(rect(), palette::cardBackground); // the window itself has round corners
    painter.setPen(QPen(palette::cardBorder, 1));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), cornerRadius - 0.5,
                            cornerRadius - 0.5);
}

// In one go, Qt (6.4) would share so large a shape out among threads of a pool and wait for them:
// on a loaded machine for a long time.
void PillPanel::drawCard(QPainter &painter) const {
    const QTransform toDevice = painter.deviceTransform();
    const QRect place = toDevice.mapRect(QRectF(rect())).toAlignedRect();
    QImage card(place.size(), QImage::Format_ARGB32_Premultiplied);
    card.fill(Qt::transparent);
    for (int row = 0; row < card.height(); row += kRowsAtOnce) {
        QPainter picture(&card);
        picture.setClipRect(0, row, card.width(), kRowsAtOnce);
        picture.setRenderHint(QPainter::Antialiasing);
        picture.setTransform(toDevice * QTransform::fromTranslate(-place.x(), -place.y()));
        drawCardShape(picture);
    }
    painter.drawImage(toDevice.inverted().mapRect(QRectF(place)), card);
}

void PillPanel::drawDot(QPainter &painter) {
    const QTransform toDevice = painter.deviceTransform();
    const QRect place = toDevice.mapRect(QRectF(kDot)).toAlignedRect();
    if (m_dotPictureColour != m_dotColour || m_dotPictureDevice != toDevice) {
        m_dotPictureColour = m_dotColour;
        m_dotPictureDevice = toDevice;
        m_dotPicture = QImage(place.size(), QImage::Format_ARGB32_Premultiplied);
        m_dotPicture.fill(Qt::transparent);
        QPainter picture(&m_dotPicture);
        picture.setRenderHint(QPainter::Antialiasing);
        picture.setPen(Qt::NoPen);
        picture.setBrush(m_dotColour);
        picture.drawEllipse(toDevice.mapRect(QRectF(kDot)).translated(-place.topLeft()));
    }
    painter.setOpacity(dotOpacity());
    painter.drawImage(toDevice.inverted().mapRect(QRectF(place)), m_dotPicture);
    painter.setOpacity(1);
}

void PillPanel::drawLabel(QPainter &painter) {
    const QRect room = labelFrame();
    if (!m_fittedLabel) {
        QFont textFont = font();
        textFont.setPixelSize(14);
        textFont.setWeight(QFont::DemiBold);
        m_fittedLabel = fitText(m_label, textFont, room.width(), m_isNotice ? 2 : 1);
    }
    painter.setPen(palette::textPrimary);
    drawFitted(painter, room, *m_fittedLabel);
}

// Thirty times a second only the meter and the dot are asked for; the rest is left out then.
void PillPanel::paintEvent(QPaintEvent *event) {
    const QRect dirty = event->rect();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    // More than is dirty is filled: where a device pixel is cut by its edge, all of that pixel was
    // cleared.
    const QRect plain = rect().adjusted(cornerRadius, 2, -cornerRadius, -2);
    if (plain.contains(dirty))
        painter.fillRect(plain, palette::cardBackground);
    else
        drawCard(painter);
    if (m_dotVisible && dirty.intersects(kDot))
        drawDot(painter);
    if (dirty.intersects(kMeter))
        m_meter.draw(painter, kMeter);
    if (dirty.intersects(labelFrame()))
        drawLabel(painter);
    if (m_clockVisible && dirty.intersects(kClock)) {
        QFont clockFont = font();
        clockFont.setPixelSize(13);
        clockFont.setWeight(QFont::Medium);
        painter.setPen(palette::textMuted);
        drawTabular(painter, kClock, m_clock, clockFont);
    }
}

} // namespace quenda
