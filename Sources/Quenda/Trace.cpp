#include "Quenda/Trace.h"

#include <QByteArray>
#include <QFile>
#include <QMutex>
#include <QString>

#include <chrono>

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
    QMutex mutex;
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
    const QMutexLocker locker(&trace.mutex);
    trace.file.write(line);
}

} // namespace quenda
