// Measures how long the main thread leaves its events waiting; for the desktop tests. A part of the
// program only in builds with QUENDA_STALL_WATCH, and at rest unless the variable QUENDA_STALLS
// names a file.
//
// A thread of its own posts an event to the main thread every 10 ms and waits for its answer. For
// each that took over 20 ms it appends one JSON object a line to the file:
//   start_ns   when the event was posted, on the system's monotonic clock
//   length_ms  how long the answer took
//   cpu_ms     how long the main thread itself computed meanwhile
//   queued_ms  how long it could have run, but the machine had no processor for it
//   pkill_ms   how long it waited for pkill, which ends stale engines before one is started
//   launch_ms  how long its newest child, until it had become another program, could have run, but
//              the machine had no processor for it; whoever starts a program waits for that
//   server_ms  how long the X server could have run, but the machine had no processor for it
//   buses_ms   the same of the message buses and the panel, which Qt asks on them
//   threads_ms the same of the program's other threads, added up
//   where      the functions that the main thread was in, the innermost first, for each moment
//              looked at: after 40 ms and then every 20 ms
//   over       false in a line written while a long one still lasts; another one follows
// From the end of the event loop on nothing is measured.
// The kernel's account of a thread is in /proc; where there is none, these times are 0.

#include "StallWatch/MainThreadFrames.h"
#include "StallWatch/ThreadQueues.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace quenda {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

constexpr auto kInterval = 10ms;
constexpr auto kLook = 4ms; // how often a stalled thread's children are looked at
constexpr auto kStall = 20ms;
constexpr auto kAskWhere = 40ms;
constexpr auto kAskWhereAgain = 20ms;
constexpr int kMostPlaces = 24;
constexpr auto kLongStall = 100ms; // told while it lasts, since it may never end
const QByteArray kWaitedFor = QByteArrayLiteral("pkill");

double milliseconds(nanoseconds span) {
    return std::chrono::duration<double, std::milli>(span).count();
}

QByteArray contents(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// What the kernel has noted about the main thread.
struct Account {
    nanoseconds computed{};
    nanoseconds queued{};

    static Account now(const QString &threadFolder) {
        const QList<QByteArray> fields =
            contents(threadFolder + QLatin1String("schedstat")).split(' ');
        if (fields.size() < 2)
            return {};
        return {nanoseconds(fields[0].toLongLong()), nanoseconds(fields[1].toLongLong())};
    }
};

struct Answer {
    Clock::time_point time;
    Account account;
};

/// Lives on the main thread and answers there; the thread that asks is the watch's own.
class StallWatch final : public QObject {
public:
    explicit StallWatch(const QString &path)
        : m_threadFolder(
              QStringLiteral("/proc/self/task/%1/").arg(QCoreApplication::applicationPid())),
          m_file(path),
          m_program(contents(m_threadFolder + QLatin1String("comm")).trimmed()) {
        if (m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered,
                        QFileDevice::ReadOwner | QFileDevice::WriteOwner))
            m_thread = std::thread([this] { watch(); });
    }
    StallWatch(const StallWatch &) = delete;
    StallWatch &operator=(const StallWatch &) = delete;
    ~StallWatch() override {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_end = true;
        }
        m_changed.notify_all();
        if (m_thread.joinable())
            m_thread.join();
    }

protected:
    bool event(QEvent *event) override {
        if (event->type() != QEvent::User)
            return QObject::event(event);
        const Clock::time_point now = Clock::now();
        const Account account =
            now - m_asked.load() > kStall ? Account::now(m_threadFolder) : Account();
        // No lock: the watch may lose its processor while it holds one. It looks soon in any case.
        m_answer = {now, account};
        m_answered = true;
        m_changed.notify_all();
        return true;
    }

