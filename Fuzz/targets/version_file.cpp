// The small file on the product's web site that tells of the newest release.
#include "Fakes/FakeHttpClient.h"
#include "Fakes/VirtualScheduler.h"
#include "FuzzTarget.h"
#include "Platform/Desktop.h"
#include "Quenda/Log.h"
#include "Quenda/UpdateChecker.h"

#include <QFile>
#include <QSettings>

namespace {

using quenda::UpdateChecker;

constexpr qint64 kRunning = 57;

class RunningBundle final : public quenda::Bundle {
public:
    std::optional<QString> shortVersion() const override { return QStringLiteral("1.4.0"); }
    std::optional<QString> version() const override { return QString::number(kRunning); }
    std::optional<QString> identifier() const override { return std::nullopt; }
    std::optional<QString> resourceDirectory() const override { return std::nullopt; }
};

QByteArray takeLog() {
    quenda::Log::flush();
    QFile file(quenda::Log::fileURL());
    if (!file.open(QIODevice::ReadWrite))
        return {};
    const QByteArray lines = file.readAll();
    file.resize(0);
    return lines;
}

} // namespace

QUENDA_FUZZ_TARGET(version_file) {
    static quenda::fakes::VirtualScheduler scheduler;
    static QSettings defaults(quenda::fuzz::home() + QLatin1String("/defaults.ini"),
                              QSettings::IniFormat);
    static RunningBundle bundle;
    quenda::fakes::FakeHttpClient http;
    UpdateChecker checker({http, scheduler, defaults, bundle});
    int calls = 0;
    checker.onUpdateFound = [&](const UpdateChecker::Available &found) {
        PROMISE(checker.available() == found);
        ++calls;
    };
    checker.fetch();
    http.answer(input.size() % 2 ? 200 : 404, input.toByteArray());

    PROMISE(calls == (checker.available() ? 1 : 0));
    const QByteArray log = takeLog();
    PROMISE_SHOWING(log.isEmpty() || (log.count('\n') == 1 && log.endsWith('\n')),
                    QString::fromUtf8(log));
    PROMISE(QString::fromUtf8(log).toUtf8() == log);
    if (checker.available()) {
        PROMISE(checker.available()->build > kRunning);
        PROMISE(checker.available()->url.isValid() && !checker.available()->url.isEmpty());
        PROMISE(log.contains("update: build "));
    } else {
        PROMISE(log.isEmpty() || log.contains("update: up to date"));
    }
}
