#include "Platform/Linux/X11ClipboardThread.h"

#include "Platform/Linux/X11ClipboardSession.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <future>
#include <mutex>
#include <thread>
#include <utility>

namespace quenda {

namespace {

// A server that another program has grabbed answers nobody; the main thread goes on then.
constexpr std::chrono::milliseconds kPatience{500};
constexpr int kEventsBetweenCommands = 64;

// Signals belong to the main thread.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

private:
    sigset_t m_before;
};

} // namespace

// Shared by both threads. It lives on with the clipboard thread where that cannot end in time.
class X11ClipboardThread::Worker {
public:
    /// Gets a null session where there is no connection.
    using Command = std::function<void(X11ClipboardSession *)>;

    Worker(QByteArray display, Handlers handlers)
        : m_display(std::move(display)),
          m_handlers(std::move(handlers)),
          m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~Worker() { close(m_wake); }
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    void post(Command command) {
        {
            const std::lock_guard lock(m_mutex);
            m_commands.push_back(std::move(command));
        }
        wake();
    }
    void wake() const { eventfd_write(m_wake, 1); }

    /// Waits for the answer to `question`; none where it does not come in time, and then the
    /// question is not put any more.
    template <typename Answer>
    std::optional<Answer> ask(std::function<Answer(X11ClipboardSession &)> question) {
        struct Asked {
            std::promise<std::optional<Answer>> answer;
            std::atomic<bool> withdrawn = false;
        };
        const auto asked = std::make_shared<Asked>();
        std::future<std::optional<Answer>> answer = asked->answer.get_future();
        post([asked, question = std::move(question)](X11ClipboardSession *session) {
            const bool put = session && !asked->withdrawn;
            asked->answer.set_value(put ? std::optional(question(*session)) : std::nullopt);
        });
        if (answer.wait_for(kPatience) == std::future_status::ready)
            return answer.get();
        asked->withdrawn = true;
        return std::nullopt;
    }

    void run();
    /// No handler is called once this has returned. False where the thread did not end in time.
    bool end();
    void fetched(const std::shared_ptr<SelectionFetch> &fetch);

    std::atomic<std::int64_t> changes = 1;

private:
    bool runCommand();
    bool connect();
    void dropLost();
    void reportChanges();
    void wait();

    const QByteArray m_display;
    Handlers m_handlers;
    const int m_wake;
    std::mutex m_mutex; ///< of the next four
    std::condition_variable m_endedCondition;
    std::deque<Command> m_commands;
    bool m_quit = false;
    bool m_ended = false;
    std::mutex m_handlersMutex;

    // The clipboard thread's own.
    std::unique_ptr<X11ClipboardSession> m_session;
    std::int64_t m_reported = 1;
};

void X11ClipboardThread::Worker::run() {
    pthread_setname_np(pthread_self(), "clipboard");
    connect();
    for (;;) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_quit)
                break;
        }
        bool more = runCommand();
        if (m_session) {
            more = m_session->handleEvents(kEventsBetweenCommands) || more;
            m_session->tick(X11ClipboardSession::Clock::now());
            more = m_session->handleQueuedEvent() || more;
            dropLost();
        }
        reportChanges();
        if (!more)
            wait();
    }
    if (m_session && !m_session->broken())
        m_session->handOver();
    m_session.reset();
    const std::lock_guard lock(m_mutex);
    m_ended = true;
    m_endedCondition.notify_all();
}

bool X11ClipboardThread::Worker::end() {
    {
        const std::lock_guard lock(m_handlersMutex);
        m_handlers = {};
    }
    std::unique_lock lock(m_mutex);
    m_quit = true;
    wake();
    return m_endedCondition.wait_for(lock, kPatience, [this] { return m_ended; });
}

bool X11ClipboardThread::Worker::runCommand() {
    Command command;
    {
        const std::lock_guard lock(m_mutex);
        if (m_commands.empty())
            return false;
        command = std::move(m_commands.front());
        m_commands.pop_front();
    }
    dropLost();
    command(connect() ? m_session.get() : nullptr);
    return true;
}

bool X11ClipboardThread::Worker::connect() {
    if (!m_session) {
        if (std::unique_ptr<X11SelectionLink> link = X11SelectionLink::open(m_display)) {
            m_session = std::make_unique<X11ClipboardSession>(
                std::move(link), changes,
                [this](const std::shared_ptr<SelectionFetch> &fetch) { fetched(fetch); });
        }
    }
    return m_session != nullptr;
}

void X11ClipboardThread::Worker::dropLost() {
    if (!m_session || !m_session->broken())
        return;
    ++changes; // what was ours is gone with the connection, and others' changes go unseen
    m_session.reset();
}

void X11ClipboardThread::Worker::fetched(const std::shared_ptr<SelectionFetch> &fetch) {
    const std::lock_guard lock(m_handlersMutex);
    if (m_handlers.fetched)
        m_handlers.fetched(fetch);
}

void X11ClipboardThread::Worker::reportChanges() {
    if (m_reported == changes)
        return;
    m_reported = changes;
    const std::lock_guard lock(m_handlersMutex);
    if (m_handlers.changed)
        m_handlers.changed();
}

void X11ClipboardThread::Worker::wait() {
    pollfd descriptors[] = {{m_wake, POLLIN, 0},
                            {m_session ? m_session->fileDescriptor() : -1, POLLIN, 0}};
    int timeout = -1;
    if (const auto deadline = m_session ? m_session->nextDeadline() : std::nullopt) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            *deadline - X11ClipboardSession::Clock::now());
        timeout = int(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
    }
    poll(descriptors, 2, timeout);
    eventfd_t count = 0;
    eventfd_read(m_wake, &count);
}

X11ClipboardThread::X11ClipboardThread(const QByteArray &display, Handlers handlers)
    : m_worker(std::make_shared<Worker>(display, std::move(handlers))) {
    const SignalsBlocked blocked;
    m_thread = std::thread([worker = m_worker] { worker->run(); });
}

X11ClipboardThread::~X11ClipboardThread() {
    if (m_worker->end())
        m_thread.join();
    else
        m_thread.detach(); // the X server does not answer
}

std::int64_t X11ClipboardThread::changeCount() const {
    return m_worker->changes;
}

std::optional<std::int64_t> X11ClipboardThread::own(SelectionContents contents) {
    using Count = std::optional<std::int64_t>;
    return m_worker
        ->ask<Count>([contents = std::move(contents)](X11ClipboardSession &session) {
            return session.own(contents);
        })
        .value_or(std::nullopt);
}

bool X11ClipboardThread::ownPrimary() {
    return m_worker->ask<bool>([](X11ClipboardSession &session) { return session.ownPrimary(); })
        .value_or(false);
}

void X11ClipboardThread::startFetch(std::shared_ptr<SelectionFetch> fetch) {
    m_worker->post(
        [worker = m_worker.get(), fetch = std::move(fetch)](X11ClipboardSession *session) {
            if (session) {
                session->startFetch(fetch);
            } else {
                fetch->finish();
                worker->fetched(fetch);
            }
        });
}

void X11ClipboardThread::cancelFetch(const std::shared_ptr<SelectionFetch> &fetch) {
    fetch->cancel();
    m_worker->wake();
}

} // namespace quenda
