// Program entry: builds what the controller needs, hands it over and runs the event loop; or puts a
// request to the program that runs already.

#include "Platform/Folders.h"
#include "Platform/Platform.h"
#include "Quenda/AppDelegate.h"
#include "Quenda/CommandReport.h"
#include "Quenda/Log.h"
#include "Quenda/NetworkHttpClient.h"
#include "Quenda/ProductSite.h"
#include "Quenda/Symbols.h"
#include "Quenda/TimelyEnd.h"
#include "Quenda/TimerScheduler.h"

#include <QApplication>
#include <QSettings>
#include <QTranslator>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

using namespace quenda;

// What Qt may take after everything else has ended.
constexpr std::chrono::milliseconds kMostForTheEnd{1000};

bool write(const QString &text, std::FILE *stream) {
    const QByteArray bytes = text.toUtf8();
    return std::fwrite(bytes.constData(), 1, std::size_t(bytes.size()), stream) ==
               std::size_t(bytes.size()) &&
           std::fflush(stream) == 0;
}

// Not through the destructors of statics: a thread may still be waiting for a bus.
[[noreturn]] void leaveWith(const CommandReport &report) {
    ExitCode code = report.code;
    if (!write(report.output, stdout))
        code = ExitCode::refused;
    write(report.error, stderr);
    std::_Exit(int(code));
}

// Returns in the process that is to be the running program; the others end here.
void startOnce(const StartProgram &start) {
    // A program that is just ending lets go of its place between the two questions.
    constexpr int kTries = 5;
    const TellProgram settings{{RemoteCommand::ShowSettings, 0}, false};
    RemoteReply reply;
    for (int i = 0; i < kTries; ++i) {
        if (becomeOnlyInstance())
            return;
        if (start.byDesktop)
            leaveWith({});
        reply = askRunningProgram(settings.request);
        if (reply.outcome != RemoteOutcome::NotRunning)
            break;
    }
    leaveWith(reportOn(settings, reply));
}

void obey(const CommandLine &line) {
    if (const auto *wrong = std::get_if<WrongUsage>(&line))
        leaveWith(failureReport(ExitCode::usage, wrong->message));
    if (std::holds_alternative<PrintHelp>(line))
        leaveWith({helpText(), {}, ExitCode::done});
    if (std::holds_alternative<PrintVersion>(line)) {
        const QString version = createBundle()->shortVersion().value_or(QStringLiteral("dev"));
        leaveWith({QStringLiteral("Quenda %1\n").arg(version), {}, ExitCode::done});
    }
    if (const auto *tell = std::get_if<TellProgram>(&line))
        leaveWith(reportOn(*tell, askRunningProgram(tell->request)));
    startOnce(std::get<StartProgram>(line));
}

QtMessageHandler usualMessages = nullptr;

// Where Qt finds no display it aborts the process, with a page of hints for programmers.
void endInstead(QtMsgType type, const QMessageLogContext &context, const QString &message) {
    if (type == QtFatalMsg)
        leaveWith(failureReport(
            ExitCode::refused,
            QCoreApplication::translate(
                "main", "Quenda cannot open its windows: the display cannot be reached.")));
    usualMessages(type, context, message);
}

// The program itself, from its beginning to its end.
int run(QApplication &application) {
    Platform platform = createPlatform();
    TimerScheduler scheduler;
    NetworkHttpClient http;
    QSettings defaults;
    // For tests: where models come from instead, a server of the test's own.
    const QString modelBaseUrl = qEnvironmentVariable("QUENDA_MODEL_BASE_URL", kModelBaseUrl);
    AppDelegate delegate(
        {platform, scheduler, http, defaults, [] { QCoreApplication::exit(0); }, modelBaseUrl});
    QObject::connect(&application, &QCoreApplication::aboutToQuit, &delegate,
                     &AppDelegate::applicationWillTerminate);
    QMetaObject::invokeMethod(&delegate, &AppDelegate::applicationDidFinishLaunching,
                              Qt::QueuedConnection);
    return QApplication::exec();
}

} // namespace

int main(int argc, char **argv) {
    obey(parseCommandLine({argv + (argc > 0 ? 1 : 0), argv + argc}));
    if (const Failure noWindows = prepareApplication())
        leaveWith(failureReport(ExitCode::refused, noWindows->localizedDescription));
    Folders::install(platformFolders());
    usualMessages = qInstallMessageHandler(endInstead);
    TimelyEnd end;
    QApplication application(argc, argv);
    qInstallMessageHandler(nullptr);
    QApplication::setOrganizationName(QStringLiteral("Quenda"));
    QApplication::setApplicationName(QStringLiteral("Quenda"));
    QApplication::setDesktopFileName(QStringLiteral("org.quenda.Quenda"));
    QApplication::setQuitOnLastWindowClosed(false);
    // A build for another system than the texts in the code name brings that system's words.
    QTranslator words;
    if (words.load(QStringLiteral(":/wording/platform.qm")))
        QCoreApplication::installTranslator(&words);

    const int status = run(application);
    Log::flush();
    end.expect(kMostForTheEnd, status);
    return status;
}
