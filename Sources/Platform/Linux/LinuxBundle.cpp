#include "Platform/Linux/LinuxBundle.h"

#include <QCoreApplication>
#include <QDir>

namespace quenda {

std::optional<QString> LinuxBundle::shortVersion() const {
    return QStringLiteral(QUENDA_VERSION);
}

std::optional<QString> LinuxBundle::version() const {
    return QStringLiteral(QUENDA_BUILD);
}

std::optional<QString> LinuxBundle::identifier() const {
    return QStringLiteral("org.quenda.Quenda");
}

std::optional<QString> LinuxBundle::resourceDirectory() const {
    return QDir::cleanPath(QCoreApplication::applicationDirPath() +
                           QStringLiteral("/" QUENDA_RESOURCES_FROM_PROGRAM));
}

} // namespace quenda
