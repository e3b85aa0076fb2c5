#pragma once
// One instance of the program for a user, and what other processes of its user tell it. The
// class is the running program's side (main thread only); the functions are the other side's, need
// no application object and wait, for a bounded time, in a process that has nothing else to do.

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

namespace quenda {

enum class RemoteCommand {
    Start,
    Stop,
    Toggle,
    Cancel,
    Retry,
    Status,
    History,
    CopyHistory,
    ShowSettings,
    ShowWelcome,
    ShowAbout,
    Quit,
};

struct RemoteRequest {
    RemoteCommand command = RemoteCommand::ShowSettings;
    quint32 entry = 0; ///< CopyHistory: which one, 1 is the newest

    bool operator==(const RemoteRequest &) const = default;
};

/// What the running program says. `refusal` is for a person, empty where the request was granted.
struct RemoteAnswer {
    QString refusal;
    QVariantMap status;  ///< Status: texts and booleans by name
    QStringList entries; ///< History: newest first

    bool operator==(const RemoteAnswer &) const = default;
};

class RemoteControl {
public:
    using Handler = std::function<RemoteAnswer(const RemoteRequest &)>;

    RemoteControl() = default;
    RemoteControl(const RemoteControl &) = delete;
    RemoteControl &operator=(const RemoteControl &) = delete;
    virtual ~RemoteControl() = default;

    /// From now on requests are taken and answered by `handler`, which is called from the event
    /// loop. Where nobody can be listened to (no session bus, its name taken), it never is.
    /// Replaces an earlier handler; an empty one refuses every request.
    virtual void setHandler(Handler handler) = 0;
};

/// Makes this process its user's one instance until it ends, however it ends.
/// False where another process is that already; true also where the system cannot tell. Waits for
/// nobody.
bool becomeOnlyInstance();

enum class RemoteOutcome {
    Answered,
    NotRunning,  ///< there is no instance
    NoAnswer,    ///< there is one: it hangs, or cannot be reached
    Unavailable, ///< something else answers in its place, or the system has no such way
};

struct RemoteReply {
    RemoteOutcome outcome = RemoteOutcome::Unavailable;
    RemoteAnswer answer; ///< only where Answered
    QString reason;      ///< otherwise: for a person
};

/// Puts the request to the running program and waits for what it says, a few seconds at most; also
/// for a program that is just starting, and after Quit for its end. Starts no program. After
/// NoAnswer a thread may still be waiting: leave with std::_Exit.
RemoteReply askRunningProgram(const RemoteRequest &request);

} // namespace quenda
