#include "FuzzTarget.h"

#include "Platform/Folders.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

namespace quenda::fuzz {

namespace {

const Target *&head() {
    static const Target *first = nullptr;
    return first;
}

void endOnWarning(QtMsgType type, const QMessageLogContext &, const QString &message) {
    if (type != QtDebugMsg && type != QtInfoMsg)
        broken("no Qt warning", __FILE__, __LINE__, message);
}

QTemporaryDir &temporary() {
    static QTemporaryDir folder;
    return folder;
}

} // namespace

Target::Target(const char *targetName, Body targetBody)
    : name(targetName),
      body(targetBody),
      next(head()) {
    head() = this;
}

const Target *targets() {
    return head();
}

void prepare() {
    static int argc = 1;
    static char name[] = "quenda-fuzz";
    static char *argv[] = {name, nullptr};
    static const QCoreApplication application(argc, argv);
    qInstallMessageHandler(endOnWarning);
    Folders folders;
    folders.applicationSupport = home() + QLatin1String("/data");
    folders.logs = home() + QLatin1String("/logs");
    folders.migratedPathPrefix = folders.applicationSupport + QLatin1Char('/');
    Folders::install(folders);
}

const QString &home() {
    static const QString path = temporary().path();
    return path;
}

void broken(const char *promise, const char *file, int line, const QString &detail) {
    std::fprintf(stderr, "%s:%d: broken promise: %s\n%s\n", file, line, promise,
                 qPrintable(detail));
    std::fflush(stderr);
    std::abort();
}

} // namespace quenda::fuzz
