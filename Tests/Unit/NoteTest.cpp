// Whether the small texts of the windows can be read.

#include "Quenda/Note.h"

#include <QEvent>
#include <QLabel>
#include <QPalette>
#include <QWidget>

#include <gtest/gtest.h>

#include <cmath>

using namespace quenda;

namespace {

// Relative luminance and contrast as the Web Content Accessibility Guidelines 2.1 define them.
double luminance(const QColor &color) {
    const auto linear = [](double part) {
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

double contrast(const QColor &one, const QColor &other) {
    const double a = luminance(one) + 0.05;
    const double b = luminance(other) + 0.05;
    return a > b ? a / b : b / a;
}

QPalette look(const QColor &text, const QColor &window, const QColor &card) {
    QPalette palette(text, window, text, window, window, text, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::AlternateBase, card);
    return palette;
}

const QPalette kLight = look(Qt::black, QColor(239, 239, 239), QColor(247, 247, 247));
const QPalette kDark = look(QColor(235, 235, 235), QColor(45, 45, 48), QColor(53, 53, 57));

TEST(NoteTest, StaysReadableAsTheLookChanges) {
    QWidget window;
    const QLabel *muted = makeNote(QStringLiteral("explains"), &window);
    const QLabel *failure = makeNote(QStringLiteral("fails"), &window, NoteTone::failure);
    for (const QPalette &palette : {kLight, kDark, kLight}) {
        window.setPalette(palette);
        for (const QLabel *note : {muted, failure}) {
            const QColor ink = note->palette().color(note->foregroundRole());
            for (const QPalette::ColorRole role : {QPalette::Window, QPalette::AlternateBase})
                EXPECT_GE(contrast(ink, palette.color(role)), 4.5) << qPrintable(note->text());
        }
        EXPECT_NE(muted->palette().color(muted->foregroundRole()),
                  palette.color(QPalette::WindowText))
            << "muted";
        const QColor red = failure->palette().color(failure->foregroundRole());
        EXPECT_GT(red.red(), red.green() + 50);
    }
}

} // namespace
