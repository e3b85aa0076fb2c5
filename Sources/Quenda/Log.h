#pragma once
// The diagnostic log: one plain text file, one line an event, each with a lower-case area prefix
// ("app: ", "audio: ", ...). Never put a transcript or an API key into it.
//
// Lines that wait at a normal exit are written before the process ends; the destructors of static
// objects may log as well. What waits is bounded: a disk that hangs costs at most 64 MiB of memory
// and 5 seconds at the exit, and the lines that do not fit are lost.

#include <QString>

namespace quenda {

class Log {
public:
    /// Appends a line with the present local time. Any thread; returns at once, all file work is
    /// done on the log's own thread. Errors are swallowed and the line is lost.
    static void log(const QString &message);

    /// Waits until every line submitted before the call is written. Any thread but the log's own.
    /// Whoever installs other folders calls it first: a line goes to the folder that is installed
    /// when it is written.
    static void flush();

    static QString dir();     ///< the log folder
    static QString fileURL(); ///< the log file
};

} // namespace quenda
