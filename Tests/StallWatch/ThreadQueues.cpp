#include "StallWatch/ThreadQueues.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

namespace quenda {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

constexpr auto kBetweenLooks = 500ms; // for threads that came or went

std::optional<nanoseconds> queued(int file) {
    char text[96];
    const ssize_t length = pread(file, text, sizeof text, 0);
    if (length <= 0)
        return std::nullopt; // it has ended
    const QList<QByteArray> fields = QByteArray(text, length).split(' ');
    return nanoseconds(fields.size() > 1 ? fields[1].toLongLong() : 0);
}

bool isServer(const QString &process) {
    QFile file(process + QStringLiteral("comm"));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray name = file.readAll().trimmed();
    return name == "Xvfb" || name == "Xorg" || name == "Xwayland" || name == "Xephyr";
}

} // namespace

ThreadQueues::~ThreadQueues() {
    for (const Thread &thread : m_threads)
        close(thread.file);
}

void ThreadQueues::begin() {
    if (const auto now = std::chrono::steady_clock::now(); now >= m_lookAgain) {
        m_lookAgain = now + kBetweenLooks;
        look();
    }
    std::erase_if(m_threads, [](Thread &thread) {
        const std::optional<nanoseconds> now = queued(thread.file);
        if (!now)
            close(thread.file);
        thread.before = now.value_or(0ns);
        return !now;
    });
}

ThreadQueues::Waits ThreadQueues::sinceBegin() {
    Waits waits;
    for (const Thread &thread : m_threads) {
        const std::optional<nanoseconds> now = queued(thread.file);
        (thread.isServer ? waits.server : waits.own) += now ? *now - thread.before : 0ns;
    }
    return waits;
}

void ThreadQueues::look() {
    if (m_server.isEmpty() || !isServer(m_server)) {
        m_server.clear();
        for (const QString &name : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
            const QString folder = QStringLiteral("/proc/%1/").arg(name);
            if (name.at(0).isDigit() && isServer(folder))
                m_server = folder;
        }
    }
    if (!m_server.isEmpty())
        add(m_server, true);
    add(QStringLiteral("/proc/self/"), false);
}

void ThreadQueues::add(const QString &process, bool isServer) {
    const QString tasks = process + QStringLiteral("task/");
    // The link ends in the caller's own.
    const QString caller =
        QFile::symLinkTarget(QStringLiteral("/proc/thread-self")).section(u'/', -1);
    const QString main = QString::number(QCoreApplication::applicationPid());
    for (const QString &name : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString folder = tasks + name;
        const bool isKnown = std::any_of(m_threads.begin(), m_threads.end(),
                                         [&](const Thread &t) { return t.folder == folder; });
        if (isKnown || (!isServer && (name == main || name == caller)))
            continue;
        const int file = open(QFile::encodeName(folder + QStringLiteral("/schedstat")).constData(),
                              O_RDONLY | O_CLOEXEC);
        if (file >= 0)
            m_threads.push_back({folder, file, isServer, queued(file).value_or(0ns)});
    }
}

} // namespace quenda
