#pragma once
// What a run of the program that told the running one something prints, and how it ends. Plain
// values.

#include "Quenda/CommandLine.h"

namespace quenda {

struct CommandReport {
    QString output; ///< for the standard output
    QString error;  ///< for the standard error: empty, or whole lines
    ExitCode code = ExitCode::done;

    bool operator==(const CommandReport &) const = default;
};

CommandReport reportOn(const TellProgram &command, const RemoteReply &reply);

/// The report of a run that ends with one message.
CommandReport failureReport(ExitCode code, const QString &message);

} // namespace quenda
