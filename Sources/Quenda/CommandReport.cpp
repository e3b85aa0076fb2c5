#include "Quenda/CommandReport.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

namespace quenda {

namespace {

struct Text {
    Q_DECLARE_TR_FUNCTIONS(CommandReport)
};

QString statusText(const QVariantMap &status) {
    const auto text = [&status](QLatin1String name) { return printable(status[name].toString()); };
    const auto yesNo = [&status](QLatin1String name) {
        return status[name].toBool() ? Text::tr("yes") : Text::tr("no");
    };
    QString lines = text(QLatin1String("statusLine")) + u'\n';
    lines += Text::tr("Recording: %1").arg(yesNo(QLatin1String("recording"))) + u'\n';
    lines += Text::tr("Transcribing: %1").arg(yesNo(QLatin1String("transcribing"))) + u'\n';
    lines += Text::tr("Service: %1").arg(text(QLatin1String("providerName"))) + u'\n';
    lines += Text::tr("Key: %1").arg(text(QLatin1String("hotkeyHint")));
    if (!status[QLatin1String("keyHeard")].toBool())
        lines += Text::tr(" (not heard everywhere)");
    lines += u'\n';
    lines += Text::tr("Version: %1").arg(text(QLatin1String("version"))) + u'\n';
    return lines;
}

QString statusJson(const QVariantMap &status) {
    return QString::fromUtf8(
        QJsonDocument(QJsonObject::fromVariantMap(status)).toJson(QJsonDocument::Indented));
}

// One line an entry, whatever it holds: it may come from a service, and goes to a terminal.
QString historyText(const QStringList &entries) {
    QString lines;
    for (qsizetype i = 0; i < entries.size(); ++i)
        lines += QStringLiteral("%1  %2\n").arg(QString::number(i + 1), printable(entries[i]));
    return lines;
}

ExitCode codeOf(RemoteOutcome outcome) {
    switch (outcome) {
    case RemoteOutcome::Answered:
        return ExitCode::done;
    case RemoteOutcome::NotRunning:
        return ExitCode::notRunning;
    case RemoteOutcome::NoAnswer:
        return ExitCode::noAnswer;
    case RemoteOutcome::Unavailable:
        return ExitCode::refused;
    }
    Q_UNREACHABLE();
}

} // namespace

CommandReport failureReport(ExitCode code, const QString &message) {
    return {{}, QStringLiteral("quenda: %1\n").arg(printable(message)), code};
}

CommandReport reportOn(const TellProgram &command, const RemoteReply &reply) {
    if (reply.outcome != RemoteOutcome::Answered)
        return failureReport(codeOf(reply.outcome), reply.reason);
    if (!reply.answer.refusal.isEmpty())
        return failureReport(ExitCode::refused, reply.answer.refusal);
    CommandReport report;
    if (command.request.command == RemoteCommand::Status)
        report.output =
            command.json ? statusJson(reply.answer.status) : statusText(reply.answer.status);
    else if (command.request.command == RemoteCommand::History)
        report.output = historyText(reply.answer.entries);
    return report;
}

} // namespace quenda
