#pragma once
// What the program was asked for on its command line. Plain values, no application object; the
// arguments are whatever the caller wrote.

#include "Platform/RemoteControl.h"

#include <QByteArray>
#include <QString>

#include <optional>
#include <variant>
#include <vector>

namespace quenda {

/// How a run of the program ends that is not the long one.
enum class ExitCode {
    done = 0,
    refused = 1,    ///< or failed; the message says why
    usage = 2,      ///< wrong arguments
    notRunning = 3, ///< there is no program to tell anything to
    noAnswer = 4,   ///< there is one, and it does not answer
};

/// No words: start the program, or open the settings of the one that runs.
struct StartProgram {
    bool byDesktop = false; ///< by a session manager that restores the session
};
struct PrintHelp {};
struct PrintVersion {};
/// To be told to the running program.
struct TellProgram {
    RemoteRequest request;
    bool json = false; ///< whether the status is printed as JSON
};
struct WrongUsage {
    QString message; ///< one line, without control characters
};

using CommandLine = std::variant<StartProgram, PrintHelp, PrintVersion, TellProgram, WrongUsage>;

/// Reads the arguments after the program's name. The first wrong one decides.
CommandLine parseCommandLine(const std::vector<QByteArray> &arguments);

/// What `--help` prints.
QString helpText();

/// `text` on one line for a terminal: control characters become blanks, and what is longer than
/// `limit` user-perceived characters is cut (0: nothing is).
QString printable(const QString &text, int limit = 0);

} // namespace quenda
