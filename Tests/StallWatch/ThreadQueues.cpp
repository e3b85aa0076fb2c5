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

/// The name of a process's program; empty if it has ended.
QByteArray programOf(const QString &process) {
    QFile file(process + QStringLiteral("comm"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
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
    look(); // also for threads that are new, as those that Qt paints with
    Waits waits;
    for (const Thread &thread : m_threads) {
        const std::optional<nanoseconds> now = queued(thread.file);
        waits.*thread.kind += now ? *now - thread.before : 0ns;
    }
    return waits;
}

void ThreadQueues::look() {
    for (const QString &name : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        if (!name.at(0).isDigit())
            continue;
        const QString folder = QStringLiteral("/proc/%1/").arg(name);
        const QByteArray program = programOf(folder);
        if (program == "Xvfb" || program == "Xorg" || program == "Xwayland")
            add(folder, &Waits::server);
        else if (program == "dbus-daemon" || program == "dbus-broker" || program == "lxqt-panel")
            add(folder, &Waits::buses);
    }
    add(QStringLiteral("/proc/self/"), &Waits::own);
}

void ThreadQueues::add(const QString &process, Kind kind) {
    const QString tasks = process + QStringLiteral("task/");
    // The link ends in the caller's own.
    const QString caller =
        QFile::symLinkTarget(QStringLiteral("/proc/thread-self")).section(u'/', -1);
    const QString main = QString::number(QCoreApplication::applicationPid());
    for (const QString &name : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString folder = tasks + name;
        const bool isKnown = std::any_of(m_threads.begin(), m_threads.end(),
                                         [&](const Thread &t) { return t.folder == folder; });
        if (isKnown || (kind == &Waits::own && (name == main || name == caller)))
            continue;
        const int file = open(QFile::encodeName(folder + QStringLiteral("/schedstat")).constData(),
                              O_RDONLY | O_CLOEXEC);
        if (file >= 0)
            m_threads.push_back({folder, file, kind, 0ns});
    }
}

} // namespace quenda
