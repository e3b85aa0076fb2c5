// Downloads one file as the program downloads a model, and tells what it took.
//   download-bench URL FOLDER FILENAME
// Prints seconds, processor seconds and the growth of the resident memory in kilobytes, from before
// the first request to the highest point. Exits with 1 where the download fails.

#include "Quenda/NetworkHttpClient.h"
#include "Quenda/PartialFile.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QStringList>

#include <sys/resource.h>

#include <cstdio>
#include <memory>

namespace {

rusage usage() {
    rusage result{};
    getrusage(RUSAGE_SELF, &result);
    return result;
}

double seconds(const timeval &time) {
    return double(time.tv_sec) + double(time.tv_usec) / 1e6;
}

double processorSeconds(const rusage &used) {
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

} // namespace

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 4) {
        std::fputs("usage: download-bench URL FOLDER FILENAME\n", stderr);
        return 2;
    }
    quenda::NetworkHttpClient http;
    quenda::HttpRequest request;
    request.url = QUrl(arguments[1]);
    const rusage before = usage();
    QElapsedTimer time;
    time.start();
    http.download(
        request, std::make_unique<quenda::PartialFile>(arguments[2], arguments[3]), &application,
        [](qint64, qint64) {},
        [&](const quenda::HttpDownload &result) {
            const double elapsed = double(time.nsecsElapsed()) / 1e9;
            const rusage after = usage();
            if (result.error || result.status != 200) {
                std::fprintf(stderr, "HTTP %d %s\n", result.status.value_or(0),
                             result.error ? qPrintable(result.error->localizedDescription) : "");
                QCoreApplication::exit(1);
                return;
            }
            std::printf("%.3f %.3f %ld\n", elapsed,
                        processorSeconds(after) - processorSeconds(before),
                        after.ru_maxrss - before.ru_maxrss);
            QCoreApplication::exit(0);
        });
    return QCoreApplication::exec();
}
