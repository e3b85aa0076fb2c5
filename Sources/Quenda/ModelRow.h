#pragma once
// One model in the settings window: what it is, and what can be done with it now.
// Main thread only.

#include "Quenda/ModelDownloader.h"

#include <QWidget>

#include <chrono>
#include <functional>
#include <optional>

class QLabel;
class QPushButton;

namespace quenda {

class DownloadBar;

class ModelRow : public QWidget {
    Q_OBJECT
public:
    enum class Action { progress, download, inUse, use };

    struct Facts {
        std::optional<double> progress; ///< set while it is downloaded
        bool fileExists = false;        ///< in the models folder
        bool configured = false;        ///< the settings name exactly that file
    };

    /// `extra`: not of the catalog; has no download and no known size.
    ModelRow(const WhisperModel &model, bool extra, QWidget *parent = nullptr);

    std::function<void()> onDownload;
    std::function<void()> onUse;

    const WhisperModel &model() const { return m_model; }
    static Action actionFor(const Facts &facts);

    using QWidget::show;
    /// `now` on a monotonic clock, for the speed.
    void show(const Facts &facts, const QString &error, ModelDownloader::Transfer transfer,
              std::chrono::milliseconds now);

private:
    WhisperModel m_model;
    DownloadBar *m_bar = nullptr;
    QPushButton *m_download = nullptr;
    QPushButton *m_use = nullptr;
    QWidget *m_inUse = nullptr;
    QLabel *m_error = nullptr;
};

} // namespace quenda
