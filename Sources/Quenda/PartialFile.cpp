#include "Quenda/PartialFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <filesystem>
#include <system_error>

namespace quenda {

namespace {

Error fileError(const QString &reason, int code = 0) {
    return {QStringLiteral("Quenda.File"), code,
            QCoreApplication::translate("quenda::PartialFile", "The file could not be saved: %1.")
                .arg(reason)};
}

Error fileError(const std::error_code &code) {
    return fileError(QString::fromLocal8Bit(code.message().c_str()), code.value());
}

std::filesystem::path nativePath(const QString &path) {
    return std::filesystem::path(path.toStdU16String());
}

QString parentOf(const QString &folder) {
    return QFileInfo(folder).absolutePath();
}

// Where a file that is to be moved into `folder` may grow.
QString growingFolder(const QString &folder) {
    return QFileInfo::exists(folder) ? folder : parentOf(folder);
}

} // namespace

PartialFile::PartialFile(const QString &folder, const QString &fileName)
    : m_folder(folder),
      m_destination(folder + QLatin1Char('/') + fileName),
      m_name(QStringLiteral(".%1.%2.part")
                 .arg(fileName)
                 .arg(QRandomGenerator::system()->generate(), 8, 16, QLatin1Char('0'))) {}

PartialFile::~PartialFile() {
    m_file.close();
    if (m_lock)
        m_lock->unlock(); // removes the file
}

Failure PartialFile::open() {
    if (QFileInfo(m_destination).isDir())
        return fileError(std::make_error_code(std::errc::is_a_directory));
    const QString folder = growingFolder(m_folder);
    std::error_code failure;
    std::filesystem::create_directories(nativePath(folder), failure);
    if (failure)
        return fileError(failure);
    m_file.setFileName(folder + QLatin1Char('/') + m_name);
    m_lock.emplace(m_file.fileName());
    const bool locked = m_lock->tryLock(0);
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered))
        return fileError(m_file.errorString());
    if (!locked) { // the lock does not say why; writing the same few bytes does
        const bool written = m_file.write("\n", 1) == 1;
        const Error reason = written ? fileError(std::make_error_code(std::errc::no_lock_available))
                                     : fileError(m_file.errorString());
        m_file.remove();
        return reason;
    }
    return std::nullopt;
}

Failure PartialFile::write(QByteArrayView bytes) {
    while (!bytes.isEmpty()) {
        const qint64 written = m_file.write(bytes.data(), bytes.size());
        if (written <= 0)
            return fileError(m_file.errorString());
        bytes = bytes.sliced(written);
    }
    return std::nullopt;
}

Failure PartialFile::finish() {
    m_file.close();
    std::error_code failure;
    std::filesystem::create_directories(nativePath(m_folder), failure);
    if (!failure)
        std::filesystem::rename(nativePath(m_file.fileName()), nativePath(m_destination), failure);
    if (failure)
        return fileError(failure);
    // The lock removes the file that it was taken on, and complains where there is none.
    QFile remains(m_file.fileName());
    if (remains.open(QIODevice::WriteOnly))
        remains.close();
    m_lock->unlock();
    m_lock.reset();
    return std::nullopt;
}

QStringList PartialFile::begun(const QString &folder) {
    static const QRegularExpression shape(QStringLiteral("^\\..+\\.[0-9a-f]{8}\\.part$"));
    QStringList files;
    for (const QString &place : {folder, parentOf(folder)}) {
        const QStringList names =
            QDir(place).entryList(QDir::Files | QDir::Hidden | QDir::NoSymLinks, QDir::NoSort);
        for (const QString &name : names.filter(shape))
            files += place + QLatin1Char('/') + name;
    }
    return files;
}

void PartialFile::removeAbandoned(const QStringList &files) {
    for (const QString &file : files)
        QLockFile(file).removeStaleLockFile();
}

} // namespace quenda
