#include "Platform/Folders.h"
#include "Platform/Platform.h"

#include <QDir>
#include <QFile>

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace quenda {

namespace {

bool isAbsolute(const QString &path) {
    return path.startsWith(QLatin1Char('/'));
}

// The home folder of the environment, of the user database where that is missing or relative.
QString homeFolder() {
    const QString home = QFile::decodeName(qgetenv("HOME"));
    if (isAbsolute(home))
        return home;
    std::vector<char> buffer(16 * 1024);
    passwd entry{};
    passwd *found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found)
        return QFile::decodeName(found->pw_dir);
    return QDir::rootPath();
}

// A relative path in these variables is invalid and counts as none (XDG Base Directory 0.8).
QString baseFolder(const char *variable, const QString &fallback) {
    const QString named = QFile::decodeName(qgetenv(variable));
    const QString folder = isAbsolute(named) ? named : homeFolder() + QLatin1Char('/') + fallback;
    return QDir::cleanPath(folder);
}

} // namespace

Folders platformFolders() {
    Folders folders;
    folders.applicationSupport = baseFolder("XDG_DATA_HOME", QStringLiteral(".local/share"));
    folders.logs = baseFolder("XDG_STATE_HOME", QStringLiteral(".local/state"));
    folders.migratedPathPrefix = folders.applicationSupport + QLatin1Char('/');
    return folders;
}

} // namespace quenda
