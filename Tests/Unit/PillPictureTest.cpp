// The pill's pictures, compared with those kept in the golden folder. With the environment variable
// QUENDA_UPDATE_GOLDEN set, the kept pictures are written anew instead: look at them before they
// are committed.
//
// Tolerance: outside of the texts no colour channel differs by more than 6 of 255 at more than one
// pixel in a thousand. Texts are set in DejaVu Sans; their edges depend on the machine's settings
// for anti-aliasing, so only the box that their ink fills (within one pixel) and the amount of ink
// (within a sixth) are compared.

#include "Fakes/FakePlatform.h"
#include "Fakes/VirtualScheduler.h"
#include "Quenda/PillPanel.h"
#include "Quenda/RecordingIndicator.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

namespace quenda {
namespace {

using fakes::FakeWorkspace;
using fakes::VirtualScheduler;
using std::chrono::milliseconds;
using Mode = RecordingIndicator::Mode;

constexpr QRect kLabelArea(117, 10, 114, 36);
constexpr QRect kWideLabelArea(117, 8, 184, 40);
constexpr QRect kClockArea(232, 18, 47, 20);

QImage pictureOf(PillPanel &panel, qreal ratio) {
    QImage image((QSizeF(PillPanel::panelSize) * ratio).toSize(),
                 QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::transparent);
    panel.render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
    return image.convertToFormat(QImage::Format_ARGB32);
}

QRect scaled(const QRect &area, qreal ratio) {
    return QRectF(QPointF(area.topLeft()) * ratio, QSizeF(area.size()) * ratio).toAlignedRect();
}

int difference(QRgb a, QRgb b) {
    return std::max({std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)),
                     std::abs(qBlue(a) - qBlue(b)), std::abs(qAlpha(a) - qAlpha(b))});
}

struct Ink {
    QRect box;
    double amount = 0;
};

Ink inkIn(const QImage &image, const QRect &area) {
    Ink ink;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x) {
            const int light = qGreen(image.pixel(x, y)) - 16;
            ink.amount += std::max(light, 0);
            if (light > 60)
                ink.box = ink.box.united(QRect(x, y, 1, 1));
        }
    return ink;
}

void compare(const QImage &now, const QImage &kept, const QList<QRect> &texts) {
    ASSERT_EQ(now.size(), kept.size());
    int differing = 0;
    int looked = 0;
    for (int y = 0; y < now.height(); ++y)
        for (int x = 0; x < now.width(); ++x) {
            bool inText = false;
            for (const QRect &text : texts)
                inText = inText || text.contains(x, y);
            if (inText)
                continue;
            ++looked;
            differing += difference(now.pixel(x, y), kept.pixel(x, y)) > 6 ? 1 : 0;
        }
    EXPECT_LE(differing, looked / 1000);
    for (const QRect &text : texts) {
        const Ink inkNow = inkIn(now, text);
        const Ink inkKept = inkIn(kept, text);
        EXPECT_NEAR(inkNow.amount, inkKept.amount, inkKept.amount / 6);
        EXPECT_LE(std::abs(inkNow.box.left() - inkKept.box.left()), 1);
        EXPECT_LE(std::abs(inkNow.box.right() - inkKept.box.right()), 1);
        EXPECT_LE(std::abs(inkNow.box.top() - inkKept.box.top()), 1);
        EXPECT_LE(std::abs(inkNow.box.bottom() - inkKept.box.bottom()), 1);
    }
}

struct PillPictureTest : testing::Test {
    VirtualScheduler scheduler;
    FakeWorkspace workspace;
    RecordingIndicator indicator{scheduler, workspace};
    QFont fontBefore = QApplication::font();

