#include "Quenda/CommandLine.h"

#include "Quenda/GraphemeText.h"

#include <QCoreApplication>

#include <array>

namespace quenda {

namespace {

constexpr int kQuoted = 60; // characters of a wrong argument that a message repeats

struct Text {
    Q_DECLARE_TR_FUNCTIONS(CommandLine)
};

struct Word {
    const char *word;
    RemoteCommand command;
};

constexpr std::array kWords{
    Word{"start", RemoteCommand::Start},         Word{"stop", RemoteCommand::Stop},
    Word{"toggle", RemoteCommand::Toggle},       Word{"cancel", RemoteCommand::Cancel},
    Word{"retry", RemoteCommand::Retry},         Word{"status", RemoteCommand::Status},
    Word{"history", RemoteCommand::History},     Word{"settings", RemoteCommand::ShowSettings},
    Word{"welcome", RemoteCommand::ShowWelcome}, Word{"about", RemoteCommand::ShowAbout},
    Word{"quit", RemoteCommand::Quit},
};

QString quoted(const QByteArray &argument) {
    return printable(QString::fromLocal8Bit(argument), kQuoted);
}

WrongUsage unexpected(const QByteArray &argument) {
    const QString text = argument.startsWith('-')
                             ? Text::tr("unknown option “%1”; see quenda --help")
                             : Text::tr("unexpected “%1”; see quenda --help");
    return {text.arg(quoted(argument))};
}

// Digits only: no sign, no white space, no other script's digits.
std::optional<quint32> entryNumber(const QByteArray &argument) {
    for (const char digit : argument) {
        if (digit < '0' || digit > '9')
            return std::nullopt;
    }
    bool ok = false;
    const uint number = argument.toUInt(&ok);
    return ok && number > 0 ? std::optional<quint32>(number) : std::nullopt;
}

CommandLine historyCommand(const std::vector<QByteArray> &arguments) {
    constexpr char kJoined[] = "--copy=";
    TellProgram tell{{RemoteCommand::History, 0}, false};
    if (arguments.size() == 1)
        return tell;
    QByteArray number;
    std::size_t used = 2;
    if (arguments[1].startsWith(kJoined)) {
        number = arguments[1].mid(sizeof kJoined - 1);
    } else if (arguments[1] != "--copy") {
        return unexpected(arguments[1]);
    } else if (arguments.size() == 2) {
        return WrongUsage{Text::tr("--copy needs the number of an entry, 1 for the newest")};
    } else {
        number = arguments[2];
        used = 3;
    }
    if (arguments.size() > used)
        return unexpected(arguments[used]);
    const std::optional<quint32> entry = entryNumber(number);
    if (!entry)
        return WrongUsage{
            Text::tr("“%1” is not the number of an entry, which is 1 for the newest and counts up")
                .arg(quoted(number))};
    tell.request = {RemoteCommand::CopyHistory, *entry};
    return tell;
}

CommandLine statusCommand(const std::vector<QByteArray> &arguments) {
    TellProgram tell{{RemoteCommand::Status, 0}, false};
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        if (arguments[i] != "--json" || tell.json)
            return unexpected(arguments[i]);
        tell.json = true;
    }
    return tell;
}

} // namespace

CommandLine parseCommandLine(const std::vector<QByteArray> &arguments) {
    if (arguments.empty())
        return StartProgram{};
    const QByteArray &first = arguments.front();
    // What a session manager adds when it restores a session (X Session Management); Qt reads it.
    if (first == "-session" && arguments.size() == 2)
        return StartProgram{true};
    if (first == "status")
        return statusCommand(arguments);
    if (first == "history")
        return historyCommand(arguments);
    const auto alone = [&arguments](CommandLine command) -> CommandLine {
        return arguments.size() == 1 ? std::move(command) : unexpected(arguments[1]);
    };
    if (first == "--help" || first == "-h")
        return alone(PrintHelp{});
    if (first == "--version" || first == "-v")
        return alone(PrintVersion{});
    for (const Word &word : kWords) {
        if (first == word.word)
            return alone(TellProgram{{word.command, 0}, false});
    }
    if (first.startsWith('-'))
        return unexpected(first);
    return WrongUsage{Text::tr("unknown command “%1”; see quenda --help").arg(quoted(first))};
}

QString helpText() {
    return Text::tr(
        "Usage: quenda [COMMAND]\n"
        "\n"
        "Dictation: hold a key, speak, and the words stand where you type. Without a\n"
        "command Quenda starts; if it runs already, its settings window opens.\n"
        "\n"
        "What the running Quenda can be told:\n"
        "  start               begin a dictation, as pressing the dictation key does\n"
        "  stop                end it and insert the words, as letting the key go does\n"
        "  toggle              begin a dictation, or end the one that runs\n"
        "  cancel              drop the dictation that runs, as Escape does\n"
        "  retry               transcribe again what could not be transcribed last\n"
        "  status [--json]     print what it is doing, on request as JSON\n"
        "  history [--copy N]  print the recent dictations, newest first, or put\n"
        "                      number N on the clipboard\n"
        "  settings            open the settings window\n"
        "  welcome             open the welcome window\n"
        "  about               open the about window\n"
        "  quit                end\n"
        "\n"
        "  -h, --help          print this text\n"
        "  -v, --version       print the version\n"
        "\n"
        "Exit status: 0 done; 1 refused or failed, the message says why; 2 wrong usage;\n"
        "3 Quenda is not running; 4 the running Quenda does not answer.\n");
}

QString printable(const QString &text, int limit) {
    QString line = text;
    for (QChar &character : line) {
        const QChar::Category category = character.category();
        if (category == QChar::Other_Control || category == QChar::Separator_Line ||
            category == QChar::Separator_Paragraph)
            character = u' ';
    }
    if (limit <= 0)
        return line;
    const QString start = firstGraphemes(line, limit);
    return start.size() < line.size() ? start + u'…' : line;
}

} // namespace quenda
