#pragma once
// Asks the product's web site whether a newer build exists, at most every 20 hours. One instance,
// owned by the controller. Main thread only.

#include "Quenda/ProductSite.h"

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

class QSettings;

namespace quenda {

class Bundle;
class HttpClient;
class Scheduler;

class UpdateChecker : public QObject {
public:
    struct Available {
        QString version; ///< such as "1.4.0"
        qint64 build = 0;
        QUrl url;      ///< where the release can be had
        QString notes; ///< empty where the site gives none

        bool operator==(const Available &) const = default;
    };

    /// What the checker needs of the rest of the program; all outlive it.
    struct Environment {
        HttpClient &http;
        Scheduler &scheduler; ///< for the wall clock
        QSettings &defaults;  ///< the user defaults
        Bundle &bundle;
    };

    /// The user-defaults key of the time of the last check.
    inline static const QString lastCheckKey = QStringLiteral("lastUpdateCheck");
    /// Seconds between two automatic checks.
    static constexpr double minInterval = 72000.0;

    explicit UpdateChecker(const Environment &environment,
                           const QUrl &manifestUrl = QUrl(kUpdateManifestUrl),
                           QObject *parent = nullptr);

    /// Called each time a newer build is seen.
    std::function<void(const Available &)> onUpdateFound;

    /// The newest build announced since the program started, if it is newer than this one.
    const std::optional<Available> &available() const { return m_available; }

    /// Checks, unless `enabled` is false or, without `force`, the last check is too recent.
    void checkIfDue(bool enabled, bool force);
    /// Stores the present time as that of the last check.
    void markChecked();
    /// Fetches the version file. The outcome shows in available() and onUpdateFound; failures are
    /// silent.
    void fetch();

private:
    bool checkedRecently() const;
    qint64 currentBuild() const;
    void read(const QByteArray &body);

    Environment m_env;
    QUrl m_manifestUrl;
    std::optional<Available> m_available;
};

} // namespace quenda
