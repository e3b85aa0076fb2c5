#include "Platform/Linux/LinuxLoginItem.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>

#include <utility>

namespace quenda {

namespace {

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

} // namespace

LinuxLoginItem::LinuxLoginItem(QString folder) : m_folder(std::move(folder)) {
    if (m_folder.isEmpty())
        m_folder = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                   QStringLiteral("/autostart");
}

QString LinuxLoginItem::entryPath() const {
    return m_folder + QStringLiteral("/org.quenda.Quenda.desktop");
}

bool LinuxLoginItem::isEnabled() const {
    QFile entry(entryPath());
    if (!entry.open(QIODevice::ReadOnly))
        return false;
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

LoginItemOutcome LinuxLoginItem::setEnabled(bool enabled) {
    if (!enabled) {
        QFile::remove(entryPath());
        return QFile::exists(entryPath()) ? LoginItemOutcome::Refused : LoginItemOutcome::Done;
    }
    QDir().mkpath(m_folder);
    QSaveFile entry(entryPath());
    if (!entry.open(QIODevice::WriteOnly))
        return LoginItemOutcome::Refused;
    const QString text = QStringLiteral("[Desktop Entry]\n"
                                        "Type=Application\n"
                                        "Name=Quenda\n"
                                        "Comment=Dictate into any text field\n"
                                        "Icon=org.quenda.Quenda\n"
                                        "Exec=%1\n"
                                        "Terminal=false\n")
                             .arg(quotedForExec(QCoreApplication::applicationFilePath()));
    entry.write(text.toUtf8());
    return entry.commit() ? LoginItemOutcome::Done : LoginItemOutcome::Refused;
}

} // namespace quenda