    PillPictureTest() { QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"))); }
    ~PillPictureTest() override { QApplication::setFont(fontBefore); }

    void record(float level) {
        indicator.show(Mode::recording, [level] { return level; });
        scheduler.advance(milliseconds(7 * 1000 + 100));
    }

    void expectPicture(const QString &name, const QList<QRect> &texts) {
        for (const qreal ratio : {1.0, 1.5, 2.0}) {
            const QString file =
                QStringLiteral("%1@%2x.png").arg(name, QString::number(ratio, 'g', 2));
            const QImage now = pictureOf(*indicator.panel(), ratio);
            const QString path = QStringLiteral(QUENDA_GOLDEN_FOLDER "/") + file;
            if (qEnvironmentVariableIsSet("QUENDA_UPDATE_GOLDEN")) {
                ASSERT_TRUE(QDir().mkpath(QStringLiteral(QUENDA_GOLDEN_FOLDER)));
                ASSERT_TRUE(now.save(path));
                continue;
            }
            SCOPED_TRACE(qPrintable(file));
            const QImage kept(path);
            ASSERT_FALSE(kept.isNull());
            QList<QRect> areas;
            for (const QRect &text : texts)
                areas.append(scaled(text, ratio));
            compare(now, kept.convertToFormat(QImage::Format_ARGB32), areas);
            if (HasFailure()) {
                const QString beside = QDir::temp().filePath(QStringLiteral("pill-") + file);
                now.save(beside);
                ADD_FAILURE() << "the picture as drawn now: " << qPrintable(beside);
            }
        }
    }
};

TEST_F(PillPictureTest, recordingSilence) {
    record(0.0F);
    expectPicture(QStringLiteral("recording-silent"), {kLabelArea, kClockArea});
}

TEST_F(PillPictureTest, recordingQuietVoice) {
    record(0.3F);
    expectPicture(QStringLiteral("recording-quiet"), {kLabelArea, kClockArea});
}

TEST_F(PillPictureTest, recordingFullVoice) {
    record(1.0F);
    expectPicture(QStringLiteral("recording-full"), {kLabelArea, kClockArea});
}

TEST_F(PillPictureTest, transcribing) {
    record(0.3F);
    indicator.show(Mode::transcribing);
    scheduler.advance(milliseconds(1000));
    expectPicture(QStringLiteral("transcribing"), {kWideLabelArea.adjusted(0, 0, -20, 0)});
}

TEST_F(PillPictureTest, shortNotice) {
    record(0.3F);
    indicator.showTransient(QStringLiteral("Inserted ✓"));
    scheduler.advance(milliseconds(1000));
    expectPicture(QStringLiteral("notice-short"), {kWideLabelArea});
}

TEST_F(PillPictureTest, longNotice) {
    record(0.3F);
    indicator.showTransient(QStringLiteral("No text field — copied to clipboard"));
    scheduler.advance(milliseconds(1000));
    expectPicture(QStringLiteral("notice-long"), {kWideLabelArea});
}

// What is repainted thirty times a second is the same as the whole picture painted afresh.
TEST_F(PillPictureTest, partialRepaintsLeaveNoSeams) {
    for (const qreal ratio : {1.0, 1.5, 2.0}) {
        record(1.0F);
        QImage image = pictureOf(*indicator.panel(), ratio);
        scheduler.advance(milliseconds(400));
        QPainter painter(&image);
        for (const QRect &part : {QRect(19, 22, 12, 12), QRect(43, 12, 64, 32)})
            indicator.panel()->render(&painter, part.topLeft(), part, QWidget::DrawChildren);
        painter.end();
        const QImage fresh = pictureOf(*indicator.panel(), ratio);
        int differing = 0;
        const QRect meterAndDot = scaled(QRect(16, 10, 96, 36), ratio);
        for (int y = meterAndDot.top(); y <= meterAndDot.bottom(); ++y)
            for (int x = meterAndDot.left(); x <= meterAndDot.right(); ++x)
                differing += difference(image.pixel(x, y), fresh.pixel(x, y)) > 6 ? 1 : 0;
        EXPECT_EQ(differing, 0) << "at " << ratio;
    }
}

// Without a compositor the window has the shape of the card; the card then fills its corners.
TEST_F(PillPictureTest, theCardIsRoundWhereTheDesktopCompositesAndFullElsewhere) {
    record(0.0F);
    EXPECT_EQ(qAlpha(pictureOf(*indicator.panel(), 1.0).pixel(0, 0)), 0);
    EXPECT_EQ(pictureOf(*indicator.panel(), 1.0).pixelColor(160, 8), QColor(11, 16, 32));
    workspace.compositing = false;
    indicator.show(Mode::recording);
    EXPECT_EQ(pictureOf(*indicator.panel(), 1.0).pixelColor(0, 0), QColor(11, 16, 32));
}

} // namespace
} // namespace quenda
