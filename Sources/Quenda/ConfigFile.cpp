#include "Platform/Folders.h"
#include "Quenda/Config.h"
#include "Quenda/NativeFiles.h"

#include <QFile>
#include <QFileInfo>

#include <system_error>

namespace quenda {

namespace {

const QString kFormerName = QStringLiteral("Ostrel");
const QString kName = QStringLiteral("Quenda");

constexpr QFile::Permissions kOwnerOnly = QFile::ReadOwner | QFile::WriteOwner;

QString folderOf(const QString &program) {
    return Folders::current().applicationSupport + QLatin1Char('/') + program;
}

// A pipe or a device in the file's place could stop the caller for ever.
bool isUsual(const QFileInfo &file) {
    return file.isFile() || !file.exists();
}

} // namespace

QString Config::dataFolder() {
    return folderOf(kName);
}

QString Config::configURL() {
    return dataFolder() + QLatin1String("/config.json");
}

QString Config::modelsDir() {
    return dataFolder() + QLatin1String("/models");
}

Result<Config> Config::load() {
    QFile file(configURL());
    if (!isUsual(QFileInfo(file)) || !file.open(QIODevice::ReadOnly))
        return quendaError(0, QStringLiteral("No settings file"));
    // One byte more than allowed tells a file that is too long, however its size changes meanwhile.
    const QByteArray json = file.read(kMaxFileBytes + 1);
    if (file.error() != QFile::NoError || json.size() > kMaxFileBytes)
        return quendaError(0, QStringLiteral("Unreadable settings file"));
    return decode(json);
}

void Config::save() const {
    makePrivateFolder(nativePath(dataFolder()));
    const QByteArray json = encode();
    if (json.isEmpty())
        return;
    QFile file(configURL());
    if (!isUsual(QFileInfo(file)))
        return;
    // A new file is born with the narrow mode; one that was there, emptied by the opening, is
    // narrowed before it gets its bytes. Set once more at the end, the mode is also right where
    // the process's mask took the owner's own rights away.
    if (file.open(QIODevice::WriteOnly | QIODevice::Unbuffered, kOwnerOnly)) {
        file.setPermissions(kOwnerOnly);
        file.write(json);
        file.close();
    }
    QFile::setPermissions(configURL(), kOwnerOnly);
}

void Config::migrateLegacyDataIfNeeded() {
    const QFileInfo former(folderOf(kFormerName));
    const QFileInfo present(dataFolder());
    if (!former.isDir() || present.exists() || present.isSymLink())
        return;

    std::error_code failure;
    std::filesystem::rename(nativePath(former.filePath()), nativePath(present.filePath()), failure);
    if (failure) {
        qWarning("Quenda: legacy data migration failed: %s", failure.message().c_str());
        return;
    }

    const Result<Config> loaded = load();
    if (!loaded)
        return;
    Config config = loaded.value();
    const QString prefix = Folders::current().migratedPathPrefix;
    for (QString *path : {&config.modelPath, &config.whisperServerPath})
        path->replace(prefix + kFormerName + QLatin1Char('/'), prefix + kName + QLatin1Char('/'));
    config.save();
}

} // namespace quenda
