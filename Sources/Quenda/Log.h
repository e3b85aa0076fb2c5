#pragma once
// The diagnostic log: one plain text file, one line an event, each with a lower-case area prefix
// ("app: ", "audio: ", ...). Never put a transcript or an API key into it.

#include <QString>

namespace quenda {

class Log {
public:
    /// Appends a line with the present local time. Any thread; returns at once, all file work is
    /// done on the log's own thread. Errors are swallowed and the line is lost.
    static void log(const QString &message);

    /// Waits until every line submitted before the call is written. Any thread but the log's own.
    static void flush();

    static QString dir();     ///< the log folder
    static QString fileURL(); ///< the log file
};

} // namespace quenda
