#include "Quenda/Note.h"

#include "Quenda/SettingsForm.h"

#include <QEvent>
#include <QLabel>

#include <algorithm>

namespace quenda {

namespace {

constexpr double kNoteSize = 0.88; // of the dialog font
constexpr double kMuted = 0.62;    // how much of the text's colour, the rest being the window's
const QColor kFailureOnLight(190, 40, 32);
const QColor kFailureOnDark(255, 138, 128);

// Follows the palette, which changes with the desktop's look while the window is open. The
// placeholder colour, which styles have for the purpose, is too faint for sentences.
class NoteLabel final : public QLabel {
public:
    NoteLabel(const QString &text, QWidget *parent, NoteTone tone)
        : QLabel(text, parent),
          m_tone(tone) {
        setForegroundRole(QPalette::PlaceholderText);
        recolor();
    }

protected:
    void changeEvent(QEvent *event) override {
        QLabel::changeEvent(event);
        if (event->type() == QEvent::PaletteChange)
            recolor();
    }

private:
    void recolor() {
        const QColor text = palette().color(QPalette::WindowText);
        const QColor window = palette().color(QPalette::Window);
        QColor wanted;
        if (m_tone == NoteTone::failure) {
            wanted = text.lightness() > window.lightness() ? kFailureOnDark : kFailureOnLight;
        } else {
            const auto mix = [](int of, int with) {
                return int(of * kMuted + with * (1 - kMuted));
            };
            wanted = QColor(mix(text.red(), window.red()), mix(text.green(), window.green()),
                            mix(text.blue(), window.blue()));
        }
        if (palette().color(QPalette::PlaceholderText) == wanted)
            return;
        QPalette mine;
        mine.setColor(QPalette::PlaceholderText, wanted);
        setPalette(mine);
    }

    NoteTone m_tone;
};

} // namespace

QLabel *makeNote(const QString &text, QWidget *parent, NoteTone tone) {
    auto *label = new NoteLabel(text, parent, tone);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setAlignment(sideOf(Qt::AlignLeading | Qt::AlignVCenter));
    QFont font = label->font();
    font.setPointSizeF(std::max(1.0, font.pointSizeF() * kNoteSize));
    label->setFont(font);
    return label;
}

} // namespace quenda
