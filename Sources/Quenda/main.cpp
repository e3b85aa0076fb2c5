// Program entry: builds what the controller needs, hands it over and runs the event loop.

#include "Platform/Folders.h"
#include "Platform/Platform.h"
#include "Quenda/AppDelegate.h"
#include "Quenda/Log.h"
#include "Quenda/NetworkHttpClient.h"
#include "Quenda/ProductSite.h"
#include "Quenda/Symbols.h"
#include "Quenda/TimerScheduler.h"

#include <QApplication>
#include <QSettings>
#include <QTranslator>

int main(int argc, char **argv) {
    quenda::prepareApplication();
    quenda::Folders::install(quenda::platformFolders());
    QApplication application(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Quenda"));
    QApplication::setApplicationName(QStringLiteral("Quenda"));
    QApplication::setDesktopFileName(QStringLiteral("org.quenda.Quenda"));
    QApplication::setQuitOnLastWindowClosed(false);
    // A build for another system than the texts in the code name brings that system's words.
    QTranslator words;
    if (words.load(QStringLiteral(":/wording/platform.qm")))
        QCoreApplication::installTranslator(&words);

    quenda::Platform platform = quenda::createPlatform();
    quenda::TimerScheduler scheduler;
    quenda::NetworkHttpClient http;
    QSettings defaults;
    // For tests: where models come from instead, a server of the test's own.
    const QString modelBaseUrl =
        qEnvironmentVariable("QUENDA_MODEL_BASE_URL", quenda::kModelBaseUrl);
    quenda::AppDelegate delegate(
        {platform, scheduler, http, defaults, [] { QCoreApplication::exit(0); }, modelBaseUrl});
    QObject::connect(&application, &QCoreApplication::aboutToQuit, &delegate,
                     &quenda::AppDelegate::applicationWillTerminate);
    QMetaObject::invokeMethod(&delegate, &quenda::AppDelegate::applicationDidFinishLaunching,
                              Qt::QueuedConnection);
    const int status = QApplication::exec();
    quenda::Log::flush();
    return status;
}
