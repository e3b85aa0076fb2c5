#include "Platform/Linux/Sandbox.h"

#include <QFile>

namespace quenda {

namespace {
constexpr qint64 kMostOfTheFile = 64 * 1024;
}

std::optional<QString> sandboxedApplication(const QString &flatpakInfo,
                                            const QByteArray &snapInstance) {
    QFile file(flatpakInfo);
    if (file.open(QIODevice::ReadOnly)) {
        // A key file, see flatpak-metadata(5).
        QByteArray group;
        for (const QByteArray &raw : file.read(kMostOfTheFile).split('\n')) {
            const QByteArray line = raw.trimmed();
            if (line.startsWith('['))
                group = line;
            const qsizetype equals = line.indexOf('=');
            if (group == "[Application]" && line.left(equals).trimmed() == "name")
                return QString::fromUtf8(line.mid(equals + 1).trimmed());
        }
        return QString(); // a sandbox all the same
    }
    if (!snapInstance.isEmpty()) // the portals put this before a snap's name
        return QStringLiteral("snap.") + QString::fromLocal8Bit(snapInstance);
    return std::nullopt;
}

std::optional<QString> sandboxedApplication() {
    QByteArray snap = qgetenv("SNAP_INSTANCE_NAME");
    if (snap.isEmpty())
        snap = qgetenv("SNAP_NAME");
    return sandboxedApplication(QStringLiteral("/.flatpak-info"), snap);
}

} // namespace quenda
