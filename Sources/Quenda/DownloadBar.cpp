#include "Quenda/DownloadBar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QStringList>

#include <algorithm>
#include <cmath>

namespace quenda {

namespace {

constexpr int kSteps = 1000;                             // of the bar, so that it moves smoothly
constexpr std::chrono::milliseconds kSpeedSettles{1500}; // before that the speed says little

// Decimal units, as the model list uses.
QString bytes(double count) {
    if (count < 999.5e3)
        return QStringLiteral("%1 kB").arg(std::llround(count / 1e3));
    if (count < 999.5e6)
        return QStringLiteral("%1 MB").arg(std::llround(count / 1e6));
    return QStringLiteral("%1 GB").arg(count / 1e9, 0, 'f', 2);
}

} // namespace

DownloadBar::DownloadBar(int barWidth, QWidget *parent) : QWidget(parent) {
    auto *line = new QHBoxLayout(this);
    line->setContentsMargins(0, 0, 0, 0);
    m_bar = new QProgressBar;
    m_bar->setRange(0, kSteps);
    m_bar->setTextVisible(false);
    m_bar->setFixedWidth(barWidth);
    m_bar->setFixedHeight(8);
    m_bar->setAccessibleName(tr("Download progress"));
    m_percentage = new QLabel;
    m_percentage->setFixedWidth(m_percentage->fontMetrics().horizontalAdvance(
        QStringLiteral("100%0"))); // does not jump as it counts
    m_percentage->setAlignment(Qt::AlignTrailing | Qt::AlignVCenter);
    line->addWidget(m_bar, 0, Qt::AlignVCenter);
    line->addWidget(m_percentage);
    reset();
}

void DownloadBar::reset() {
    m_since.reset();
    m_bar->setValue(0);
    m_percentage->setText(QStringLiteral("0%"));
    setToolTip({});
}

void DownloadBar::showProgress(double fraction, qint64 done, qint64 total,
                               std::chrono::milliseconds now) {
    const double bounded = std::clamp(fraction, 0.0, 1.0);
    m_bar->setValue(int(std::lround(bounded * kSteps)));
    m_percentage->setText(QStringLiteral("%1%").arg(int(bounded * 100)));
    if (!m_since || done < m_doneThen) {
        m_since = now;
        m_doneThen = done;
    }
    std::optional<double> speed;
    const std::chrono::milliseconds span = now - *m_since;
    if (span >= kSpeedSettles)
        speed = double(done - m_doneThen) * 1000.0 / double(span.count());
    setToolTip(detail(done, total, speed));
    m_bar->setAccessibleDescription(toolTip());
}

QString DownloadBar::detail(qint64 done, qint64 total, std::optional<double> speed) {
    QStringList parts;
    if (total > 0)
        parts.append(tr("%1 of %2").arg(bytes(double(done)), bytes(double(total))));
    else
        parts.append(bytes(double(done)));
    if (speed && *speed > 0) {
        parts.append(tr("%1/s").arg(bytes(*speed)));
        const double left = double(total - done) / *speed;
        if (total > 0 && left < 60)
            parts.append(tr("%1 s left").arg(std::llround(left)));
        else if (total > 0)
            parts.append(tr("%1 min left").arg(std::llround(left / 60)));
    }
    return parts.join(QStringLiteral(", "));
}

} // namespace quenda
