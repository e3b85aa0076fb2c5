#include "Quenda/UpdateChecker.h"

#include "Platform/Desktop.h"
#include "Platform/Scheduler.h"
#include "Quenda/HttpClient.h"
#include "Quenda/Log.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>

#include <algorithm>

namespace quenda {

namespace {

constexpr qint64 kMaxManifestBytes = 64 * 1024;

// A decimal integer with an optional sign and nothing around it; none where it does not fit into
// 64 bits.
std::optional<qint64> decimalInteger(const QString &text) {
    const bool sign = text.startsWith(QLatin1Char('+')) || text.startsWith(QLatin1Char('-'));
    const QStringView digits = QStringView(text).mid(sign ? 1 : 0);
    const bool plain = !digits.isEmpty() && std::all_of(digits.begin(), digits.end(), [](QChar c) {
        return c >= QLatin1Char('0') && c <= QLatin1Char('9');
    });
    bool fits = false;
    const qint64 number = text.toLongLong(&fits);
    if (!plain || !fits)
        return std::nullopt;
    return number;
}

// The build that a version file announces: a whole number or a text of one, otherwise 0.
qint64 announcedBuild(const QJsonValue &value) {
    if (value.isString())
        return decimalInteger(value.toString()).value_or(0);
    if (!value.isDouble())
        return 0;
    return value.toInteger(0);
}

// Text from outside, fit for one line of the log.
QString onOneLine(QString text) {
    for (QChar &c : text) {
        if (c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator)
            c = QLatin1Char(' ');
    }
    return text;
}

} // namespace

UpdateChecker::UpdateChecker(const Environment &environment, const QUrl &manifestUrl,
                             QObject *parent)
    : QObject(parent),
      m_env(environment),
      m_manifestUrl(manifestUrl) {
    if (!m_manifestUrl.isValid())
        qFatal("This build's site address is not a URL.");
}

bool UpdateChecker::checkedRecently() const {
    const QVariant stored = m_env.defaults.value(lastCheckKey);
    if (stored.typeId() != QMetaType::QDateTime || !stored.toDateTime().isValid())
        return false;
    // A stored time in the future gives a negative span, which blocks as well.
    const double passed = double(stored.toDateTime().msecsTo(m_env.scheduler.now())) / 1000.0;
    return passed < minInterval;
}

void UpdateChecker::checkIfDue(bool enabled, bool force) {
    if (!enabled || (!force && checkedRecently()))
        return;
    markChecked(); // before the request: a failed one is not tried again until the next is due
    fetch();
}

void UpdateChecker::markChecked() {
    m_env.defaults.setValue(lastCheckKey, m_env.scheduler.now());
}

void UpdateChecker::fetch() {
    HttpRequest request;
    request.url = m_manifestUrl;
    request.timeout = std::chrono::seconds(15);
    request.maxResponseBytes = kMaxManifestBytes;
    const QString version = m_env.bundle.shortVersion().value_or(QStringLiteral("?"));
    request.headers = {{"User-Agent", QByteArray("Quenda/") + version.toUtf8()},
                       {"Cache-Control", "no-cache"}};
    m_env.http.send(request, this, [this](const HttpResponse &response) {
        if (!response.transportError) // whatever the status, a body that can be read counts
            read(response.body);
    });
}

qint64 UpdateChecker::currentBuild() const {
    return decimalInteger(m_env.bundle.version().value_or(QString())).value_or(0);
}

void UpdateChecker::read(const QByteArray &body) {
    const QJsonObject file = QJsonDocument::fromJson(body).object();
    const QJsonValue version = file.value(QLatin1String("version"));
    const QJsonValue address = file.value(QLatin1String("url"));
    const QUrl url(address.toString(), QUrl::StrictMode);
    if (!version.isString() || !address.isString() || url.isEmpty() || !url.isValid())
        return;
    const Available found{version.toString(), announcedBuild(file.value(QLatin1String("build"))),
                          url, file.value(QLatin1String("notes")).toString()};
    const qint64 running = currentBuild();
    if (running >= found.build) {
        Log::log(QStringLiteral("update: up to date (latest build %1, running %2)")
                     .arg(found.build)
                     .arg(running));
        return;
    }
    Log::log(
        QStringLiteral("update: build %1 (%2) available — running %3")
            .arg(QString::number(found.build), onOneLine(found.version), QString::number(running)));
    m_available = found;
    if (onUpdateFound)
        onUpdateFound(found);
}

} // namespace quenda
