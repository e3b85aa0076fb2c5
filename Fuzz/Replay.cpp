// Runs a target once over each of the given files, and the files of the given folders:
//   fuzz-replay TARGET PATH...
// So that every input that was once found stays tested, also where there is no libFuzzer.
#include "FuzzTarget.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cstdio>
#include <cstring>

namespace {

const quenda::fuzz::Target *targetCalled(const char *name) {
    const quenda::fuzz::Target *target = quenda::fuzz::targets();
    while (target && std::strcmp(target->name, name) != 0)
        target = target->next;
    return target;
}

QStringList filesOf(const QString &path) {
    if (!QFileInfo(path).isDir())
        return {path};
    QStringList files;
    QDirIterator each(path, QDir::Files);
    while (each.hasNext())
        files.append(each.next());
    files.sort();
    return files;
}

} // namespace

int main(int argc, char **argv) {
    const quenda::fuzz::Target *target = argc > 2 ? targetCalled(argv[1]) : nullptr;
    if (!target) {
        std::fprintf(stderr, "usage: fuzz-replay TARGET PATH...\ntargets:");
        for (target = quenda::fuzz::targets(); target; target = target->next)
            std::fprintf(stderr, " %s", target->name);
        std::fprintf(stderr, "\n");
        return 2;
    }
    quenda::fuzz::prepare();
    int runs = 0;
    for (int i = 2; i < argc; ++i) {
        for (const QString &name : filesOf(QFile::decodeName(argv[i]))) {
            QFile file(name);
            if (!file.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(name));
                return 1;
            }
            const QByteArray input = file.readAll();
            std::printf("%s\n", qPrintable(name)); // the last one named is the one that failed
            std::fflush(stdout);
            target->body(input);
            ++runs;
        }
    }
    std::printf("%d inputs of %s replayed\n", runs, target->name);
    return runs > 0 ? 0 : 1;
}
