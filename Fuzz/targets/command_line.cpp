// The command line, which may hold any bytes, and what the running program's answer becomes on a
// terminal: whole lines without control characters.
#include "FuzzTarget.h"
#include "Input.h"
#include "Quenda/CommandLine.h"
#include "Quenda/CommandReport.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace {

using quenda::CommandLine;
using quenda::RemoteCommand;

bool isHarmlessLine(const QString &line) {
    return std::none_of(line.begin(), line.end(), [](QChar c) {
        return c.unicode() < 0x20 || (c.unicode() >= 0x7F && c.unicode() < 0xA0) ||
               c == QChar::LineSeparator || c == QChar::ParagraphSeparator;
    });
}

// The words that make a request, written out again.
std::vector<QByteArray> wordsFor(const quenda::TellProgram &tell, const QByteArray &command) {
    std::vector<QByteArray> words{command};
    if (tell.request.command == RemoteCommand::CopyHistory)
        words.push_back("--copy=" + QByteArray::number(tell.request.entry));
    if (tell.json)
        words.push_back("--json");
    return words;
}

void expectSound(const CommandLine &read, const std::vector<QByteArray> &arguments) {
    if (const auto *wrong = std::get_if<quenda::WrongUsage>(&read)) {
        PROMISE(!wrong->message.isEmpty() && wrong->message.size() < 4096);
        PROMISE_SHOWING(isHarmlessLine(wrong->message), wrong->message);
        return;
    }
    if (const auto *tell = std::get_if<quenda::TellProgram>(&read)) {
        PROMISE(!arguments.empty());
        PROMISE((tell->request.command == RemoteCommand::CopyHistory) == (tell->request.entry > 0));
        PROMISE(!tell->json || tell->request.command == RemoteCommand::Status);
        const CommandLine again = quenda::parseCommandLine(wordsFor(*tell, arguments.front()));
        const auto *same = std::get_if<quenda::TellProgram>(&again);
        PROMISE(same && same->request == tell->request && same->json == tell->json);
        return;
    }
    PROMISE(arguments.size() <= 1 || std::holds_alternative<quenda::StartProgram>(read));
}

void expectReport(const quenda::TellProgram &tell, const quenda::RemoteReply &reply) {
    const quenda::CommandReport report = quenda::reportOn(tell, reply);
    const bool granted =
        reply.outcome == quenda::RemoteOutcome::Answered && reply.answer.refusal.isEmpty();
    PROMISE((report.code == quenda::ExitCode::done) == granted);
    PROMISE(report.error.isEmpty() == granted);
    PROMISE(report.output.isEmpty() || granted);
    PROMISE(report.error.isEmpty() ||
            (report.error.endsWith(u'\n') && isHarmlessLine(report.error.chopped(1))));
    if (tell.json && granted) {
        PROMISE(QJsonDocument::fromJson(report.output.toUtf8()).isObject());
        return;
    }
    const QStringList lines = report.output.split(u'\n');
    PROMISE(lines.back().isEmpty());
    PROMISE(std::all_of(lines.begin(), lines.end(), isHarmlessLine));
    if (granted && tell.request.command == RemoteCommand::History)
        PROMISE(lines.size() == reply.answer.entries.size() + 1);
}

} // namespace

// The arguments, one a line, up to an empty line; then what the running program answers: its
// outcome, a refusal, and texts.
QUENDA_FUZZ_TARGET(command_line) {
    quenda::fuzz::Input parts(input);
    std::vector<QByteArray> arguments;
    for (QByteArray word = parts.line(); !word.isEmpty(); word = parts.line())
        arguments.push_back(word);
    const CommandLine read = quenda::parseCommandLine(arguments);
    expectSound(read, arguments);

    const auto *tell = std::get_if<quenda::TellProgram>(&read);
    if (!tell)
        return;
    quenda::RemoteReply reply;
    reply.outcome = quenda::RemoteOutcome(parts.byte() % 4);
    reply.answer.refusal = parts.textLine();
    reply.reason = reply.answer.refusal;
    reply.answer.status[QStringLiteral("statusLine")] = parts.textLine();
    reply.answer.status[QStringLiteral("providerName")] = parts.textLine();
    reply.answer.status[QStringLiteral("version")] = parts.byte();
    while (!parts.atEnd())
        reply.answer.entries.append(QString::fromUtf8(parts.line().replace('\r', '\n')));
    expectReport(*tell, reply);
}
