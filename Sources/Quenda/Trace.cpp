#include "Quenda/Trace.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <chrono>
#include <mutex>

namespace quenda {

namespace {

struct TraceFile {
    TraceFile() {
        const QString path = qEnvironmentVariable("QUENDA_TRACE");
        if (path.isEmpty())
            return;
        file.setFileName(path);
        open = file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered,
                         QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }
    std::mutex mutex;
    QFile file;
    bool open = false;
};

} // namespace

void Trace::mark(const char *event) {
    static TraceFile trace;
    if (!trace.open)
        return;
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    const QByteArray line = QByteArray::number(qlonglong(nanoseconds)) + ' ' + event + '\n';
    const std::lock_guard lock(trace.mutex);
    trace.file.write(line);
}

} // namespace quenda
