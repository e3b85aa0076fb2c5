#include "Quenda/Log.h"

#include "Platform/Folders.h"
#include "Quenda/LineQueue.h"
#include "Quenda/NativeFiles.h"

#include <QDateTime>
#include <QStringEncoder>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <limits>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>

namespace quenda {

namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t kRotationBytes = 1'000'000;
constexpr std::size_t kWaitingBytes = 64 * 1024 * 1024;
constexpr std::chrono::seconds kExitPatience(5);

// The file work uses the standard library alone: it also runs before the application object exists
// and after it is gone.

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// The mode's "e" keeps the file from children that are started meanwhile.
File openUnbuffered(const fs::path &path, const char *mode) {
    File file(std::fopen(path.c_str(), mode));
    if (file)
        std::setvbuf(file.get(), nullptr, _IONBF, 0); // one line, one write
    return file;
}

bool append(const fs::path &path, std::string_view line) {
    const File file = openUnbuffered(path, "abe");
    if (!file)
        return false;
    std::fwrite(line.data(), 1, line.size(), file.get());
    return true;
}

// The file appears under its name complete and readable by its owner only, or not at all.
void writeNew(const fs::path &path, std::string_view line) {
    fs::path draft = path;
    draft += ".new";
    std::error_code error;
    File file = openUnbuffered(draft, "wbe");
    if (!file)
        return;
    fs::permissions(draft, fs::perms::owner_read | fs::perms::owner_write, error);
    const bool complete = std::fwrite(line.data(), 1, line.size(), file.get()) == line.size();
    file.reset();
    if (complete)
        fs::rename(draft, path, error);
    if (!complete || error)
        fs::remove(draft, error);
}

void write(std::string_view line) {
    try {
        const fs::path folder = nativePath(Log::dir());
        const fs::path path = folder / "quenda.log";
        std::error_code error;
        const std::uintmax_t size = fs::file_size(path, error);
        bool exists = !error;
        if (exists && size > kRotationBytes) {
            const fs::path previous = folder / "quenda.log.1";
            fs::remove(previous, error);
            fs::rename(path, previous, error);
            exists = bool(error);
        }
        if (exists && append(path, line))
            return;
        makePrivateFolder(folder);
        writeNew(path, line);
    } catch (const std::exception &) {
        // Out of memory, or a path that cannot be spelled: the line is lost.
    }
}

// Never destroyed: objects that are destroyed after it would have been may still log.
LineQueue &queue() {
    static LineQueue &lines = *[] {
        std::atexit([] { queue().finish(kExitPatience); });
        return new LineQueue(write, kWaitingBytes);
    }();
    return lines;
}

// "yyyy-MM-dd HH:mm:ss " in local time. The text is kept per thread for the rest of its second, so
// that a burst of lines pays once for the time zone; a changed zone shows in the next second.
std::string_view timestamp() {
    using namespace std::chrono;
    thread_local qint64 formattedSecond = std::numeric_limits<qint64>::min();
    thread_local std::array<char, 64> text;
    thread_local std::size_t length = 0;

    const qint64 second = floor<seconds>(system_clock::now()).time_since_epoch().count();
    if (second != formattedSecond) {
        static std::mutex zone; // the system may read its zone anew: one thread at a time
        const std::lock_guard lock(zone);
        const QDateTime local = QDateTime::fromSecsSinceEpoch(second);
        const QDate date = local.date();
        const QTime time = local.time();
        const int written =
            std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d ", date.year(),
                          date.month(), date.day(), time.hour(), time.minute(), time.second());
        length = std::size_t(std::max(written, 0));
        formattedSecond = second;
    }
    return {text.data(), length};
}

} // namespace

void Log::log(const QString &message) {
    try {
        const std::string_view stamp = timestamp();
        QStringEncoder utf8(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
        std::array<char, 1024> buffer; // spares a usual line the allocation
        if (std::size_t(utf8.requiredSpace(message.size())) < buffer.size()) {
            char *end = utf8.appendToBuffer(buffer.data(), message);
            *end++ = '\n';
            queue().submit(stamp, {buffer.data(), std::size_t(end - buffer.data())});
        } else {
            const QByteArray tail = message.toUtf8() + '\n';
            queue().submit(stamp, {tail.constData(), std::size_t(tail.size())});
        }
    } catch (const std::exception &) {
        // Out of memory: the line is lost, the caller is not disturbed.
    }
}

void Log::flush() {
    queue().flush();
}

QString Log::dir() {
    return Folders::current().logs + QLatin1String("/Quenda");
}

QString Log::fileURL() {
    return dir() + QLatin1String("/quenda.log");
}

} // namespace quenda
