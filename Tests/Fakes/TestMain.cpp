#include "Fakes/TestMain.h"

#include "Platform/Folders.h"
#include "Quenda/Log.h"

#include <QApplication>
#include <QMutex>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

namespace quenda::fakes {

namespace {

std::unique_ptr<QTemporaryDir> home;
QMutex warningsMutex;
QStringList warnings;
QStringList expected;

// What the offscreen platform says of itself: it has no stacking order, no size hints, no tray.
bool isAboutOffscreen(const QString &message) {
    return message.startsWith(QLatin1String("This plugin does not support ")) ||
           message.contains(QLatin1String("QPlatformNativeInterface::systemTrayWindowChanged"));
}

void collect(QtMsgType type, const QMessageLogContext &, const QString &message) {
    if (type == QtDebugMsg || type == QtInfoMsg)
        return;
    if (isAboutOffscreen(message))
        return;
    const QMutexLocker locker(&warningsMutex);
    warnings.append(message);
}

// A fresh home before each test; an unexpected warning fails the test.
class Housekeeping : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override {
        Log::flush(); // into the former home
        home = std::make_unique<QTemporaryDir>();
        Folders folders;
        folders.applicationSupport = home->filePath(QStringLiteral("data"));
        folders.logs = home->filePath(QStringLiteral("logs"));
        folders.migratedPathPrefix = folders.applicationSupport + QLatin1Char('/');
        Folders::install(folders);
        const QMutexLocker locker(&warningsMutex);
        warnings.clear();
        expected.clear();
    }
    // The result is still open here: OnTestPartResult counts for the running test.
    void OnTestEnd(const testing::TestInfo &) override {
        const QMutexLocker locker(&warningsMutex);
        for (const QString &warning : std::as_const(warnings)) {
            bool foreseen = false;
            for (const QString &part : std::as_const(expected))
                foreseen = foreseen || warning.contains(part);
            if (!foreseen)
                ADD_FAILURE() << "unexpected warning: " << qPrintable(warning);
        }
    }
};

} // namespace

QString testHome() {
    return home->path();
}

void expectWarning(const QString &part) {
    const QMutexLocker locker(&warningsMutex);
    expected.append(part);
}

} // namespace quenda::fakes

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    application.setQuitOnLastWindowClosed(false);
    application.setApplicationName(QStringLiteral("quenda-test"));
    qInstallMessageHandler(quenda::fakes::collect);
    testing::UnitTest::GetInstance()->listeners().Append(new quenda::fakes::Housekeeping);
    const int status = RUN_ALL_TESTS();
    qInstallMessageHandler(nullptr);
    return status;
}
