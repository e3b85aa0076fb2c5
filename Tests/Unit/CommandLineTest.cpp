#include "Quenda/CommandLine.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

namespace quenda {
namespace {

CommandLine parse(std::initializer_list<QByteArray> arguments) {
    return parseCommandLine(std::vector<QByteArray>(arguments));
}

/// The message of wrong usage; empty where the arguments are right.
std::string wrong(std::initializer_list<QByteArray> arguments) {
    const CommandLine line = parse(arguments);
    const auto *usage = std::get_if<WrongUsage>(&line);
    return usage ? usage->message.toStdString() : std::string();
}

void expectTells(std::initializer_list<QByteArray> arguments, RemoteRequest request,
                 bool json = false) {
    const CommandLine line = parse(arguments);
    const auto *tell = std::get_if<TellProgram>(&line);
    ASSERT_NE(tell, nullptr) << arguments.begin()->constData();
    EXPECT_EQ(tell->request, request) << arguments.begin()->constData();
    EXPECT_EQ(tell->json, json);
}

TEST(CommandLineTest, NoWordStartsTheProgram) {
    const CommandLine line = parse({});
    ASSERT_TRUE(std::holds_alternative<StartProgram>(line));
    EXPECT_FALSE(std::get<StartProgram>(line).byDesktop);
}

TEST(CommandLineTest, ASessionManagerMayRestoreTheProgram) {
    const CommandLine line = parse({"-session", "117f000101000161"});
    ASSERT_TRUE(std::holds_alternative<StartProgram>(line));
    EXPECT_TRUE(std::get<StartProgram>(line).byDesktop);
    EXPECT_FALSE(wrong({"-session"}).empty());
    EXPECT_FALSE(wrong({"-session", "1", "start"}).empty());
}

TEST(CommandLineTest, EveryWordIsItsCommand) {
    expectTells({"start"}, {RemoteCommand::Start, 0});
    expectTells({"stop"}, {RemoteCommand::Stop, 0});
    expectTells({"toggle"}, {RemoteCommand::Toggle, 0});
    expectTells({"cancel"}, {RemoteCommand::Cancel, 0});
    expectTells({"retry"}, {RemoteCommand::Retry, 0});
    expectTells({"status"}, {RemoteCommand::Status, 0});
    expectTells({"status", "--json"}, {RemoteCommand::Status, 0}, true);
    expectTells({"history"}, {RemoteCommand::History, 0});
    expectTells({"history", "--copy", "1"}, {RemoteCommand::CopyHistory, 1});
    expectTells({"history", "--copy=10"}, {RemoteCommand::CopyHistory, 10});
    expectTells({"settings"}, {RemoteCommand::ShowSettings, 0});
    expectTells({"welcome"}, {RemoteCommand::ShowWelcome, 0});
    expectTells({"about"}, {RemoteCommand::ShowAbout, 0});
    expectTells({"quit"}, {RemoteCommand::Quit, 0});
}

TEST(CommandLineTest, HelpAndVersionHaveTwoNamesEach) {
    for (const char *help : {"--help", "-h"})
        EXPECT_TRUE(std::holds_alternative<PrintHelp>(parse({help}))) << help;
    for (const char *version : {"--version", "-v"})
        EXPECT_TRUE(std::holds_alternative<PrintVersion>(parse({version}))) << version;
}

TEST(CommandLineTest, TheHelpNamesEveryCommand) {
    const QString help = helpText();
    for (const char *word :
         {"start", "stop", "toggle", "cancel", "retry", "status [--json]", "history [--copy N]",
          "settings", "welcome", "about", "quit", "-h, --help", "-v, --version"})
        EXPECT_TRUE(help.contains(QStringLiteral("\n  ") + QLatin1String(word))) << word;
    for (const QString &line : help.split(QLatin1Char('\n')))
        EXPECT_LE(line.size(), 80) << line.toStdString();
}

TEST(CommandLineTest, UnknownWordsAndOptionsAreNamed) {
    EXPECT_EQ(wrong({"dance"}), "unknown command “dance”; see quenda --help");
    EXPECT_EQ(wrong({"Start"}), "unknown command “Start”; see quenda --help");
    EXPECT_EQ(wrong({""}), "unknown command “”; see quenda --help");
    EXPECT_EQ(wrong({"--loud"}), "unknown option “--loud”; see quenda --help");
    EXPECT_EQ(wrong({"-platform", "offscreen"}), "unknown option “-platform”; see quenda --help");
    EXPECT_EQ(wrong({"--json", "status"}), "unknown option “--json”; see quenda --help");
}

TEST(CommandLineTest, ASurplusWordIsNamed) {
    EXPECT_EQ(wrong({"start", "now"}), "unexpected “now”; see quenda --help");
    EXPECT_EQ(wrong({"quit", "--json"}), "unknown option “--json”; see quenda --help");
    EXPECT_EQ(wrong({"status", "--json", "--json"}), "unknown option “--json”; see quenda --help");
    EXPECT_EQ(wrong({"history", "2"}), "unexpected “2”; see quenda --help");
    EXPECT_EQ(wrong({"history", "--copy", "1", "2"}), "unexpected “2”; see quenda --help");
    EXPECT_EQ(wrong({"history", "--copy=1", "2"}), "unexpected “2”; see quenda --help");
    EXPECT_EQ(wrong({"--help", "start"}), "unexpected “start”; see quenda --help");
}

TEST(CommandLineTest, ANumberIsDigitsFromOneUp) {
    EXPECT_EQ(wrong({"history", "--copy"}),
              "--copy needs the number of an entry, 1 for the newest");
    for (const char *number : {"0", "-1", "+1", " 1", "1 ", "1.0", "1e1", "0x1", "two", "",
                               "4294967296", "99999999999999999999", "\xd9\xa1"})
        EXPECT_NE(wrong({"history", "--copy", number}).find("is not the number of an entry"),
                  std::string::npos)
            << number;
    expectTells({"history", "--copy", "4294967295"}, {RemoteCommand::CopyHistory, 4294967295U});
    expectTells({"history", "--copy", "007"}, {RemoteCommand::CopyHistory, 7});
}

TEST(CommandLineTest, AMessageIsOneHarmlessLine) {
    const std::string message = wrong({"a\nb\x1b[31mred\r\x07\xc2\x9b"});
    EXPECT_EQ(message, "unknown command “a b [31mred   ”; see quenda --help");
    const std::string cut = wrong({QByteArray(5000, 'x')});
    EXPECT_EQ(cut, "unknown command “" + std::string(60, 'x') + "…”; see quenda --help");
    EXPECT_FALSE(wrong({"\xff\xfe\x80"}).empty());
}

TEST(PrintableTest, KeepsWhatIsReadAndCutsBetweenCharacters) {
    EXPECT_EQ(printable(QStringLiteral("tab\there")), QStringLiteral("tab here"));
    EXPECT_EQ(printable(QString(QChar(0x2028))), QStringLiteral(" "));
    EXPECT_EQ(printable(QStringLiteral("हिन्दी 👩‍🔬")),
              QStringLiteral("हिन्दी 👩‍🔬"));
    EXPECT_EQ(printable(QStringLiteral("👩‍🔬👩‍🔬"), 1),
              QStringLiteral("👩‍🔬…"));
}

} // namespace
} // namespace quenda
