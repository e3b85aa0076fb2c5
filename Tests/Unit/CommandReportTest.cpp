#include "Quenda/CommandReport.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace quenda {
namespace {

TellProgram command(RemoteCommand which, bool json = false) {
    return {{which, 0}, json};
}

QVariantMap someStatus() {
    return {
        {QStringLiteral("state"), QStringLiteral("ready")},
        {QStringLiteral("statusLine"), QStringLiteral("Ready — model.bin")},
        {QStringLiteral("recording"), true},
        {QStringLiteral("transcribing"), false},
        {QStringLiteral("providerName"), QStringLiteral("OpenAI")},
        {QStringLiteral("hotkeyHint"), QStringLiteral("Hold it to dictate")},
        {QStringLiteral("keyHeard"), true},
        {QStringLiteral("version"), QStringLiteral("1.4.0")},
    };
}

TEST(CommandReportTest, WhatWasDoneIsSilent) {
    const CommandReport silence;
    for (const RemoteCommand which :
         {RemoteCommand::Start, RemoteCommand::Stop, RemoteCommand::Toggle, RemoteCommand::Cancel,
          RemoteCommand::Retry, RemoteCommand::CopyHistory, RemoteCommand::ShowSettings,
          RemoteCommand::ShowWelcome, RemoteCommand::ShowAbout, RemoteCommand::Quit})
        EXPECT_EQ(reportOn(command(which), {RemoteOutcome::Answered, {}, {}}), silence);
}

TEST(CommandReportTest, EveryFailureHasItsCodeAndOneLine) {
    const auto failed = [](RemoteOutcome outcome) {
        return reportOn(command(RemoteCommand::Start), {outcome, {}, QStringLiteral("it\nis so.")});
    };
    const QString line = QStringLiteral("quenda: it is so.\n");
    EXPECT_EQ(failed(RemoteOutcome::NotRunning), (CommandReport{{}, line, ExitCode::notRunning}));
    EXPECT_EQ(failed(RemoteOutcome::NoAnswer), (CommandReport{{}, line, ExitCode::noAnswer}));
    EXPECT_EQ(failed(RemoteOutcome::Unavailable), (CommandReport{{}, line, ExitCode::refused}));
    EXPECT_EQ(int(ExitCode::done), 0);
    EXPECT_EQ(int(ExitCode::refused), 1);
    EXPECT_EQ(int(ExitCode::usage), 2);
    EXPECT_EQ(int(ExitCode::notRunning), 3);
    EXPECT_EQ(int(ExitCode::noAnswer), 4);
}

TEST(CommandReportTest, ARefusalSaysWhyAndPrintsNothingElse) {
    const CommandReport report = reportOn(
        command(RemoteCommand::History),
        {RemoteOutcome::Answered, {QStringLiteral("No."), {}, {QStringLiteral("secret")}}, {}});
    EXPECT_EQ(report, (CommandReport{{}, QStringLiteral("quenda: No.\n"), ExitCode::refused}));
}

TEST(CommandReportTest, StatusForPeople) {
    QVariantMap status = someStatus();
    const auto text = [&status] {
        return reportOn(command(RemoteCommand::Status),
                        {RemoteOutcome::Answered, {{}, status, {}}, {}})
            .output;
    };
    EXPECT_EQ(text(), QStringLiteral("Ready — model.bin\nRecording: yes\nTranscribing: no\n"
                                     "Service: OpenAI\nKey: Hold it to dictate\n"
                                     "Version: 1.4.0\n"));
    status[QStringLiteral("keyHeard")] = false;
    status[QStringLiteral("statusLine")] = QStringLiteral("a\x1b[2Jb\nc");
    EXPECT_TRUE(text().startsWith(QStringLiteral("a [2Jb c\nRecording")));
    EXPECT_TRUE(text().contains(QStringLiteral("Hold it to dictate (not heard everywhere)\n")));
}

TEST(CommandReportTest, StatusForPrograms) {
    const QString json = reportOn(command(RemoteCommand::Status, true),
                                  {RemoteOutcome::Answered, {{}, someStatus(), {}}, {}})
                             .output;
    EXPECT_EQ(QJsonDocument::fromJson(json.toUtf8()).object().toVariantMap(), someStatus());
    EXPECT_TRUE(json.endsWith(QLatin1Char('\n')));
}

TEST(CommandReportTest, HistoryIsNumberedOneLineEach) {
    const auto history = [](const QStringList &entries) {
        return reportOn(command(RemoteCommand::History),
                        {RemoteOutcome::Answered, {{}, {}, entries}, {}});
    };
    EXPECT_EQ(
        history({QStringLiteral("new %1 \x1b]0;title\x07"), QStringLiteral("old\nlines")}).output,
        QStringLiteral("1  new %1  ]0;title \n2  old lines\n"));
    EXPECT_EQ(history({}), CommandReport());
}

} // namespace
} // namespace quenda
