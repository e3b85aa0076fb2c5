#include "Quenda/ModelDownloader.h"

#include "Quenda/Config.h"
#include "Quenda/PartialFile.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QThreadPool>

#include <utility>

namespace quenda {

namespace {

template <typename Value>
void put(Observable<QMap<QString, Value>> &map, const QString &key, const Value &value) {
    QMap<QString, Value> changed = map.value();
    changed.insert(key, value);
    map.set(std::move(changed));
}

template <typename Value>
void drop(Observable<QMap<QString, Value>> &map, const QString &key) {
    if (!map.value().contains(key))
        return;
    QMap<QString, Value> changed = map.value();
    changed.remove(key);
    map.set(std::move(changed));
}

} // namespace

ModelDownloader::ModelDownloader(HttpClient &http, const QString &baseUrl, QObject *parent)
    : QObject(parent),
      m_http(http),
      m_baseUrl(baseUrl) {
    // Looked for at once, so that no download of ours is among them; but to remove a file of a
    // gigabyte takes some file systems a while.
    const QStringList begun = PartialFile::begun(Config::modelsDir());
    if (!begun.isEmpty())
        QThreadPool::globalInstance()->start([begun] { PartialFile::removeAbandoned(begun); });
}

void ModelDownloader::download(const WhisperModel &model) {
    const QString folder = Config::modelsDir();
    const QFileInfo destination(folder + QLatin1Char('/') + model.fileName);
    if (progress.value().contains(model.fileName))
        return;
    if (destination.exists() && !destination.isDir()) // a folder of that name is an error, later
        return;
    drop(errors, model.fileName);
    put(progress, model.fileName, 0.0);
    put(transfers, model.fileName, Transfer{});

    HttpRequest request;
    request.url = QUrl(m_baseUrl + model.fileName, QUrl::StrictMode);
    if (!request.url.isValid())
        qFatal("This build's model address is not a URL.");
    const int task = ++m_lastTask;
    m_tasks.insert(task, model);
    m_http.download(
        request, std::make_unique<PartialFile>(folder, model.fileName), this,
        [this, task](qint64 received, qint64 total) { advanced(task, received, total); },
        [this, task](const HttpDownload &result) { ended(task, result); });
}

void ModelDownloader::advanced(int task, qint64 received, qint64 total) {
    const auto found = m_tasks.constFind(task);
    if (found == m_tasks.constEnd())
        return;
    const QString fileName = found->fileName;
    put(transfers, fileName, Transfer{received, total});
    if (total >= 1)
        put(progress, fileName, double(received) / double(total));
}

void ModelDownloader::ended(int task, const HttpDownload &result) {
    if (!m_tasks.contains(task))
        return;
    const WhisperModel model = m_tasks.take(task);
    drop(progress, model.fileName);
    drop(transfers, model.fileName);
    const int status = result.status.value_or(0);
    if (result.error) {
        put(errors, model.fileName, result.error->localizedDescription);
    } else if (status != 200) {
        put(errors, model.fileName,
            QCoreApplication::translate("quenda::ModelDownloader", "Download failed (HTTP %1)")
                .arg(status));
    } else if (onModelInstalled) {
        onModelInstalled(model);
    }
}

} // namespace quenda
