#include "Platform/Linux/InstanceLock.h"

#include "Platform/Folders.h"
#include "Platform/Platform.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace quenda {

namespace {

struct flock wholeFile() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

// Nobody else may put a file there, or keep it locked.
bool isPrivate(const QByteArray &folder) {
    struct stat status {};
    return folder.startsWith('/') && stat(folder.constData(), &status) == 0 &&
           S_ISDIR(status.st_mode) && status.st_uid == getuid() && (status.st_mode & 077) == 0;
}

} // namespace

QString instanceLockFile() {
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    const QString folder = isPrivate(runtime) ? QFile::decodeName(runtime) : platformFolders().logs;
    return folder + QStringLiteral("/quenda.lock");
}

bool takeInstanceLock() {
    static int held = -1; // never closed: the end of the process does that
    if (held >= 0)
        return true;
    const QString file = instanceLockFile();
    QDir().mkpath(QFileInfo(file).path());
    const int descriptor = open(QFile::encodeName(file).constData(),
                                O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (descriptor < 0)
        return true;
    struct flock lock = wholeFile();
    if (fcntl(descriptor, F_OFD_SETLK, &lock) == 0) {
        held = descriptor;
        return true;
    }
    const bool another = errno == EAGAIN || errno == EACCES;
    close(descriptor);
    return !another;
}

bool instanceExists() {
    const int descriptor = open(QFile::encodeName(instanceLockFile()).constData(),
                                O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0)
        return false;
    struct flock lock = wholeFile();
    const bool exists = fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    close(descriptor);
    return exists;
}

} // namespace quenda
