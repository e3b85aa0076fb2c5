#pragma once
// The pill's window: dot, level meter, status text, clock and cancel button on a dark card. It
// floats above everything and never takes the keyboard focus. Owned by the recording indicator,
// which decides what it shows. Main thread only.

#include "Platform/Scheduler.h"
#include "Quenda/GradientEQView.h"
#include "Quenda/PillText.h"

#include <QAbstractButton>
#include <QColor>
#include <QImage>
#include <QMetaObject>
#include <QTransform>
#include <QWidget>

#include <functional>
#include <optional>

namespace quenda {

class Workspace;

class PillPanel final : public QWidget {
    Q_OBJECT
public:
    static constexpr QSize panelSize{320, 56};
    static constexpr int cornerRadius = 16;

    PillPanel(Scheduler &scheduler, Workspace &workspace);

    /// Called when the cancel button is clicked.
    std::function<void()> onCancel;

    GradientEQView &meter() { return m_meter; }
    QAbstractButton *cancelButton() const { return m_cancelButton; }

    /// A notice stands alone: it may use the room of the clock and the cancel button, on two lines.
    void setLabel(const QString &text, bool isNotice = false);
    void setClock(const QString &text);
    void setClockVisible(bool visible);
    void setDotVisible(bool visible);
    void setDotColour(const QColor &colour);
    /// Starts the pulse from its bright end, or stops it.
    void setPulsing(bool pulsing);

    QString label() const { return m_label; }
    QString clock() const { return m_clock; }
    bool isClockVisible() const { return m_clockVisible; }
    bool isDotVisible() const { return m_dotVisible; }
    QColor dotColour() const { return m_dotColour; }
    /// 1.0 to 0.45 while pulsing, now; 1.0 otherwise.
    double dotOpacity() const;
    /// The same `elapsed` after the start of the pulse.
    static double pulseOpacity(std::chrono::milliseconds elapsed);

    /// Puts the pill in its place on the main screen, in front of everything.
    void present();
    /// Where the pill stands on a screen with this available area.
    static QPoint placeIn(const QRect &available);

protected:
    void paintEvent(QPaintEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void makeWindow();
    void place();
    void followScreen();
    void followArea();
    void repaintMotion();
    QRect labelFrame() const;
    void drawCard(QPainter &painter) const;
    void drawCardShape(QPainter &painter) const;
    void drawDot(QPainter &painter);
    void drawLabel(QPainter &painter);

    Scheduler &m_scheduler;
    Workspace &m_workspace;
    GradientEQView m_meter;
    QAbstractButton *m_cancelButton; ///< a child
    QMetaObject::Connection m_screenArea;

    QString m_label;
    QString m_clock;
    QColor m_dotColour;
    std::optional<std::chrono::milliseconds> m_pulseStart;
    /// Kept from paint to paint: the dot is drawn thirty times a second.
    QImage m_dotPicture;
    QColor m_dotPictureColour;
    QTransform m_dotPictureDevice;
    std::optional<FittedText> m_fittedLabel; ///< unset: to be set anew
    bool m_isNotice = false;
    bool m_clockVisible = true;
    bool m_dotVisible = true;
    bool m_translucent = false;
};

} // namespace quenda
