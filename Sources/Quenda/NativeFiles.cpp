#include "Quenda/NativeFiles.h"

#include <QFile>

namespace quenda {

namespace fs = std::filesystem;

fs::path nativePath(const QString &path) {
    return fs::path(QFile::encodeName(path).toStdString());
}

void makePrivateFolder(const fs::path &folder) {
    std::error_code error;
    if (folder.empty() || fs::exists(folder, error))
        return;
    if (folder.has_parent_path() && folder.parent_path() != folder)
        makePrivateFolder(folder.parent_path());
    if (fs::create_directory(folder, error))
        fs::permissions(folder, fs::perms::owner_all, error);
}

} // namespace quenda
