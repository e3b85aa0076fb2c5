// What the program starts on the desktop, with programs of the test's own in their places.

#include "Platform/Linux/LinuxWorkspace.h"

#include "Contract/WorkspaceContract.h"
#include "Fakes/TestMain.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMessageBox>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>

namespace quenda {
namespace {

bool waitUntil(const std::function<bool()> &holds) {
    QElapsedTimer waited;
    waited.start();
    while (!holds()) {
        if (waited.elapsed() > 5000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

bool waitForFile(const QString &path) {
    return waitUntil([&path] { return QFile::exists(path) && QFile(path).size() > 0; });
}

QString contents(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
}

void run(const QString &program, const QStringList &arguments) {
    QProcess process;
    process.start(program, arguments);
    EXPECT_TRUE(waitUntil([&] { return process.state() == QProcess::NotRunning; }));
}

// The folder of a program that stands for the desktop's handler and says in the file of the name
// in QUENDA_TEST_SAID what it was given. One for all tests: Qt looks for it once in a process.
QString openerFolder() {
    static const QTemporaryDir folder;
    QFile opener(folder.filePath(QStringLiteral("xdg-open")));
    if (!opener.exists() && opener.open(QIODevice::WriteOnly)) {
        opener.write("#!/bin/sh\necho xdg-open \"$@\" > \"$QUENDA_TEST_SAID\"\n");
        opener.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    return folder.path();
}

struct LinuxWorkspaceTest : testing::Test {
    QDir programs{fakes::testHome() + QStringLiteral("/programs")};
    QString said = fakes::testHome() + QStringLiteral("/said");
    QByteArray pathBefore = qgetenv("PATH");

    LinuxWorkspaceTest() {
        programs.mkpath(QStringLiteral("."));
        qputenv("PATH", programs.path().toLocal8Bit());
        qputenv("XDG_CURRENT_DESKTOP", "Nowhere");
    }
    ~LinuxWorkspaceTest() override { qputenv("PATH", pathBefore); }

    // A program that says its name and arguments.
    void install(const QString &name) {
        QFile file(programs.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\necho " + name.toUtf8() + " \"$@\" > '" + said.toUtf8() + "'\n");
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
};

TEST_F(LinuxWorkspaceTest, noDesktopHasAPlaceForAccessibility) {
    install(QStringLiteral("pavucontrol"));
    LinuxWorkspace workspace;
    EXPECT_FALSE(workspace.openPrivacyPane(QStringLiteral("Privacy_Accessibility")));
    EXPECT_FALSE(workspace.openPrivacyPane(QStringLiteral("Privacy_microphone")));
    EXPECT_FALSE(QFile::exists(said));
}

TEST_F(LinuxWorkspaceTest, withoutSoundSettingsNothingOpens) {
    LinuxWorkspace workspace;
    EXPECT_FALSE(workspace.openPrivacyPane(QStringLiteral("Privacy_Microphone")));
}

TEST_F(LinuxWorkspaceTest, opensTheMixerThatIsInstalled) {
    install(QStringLiteral("pavucontrol"));
    install(QStringLiteral("gnome-control-center")); // refuses to run outside its desktop
    LinuxWorkspace workspace;
    EXPECT_TRUE(workspace.openPrivacyPane(QStringLiteral("Privacy_Microphone")));
    ASSERT_TRUE(waitForFile(said));
    EXPECT_EQ(contents(said), QStringLiteral("pavucontrol"));
}

TEST_F(LinuxWorkspaceTest, opensTheDesktopsOwnSoundSettings) {
    qputenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME");
    install(QStringLiteral("pavucontrol"));
    install(QStringLiteral("gnome-control-center"));
    LinuxWorkspace workspace;
    EXPECT_TRUE(workspace.openPrivacyPane(QStringLiteral("Privacy_Microphone")));
    ASSERT_TRUE(waitForFile(said));
    EXPECT_EQ(contents(said), QStringLiteral("gnome-control-center sound"));
}

TEST_F(LinuxWorkspaceTest, opensWebPagesAndFilesAndNothingElse) {
    qputenv("PATH", openerFolder().toLocal8Bit());
    qputenv("QUENDA_TEST_SAID", said.toLocal8Bit());
    LinuxWorkspace workspace;
    EXPECT_FALSE(workspace.open(QUrl()));
    EXPECT_FALSE(workspace.open(QUrl(QStringLiteral("javascript:alert(1)"))));
    EXPECT_FALSE(workspace.open(QUrl(QStringLiteral("ssh://somewhere/"))));
    EXPECT_FALSE(workspace.open(QUrl(QStringLiteral("no-scheme"))));
    EXPECT_FALSE(QFile::exists(said));
    EXPECT_TRUE(workspace.open(QUrl(QStringLiteral("https://example.org/a?b=c"))));
    ASSERT_TRUE(waitForFile(said));
    EXPECT_EQ(contents(said), QStringLiteral("xdg-open https://example.org/a?b=c"));
}

// Another program's window takes the focus from ours; ours come back when asked, even an alert that
// is shown only after the asking. The pill, which takes no focus, is left out.
TEST_F(LinuxWorkspaceTest, theProgramComesToTheFront) {
    qputenv("PATH", pathBefore);
    LinuxWorkspace workspace;
    workspace.activateProgram(); // nothing to bring
    QWidget pill(nullptr, Qt::Tool | Qt::WindowDoesNotAcceptFocus);
    pill.show();
    QWidget window;
    window.show();
    ASSERT_TRUE(waitUntil([&] { return window.isActiveWindow(); }));
    QProcess other;
    other.start(QStringLiteral("xterm"), {});
    ASSERT_TRUE(other.waitForStarted());
    ASSERT_TRUE(waitUntil([&] { return !window.isActiveWindow(); }));

    workspace.activateProgram();
    EXPECT_TRUE(waitUntil([&] { return window.isActiveWindow(); }));

    run(QStringLiteral("xdotool"),
        {QStringLiteral("search"), QStringLiteral("--class"), QStringLiteral("xterm"),
         QStringLiteral("windowactivate"), QStringLiteral("--sync")});
    ASSERT_TRUE(waitUntil([&] { return !window.isActiveWindow(); }));
    workspace.activateProgram();
    QMessageBox alert(QMessageBox::Warning, QStringLiteral("Quenda"), QStringLiteral("Alert"));
    alert.open();
    EXPECT_TRUE(waitUntil([&] { return alert.isActiveWindow(); }));
    EXPECT_FALSE(pill.isActiveWindow());
    other.kill();
    other.waitForFinished();
}

TEST_F(LinuxWorkspaceTest, startsAgainAfterAPauseInASessionOfItsOwn) {
    // The shell must not read the path as a command.
    const QString program = programs.filePath(QStringLiteral("a $(touch harm) \"quoted' program"));
    QFile file(program);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\n/bin/ps -o sid= -p $$ > '" + said.toUtf8() + "'\n");
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    file.close();
    qputenv("PATH", pathBefore); // the pause is a program
    LinuxWorkspace workspace(program);
    QElapsedTimer waited;
    waited.start();
    workspace.relaunchAfterExit();
    EXPECT_LT(waited.elapsed(), 500) << "the program must be able to end meanwhile";
    ASSERT_TRUE(waitForFile(said));
    EXPECT_GE(waited.elapsed(), 700);
    EXPECT_NE(contents(said).toInt(), 0);
    EXPECT_NE(contents(said).toInt(), int(getsid(0)));
    EXPECT_FALSE(QFile::exists(QStringLiteral("harm")));
}

// A program of the test's own stands for the desktop's handler.
class LinuxDesktopWorld {
public:
    LinuxDesktopWorld() {
        qputenv("PATH", openerFolder().toLocal8Bit() + ':' + m_pathBefore);
        qputenv("QUENDA_TEST_SAID", m_said.toLocal8Bit());
        qputenv("XDG_CURRENT_DESKTOP", "Nowhere");
    }
    ~LinuxDesktopWorld() { qputenv("PATH", m_pathBefore); }
    LinuxDesktopWorld(const LinuxDesktopWorld &) = delete;
    LinuxDesktopWorld &operator=(const LinuxDesktopWorld &) = delete;

    Workspace &workspace() { return m_workspace; }
    QUrl address() const { return QUrl(QStringLiteral("https://example.org/a?b=c")); }
    bool hasOpened() const {
        return contents(m_said) == QStringLiteral("xdg-open ") + address().toString();
    }

private:
    QString m_said = fakes::testHome() + QStringLiteral("/said");
    QByteArray m_pathBefore = qgetenv("PATH");
    LinuxWorkspace m_workspace{QStringLiteral("/bin/true")};
};

} // namespace

namespace contract {
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, WorkspaceContract, LinuxDesktopWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, FloatingPanelContract, LinuxDesktopWorld);
} // namespace contract

} // namespace quenda
