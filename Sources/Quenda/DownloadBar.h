#pragma once
// The progress of one model download: a bar of a given width with the percentage beside it, and
// size, speed and time left in the tooltip. Main thread only.

#include <QWidget>

#include <chrono>
#include <optional>

class QLabel;
class QProgressBar;

namespace quenda {

class DownloadBar : public QWidget {
    Q_OBJECT
public:
    /// `barWidth` in device-independent pixels.
    explicit DownloadBar(int barWidth, QWidget *parent = nullptr);

    /// `fraction` from 0 to 1; `done` and `total` in bytes, `total` below 1 where it is not known;
    /// `now` on any monotonic clock.
    void showProgress(double fraction, qint64 done, qint64 total, std::chrono::milliseconds now);
    /// Forgets the speed measured so far.
    void reset();

    /// "120 MB of 574 MB, 8.5 MB/s, 1 min left", as far as it is known. Speed in bytes a second.
    static QString detail(qint64 done, qint64 total, std::optional<double> speed);

private:
    QProgressBar *m_bar = nullptr;
    QLabel *m_percentage = nullptr;
    std::optional<std::chrono::milliseconds> m_since;
    qint64 m_doneThen = 0;
};

} // namespace quenda
