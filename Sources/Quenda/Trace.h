#pragma once
// Time stamps of a dictation's milestones, for measuring from outside. Off unless the environment
// names a file in QUENDA_TRACE; then each mark appends "<nanoseconds> <event>" to it, on the
// system's monotonic clock. Never carries what was said. Any thread.

namespace quenda {

class Trace {
public:
    /// `event` is a short word without blanks and with static lifetime.
    static void mark(const char *event);
};

} // namespace quenda