private:
    void watch() {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_end) {
            ask(lock);
            m_changed.wait_for(lock, kInterval, [this] { return m_end; });
        }
    }

    void ask(std::unique_lock<std::mutex> &lock) {
        const Account before = Account::now(m_threadFolder);
        m_queues.begin();
        m_where = {};
        const Clock::time_point asked = Clock::now();
        m_asked = asked;
        m_answered = false;
        m_unnamed = m_waited = m_launch = {};
        m_waitsForChild = false;
        m_launching.clear();
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
        Clock::duration tellAfter = kLongStall;
        Clock::duration askWhereAfter = kAskWhere;
        Clock::time_point looked = asked;
        while (!m_changed.wait_for(lock, kLook, [this] { return m_answered || m_end; })) {
            lock.unlock(); // the main thread must never wait for us
            const Clock::time_point now = Clock::now();
            noteChild(now - looked);
            looked = now;
            takeWhere();
            if (now - asked > askWhereAfter && m_where.size() < kMostPlaces) {
                askWhereAfter = now - asked + kAskWhereAgain;
                m_frames.ask();
            }
            if (now - asked > tellAfter) {
                tellAfter = 2 * (now - asked);
                tell(asked, {now, Account::now(m_threadFolder)}, before, false);
            }
            lock.lock();
        }
        // What was told has to be corrected: the answer may have been under way, by a main thread
        // that lost its processor over it.
        const bool isTold = tellAfter != kLongStall;
        if (!m_answered || (m_answer.time - asked <= kStall && !isTold))
            return;
        const Answer answer = m_answer;
        lock.unlock();
        takeWhere();
        if (m_waitsForChild)
            noteChild(answer.time - looked);
        tell(asked, answer, before, true);
        lock.lock();
    }

    /// The newest child is the one that is waited for, if any is. One that has not become another
    /// program yet has the name of this one.
    void noteChild(nanoseconds since) {
        const QList<QByteArray> children =
            contents(m_threadFolder + QLatin1String("children")).trimmed().split(' ');
        const QString folder =
            QStringLiteral("/proc/%1/").arg(QString::fromLatin1(children.last()));
        const QByteArray name = contents(folder + QLatin1String("comm")).trimmed();
        noteLaunch();
        if (name == m_program)
            m_launching = folder;
        // When it had ended, nobody knows; this thread may have had no processor itself.
        const bool wasWaitedFor = std::exchange(m_waitsForChild, name == kWaitedFor);
        if (wasWaitedFor || m_waitsForChild)
            m_waited += since + std::exchange(m_unnamed, {});
        else if (name == m_program)
            m_unnamed += since;
        else
            m_unnamed = {};
    }

    void noteLaunch() {
        if (m_launching.isEmpty())
            return;
        const nanoseconds queued = Account::now(m_launching).queued;
        if (contents(m_launching + QLatin1String("comm")).trimmed() != m_program)
            m_launching.clear();
        m_launch = std::max(m_launch, queued);
    }

    void takeWhere() {
        if (const QStringList frames = m_frames.take(); !frames.isEmpty())
            m_where.append(QJsonArray::fromStringList(frames));
    }

    void tell(Clock::time_point asked, const Answer &answer, const Account &before, bool over) {
        noteLaunch();
        const ThreadQueues::Waits waits = m_queues.sinceBegin();
        const QJsonObject line{
            {QStringLiteral("start_ns"),
             qint64(std::chrono::duration_cast<nanoseconds>(asked.time_since_epoch()).count())},
            {QStringLiteral("length_ms"), milliseconds(answer.time - asked)},
            {QStringLiteral("cpu_ms"), milliseconds(answer.account.computed - before.computed)},
            {QStringLiteral("queued_ms"), milliseconds(answer.account.queued - before.queued)},
            {QStringLiteral("pkill_ms"), milliseconds(m_waited)},
            {QStringLiteral("launch_ms"), milliseconds(m_launch)},
            {QStringLiteral("server_ms"), milliseconds(waits.server)},
            {QStringLiteral("buses_ms"), milliseconds(waits.buses)},
            {QStringLiteral("threads_ms"), milliseconds(waits.own)},
            {QStringLiteral("where"), m_where},
            {QStringLiteral("over"), over}};
        m_file.write(QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n');
    }

    const QString m_threadFolder;
    QFile m_file;
    const QByteArray m_program;
    std::atomic<Clock::time_point> m_asked{};
    Answer m_answer{}; ///< the main thread's until m_answered, the watch's afterwards
    std::atomic<bool> m_answered = false;
    nanoseconds m_unnamed{};
    nanoseconds m_waited{};
    bool m_waitsForChild = false;
    nanoseconds m_launch{};
    QString m_launching; ///< the folder in /proc of a child that is no other program yet
    MainThreadFrames m_frames;
    ThreadQueues m_queues;
    QJsonArray m_where;

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    bool m_end = false;
    std::thread m_thread;
};

std::unique_ptr<StallWatch> &theWatch() {
    static std::unique_ptr<StallWatch> watch;
    return watch;
}

void startWatching() {
    const QString path = qEnvironmentVariable("QUENDA_STALLS");
    if (path.isEmpty())
        return;
    theWatch() = std::make_unique<StallWatch>(path);
    QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit,
                     [] { theWatch().reset(); });
}

// Called by the application object when it is made, so that the program need not know of the watch.
Q_COREAPP_STARTUP_FUNCTION(startWatching)

} // namespace
} // namespace quenda
