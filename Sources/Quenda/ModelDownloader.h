#pragma once
// Fetches speech models into the models folder. One instance, owned by the controller, alive as
// long as the program. Main thread only; files are written on threads of the downloads' own.

#include "Quenda/HttpClient.h"
#include "Quenda/ModelCatalog.h"
#include "Quenda/Observable.h"
#include "Quenda/ProductSite.h"

#include <QHash>
#include <QMap>
#include <QObject>

#include <functional>

namespace quenda {

class ModelDownloader : public QObject {
public:
    struct Transfer {
        qint64 received = 0; ///< bytes
        qint64 total = -1;   ///< bytes; -1 where the server does not tell

        bool operator==(const Transfer &) const = default;
    };

    /// Removes, in the background, what a killed program left of its downloads.
    explicit ModelDownloader(HttpClient &http, const QString &baseUrl = kModelBaseUrl,
                             QObject *parent = nullptr);

    /// By file name: the fraction done, 0 to 1, of each download that is under way.
    Observable<QMap<QString, double>> progress;
    /// By file name: the bytes of each download that is under way.
    Observable<QMap<QString, Transfer>> transfers;
    /// By file name: why the last download failed, until the next one of that file starts.
    Observable<QMap<QString, QString>> errors;

    /// Called when a model has been moved into place.
    std::function<void(const WhisperModel &)> onModelInstalled;

    /// Starts to fetch `model`; does nothing while it is being fetched or when it is there.
    void download(const WhisperModel &model);

private:
    void advanced(int task, qint64 received, qint64 total);
    void ended(int task, const HttpDownload &result);

    HttpClient &m_http;
    QString m_baseUrl;
    QHash<int, WhisperModel> m_tasks;
    int m_lastTask = 0;
};

} // namespace quenda
