#include "Platform/Linux/LinuxLoginItem.h"

#include "AutostartEntry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>

#include <optional>
#include <utility>

namespace quenda {

namespace {

const QString kEntryName = QStringLiteral("/org.quenda.Quenda.desktop");
constexpr qint64 kMaxEntryBytes = 64 * 1024; // an autostart entry has some hundred bytes

// Quotes an argument for an Exec key (Desktop Entry, "The Exec key"): the four characters that are
// special inside double quotes get a backslash, which the string type of the file doubles again;
// a percent sign is doubled.
QString quotedForExec(const QString &argument) {
    QString quoted;
    for (const QChar c : argument) {
        if (c == QLatin1Char('\\'))
            quoted += QStringLiteral("\\\\\\\\");
        else if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$'))
            quoted += QStringLiteral("\\\\") + c;
        else if (c == QLatin1Char('%'))
            quoted += QStringLiteral("%%");
        else
            quoted += c;
    }
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

// Nothing if there is no such entry.
std::optional<bool> startsAtLogin(const QString &path) {
    QFile entry(path);
    if (!entry.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QList<QByteArray> lines = entry.read(kMaxEntryBytes).split('\n');
    for (const QByteArray &line : lines) {
        // White space counts for nothing around the "=", but it does inside a key or a value.
        const qsizetype equals = line.indexOf('=');
        const QByteArray key = line.left(equals).trimmed().toLower();
        const QByteArray value = line.mid(equals + 1).trimmed().toLower();
        if (equals >= 0 && ((key == "hidden" && value == "true") ||
                            (key == "x-gnome-autostart-enabled" && value == "false")))
            return false;
    }
    return true;
}

} // namespace

LinuxLoginItem::LinuxLoginItem(QString folder, QStringList systemFolders)
    : m_folder(std::move(folder)),
      m_systemFolders(std::move(systemFolders)) {
    if (!m_folder.isEmpty())
        return;
    m_systemFolders = QStandardPaths::standardLocations(QStandardPaths::GenericConfigLocation);
    for (QString &place : m_systemFolders)
        place += QStringLiteral("/autostart");
    m_folder = m_systemFolders.takeFirst(); // the user's own comes first
}

QString LinuxLoginItem::entryPath() const {
    return m_folder + kEntryName;
}

bool LinuxLoginItem::isEnabled() const {
    for (const QString &folder : QStringList(m_folder) + m_systemFolders) {
        if (const std::optional<bool> starts = startsAtLogin(folder + kEntryName))
            return *starts;
    }
    return false;
}

LoginItemOutcome LinuxLoginItem::setEnabled(bool enabled) {
    const QString text = QString::fromUtf16(kAutostartEntry)
                             .arg(quotedForExec(QCoreApplication::applicationFilePath()));
    if (enabled)
        return write(text);
    QFile::remove(entryPath());
    if (QFile::exists(entryPath()))
        return LoginItemOutcome::Refused;
    return isEnabled() ? write(text + QStringLiteral("Hidden=true\n")) : LoginItemOutcome::Done;
}

LoginItemOutcome LinuxLoginItem::write(const QString &text) const {
    QDir().mkpath(m_folder);
    QSaveFile entry(entryPath());
    if (!entry.open(QIODevice::WriteOnly))
        return LoginItemOutcome::Refused;
    entry.write(text.toUtf8());
    return entry.commit() ? LoginItemOutcome::Done : LoginItemOutcome::Refused;
}

} // namespace quenda
