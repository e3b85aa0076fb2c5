// The pill on a real X server: who has the focus, what is on top, where clicks go, and what the
// corners look like. Run it by with-x-server, bare, with a window manager and with a compositing
// manager; each test asks the server what it finds.

#include "Desktop/XServer.h"
#include "Platform/Linux/LinuxWorkspace.h"
#include "Quenda/PillPanel.h"
#include "Quenda/RecordingIndicator.h"
#include "Quenda/TimerScheduler.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QScreen>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>

namespace quenda {
namespace {

using Mode = RecordingIndicator::Mode;

const QColor kGround(136, 153, 170);
const QColor kCard(11, 16, 32);
constexpr QPoint kPlainCard(160, 6); ///< in the pill, where nothing is drawn but the card

bool waitUntil(const std::function<bool()> &holds, int milliseconds = 5000) {
    QElapsedTimer waited;
    waited.start();
    while (!holds()) {
        if (waited.elapsed() > milliseconds)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 20);
    }
    return true;
}

void settle(int milliseconds) {
    waitUntil([] { return false; }, milliseconds);
}

QString outputOf(const QString &program, const QStringList &arguments) {
    QProcess process;
    process.start(program, arguments);
    EXPECT_TRUE(process.waitForStarted()) << qPrintable(program);
    EXPECT_TRUE(waitUntil([&] { return process.state() == QProcess::NotRunning; }));
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

void xdotool(const QString &arguments) {
    outputOf(QStringLiteral("xdotool"), arguments.split(u' '));
}

struct PillWindowTest : testing::Test {
    TimerScheduler scheduler;
    LinuxWorkspace workspace;
    RecordingIndicator indicator{scheduler, workspace};
    desktop::XServer server;
    QTemporaryDir folder;
    QProcess terminal;
    QString terminalWindow;

    PillWindowTest() { server.layGround(kGround); }
    ~PillWindowTest() override {
        if (terminal.state() != QProcess::NotRunning) {
            terminal.kill();
            terminal.waitForFinished();
        }
    }

    // A terminal that writes the first line typed into it to a file.
    void openTerminal(const QStringList &options = {}) {
        terminal.start(QStringLiteral("xterm"),
                       options + QStringList{QStringLiteral("-T"), QStringLiteral("editor"),
                                             QStringLiteral("-e"), QStringLiteral("sh"),
                                             QStringLiteral("-c"),
                                             QStringLiteral("read line; echo \"$line\" > \"$0\""),
                                             typedFile()});
        ASSERT_TRUE(terminal.waitForStarted());
        terminalWindow = outputOf(QStringLiteral("xdotool"),
                                  {QStringLiteral("search"), QStringLiteral("--sync"),
                                   QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
                                   QStringLiteral("^editor$")});
        ASSERT_FALSE(terminalWindow.isEmpty());
        xdotool((server.hasWindowManager() ? QStringLiteral("windowactivate --sync ")
                                           : QStringLiteral("windowfocus --sync ")) +
                terminalWindow);
        settle(200);
    }

    QString typedFile() const { return folder.filePath(QStringLiteral("typed")); }

    QString typed() const {
        QFile file(typedFile());
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed()
                                              : QString();
    }

    void record() {
        indicator.show(Mode::recording, [] { return 0.6F; });
        ASSERT_TRUE(waitUntil([this] { return seen(kPlainCard) == kCard; }));
    }

    PillPanel &panel() { return *indicator.panel(); }
    qreal ratio() { return panel().devicePixelRatioF(); }
    // Where the server has a place in the pill; the centre of a pixel stays in that pixel.
    QPoint onScreen(const QPointF &inPill) {
        const QPointF at = (QPointF(panel().pos()) + inPill) * ratio();
        return {int(at.x()), int(at.y())};
    }
    QColor seen(const QPoint &inPill) {
        return server.colourAt(onScreen(QPointF(inPill) + QPointF(0.5, 0.5)));
    }
    void click(const QPoint &inPill) {
        const QPoint at = onScreen(QPointF(inPill) + QPointF(0.5, 0.5));
        xdotool(QStringLiteral("mousemove %1 %2 click 1").arg(at.x()).arg(at.y()));
        settle(150);
    }

    void expectRoundCorners() {
        for (const QPoint &corner :
             {QPoint(0, 0), QPoint(319, 0), QPoint(0, 55), QPoint(319, 55), QPoint(2, 2)})
            EXPECT_EQ(seen(corner), kGround) << corner.x() << "," << corner.y();
        for (const QPoint &inside : {QPoint(7, 7), QPoint(312, 7), QPoint(7, 48), QPoint(312, 48)})
            EXPECT_EQ(seen(inside), kCard) << inside.x() << "," << inside.y();
    }

    void expectPlainCard(const QRectF &part) {
        const QPoint first = onScreen(part.topLeft()) + QPoint(1, 1);
        const QPoint last = onScreen(part.bottomRight()) - QPoint(1, 1);
        for (int y = first.y(); y <= last.y(); ++y)
            for (int x = first.x(); x <= last.x(); ++x)
                ASSERT_EQ(server.colourAt({x, y}), kCard) << x << "," << y;
    }

    void keepPicture(const char *name) {
        const QString shots = qEnvironmentVariable("QUENDA_SHOTS");
        if (!shots.isEmpty())
            outputOf(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"),
                                                QDir(shots).filePath(QLatin1String(name))});
    }
};

TEST_F(PillWindowTest, theFocusNeverLeavesTheEditor) {
    openTerminal();
    const xcb_window_t editor = server.focus();
    ASSERT_NE(editor, xcb_window_t(XCB_INPUT_FOCUS_POINTER_ROOT));
    int cancels = 0;
    indicator.onCancel = [&cancels] { ++cancels; };
    record();
    EXPECT_EQ(server.focus(), editor);
    click({160, 28});
    EXPECT_EQ(server.focus(), editor);
    EXPECT_EQ(cancels, 0);
    click({296, 28});
    EXPECT_EQ(server.focus(), editor);
    EXPECT_EQ(cancels, 1);
    indicator.show(Mode::transcribing);
    settle(100);
    EXPECT_EQ(server.focus(), editor);
    keepPicture("pill-over-editor.png");
    xdotool(QStringLiteral("type hello"));
    xdotool(QStringLiteral("key Return"));
    EXPECT_TRUE(waitUntil([this] { return typed() == QLatin1String("hello"); }))
        << qPrintable(typed());
    EXPECT_EQ(QApplication::activeWindow(), nullptr);
}

TEST_F(PillWindowTest, standsAboveAFullScreenWindow) {
    openTerminal(server.hasWindowManager()
                     ? QStringList{QStringLiteral("-fullscreen")}
                     : QStringList{QStringLiteral("-geometry"), QStringLiteral("220x70+0+0")});
    ASSERT_NE(server.colourAt({640, 20}), kGround);
    record();
    EXPECT_NE(seen({0, 0}), kGround);
    settle(200);
    EXPECT_EQ(seen(kPlainCard), kCard);
    keepPicture("pill-over-full-screen.png");
}

TEST_F(PillWindowTest, staysAboveAWindowThatBecomesFullScreenLater) {
    if (!server.hasWindowManager()) {
        // Nobody tells of new windows then; coming to the front again is what a new show does.
        record();
        openTerminal({QStringLiteral("-geometry"), QStringLiteral("220x70+0+0")});
        xdotool(QStringLiteral("windowraise ") + terminalWindow);
        indicator.show(Mode::transcribing);
    } else {
        record();
        openTerminal({QStringLiteral("-fullscreen")});
    }
    ASSERT_NE(server.colourAt({640, 20}), kGround);
    EXPECT_TRUE(waitUntil([this] { return seen(kPlainCard) == kCard; }));
}

TEST_F(PillWindowTest, isOnEveryWorkspace) {
    record();
    if (server.hasWindowManager()) {
        xdotool(QStringLiteral("set_desktop 1"));
        settle(300);
    }
    EXPECT_EQ(seen(kPlainCard), kCard);
    if (server.hasWindowManager())
        xdotool(QStringLiteral("set_desktop 0"));
}

TEST_F(PillWindowTest, cornersAreRoundAndLetClicksThrough) {
    record();
    settle(100);
    expectRoundCorners();
    keepPicture("pill-corners.png");
    EXPECT_EQ(server.clicksOnGround(), 0);
    click({1, 1});
    EXPECT_EQ(server.clicksOnGround(), 1);
    click({318, 54});
    EXPECT_EQ(server.clicksOnGround(), 1);
    click({160, 50});
    EXPECT_EQ(server.clicksOnGround(), 0);
    indicator.hide();
    EXPECT_TRUE(waitUntil([this] { return seen(kPlainCard) == kGround; }));
    click({160, 50});
    EXPECT_EQ(server.clicksOnGround(), 1);
}

TEST_F(PillWindowTest, cornersStayRoundWhenACompositorComesAndGoes) {
    if (workspace.isCompositing()) {
        record();
        EXPECT_TRUE(panel().testAttribute(Qt::WA_TranslucentBackground));
        settle(100);
        expectRoundCorners();
        return;
    }
    record();
    EXPECT_FALSE(panel().testAttribute(Qt::WA_TranslucentBackground));
    QProcess compositor;
    compositor.start(QStringLiteral("xcompmgr"), {});
    ASSERT_TRUE(compositor.waitForStarted());
    ASSERT_TRUE(waitUntil([this] { return panel().testAttribute(Qt::WA_TranslucentBackground); }));
    ASSERT_TRUE(waitUntil([this] { return seen(kPlainCard) == kCard; }));
    settle(200);
    expectRoundCorners();
    keepPicture("pill-compositor-came.png");
    compositor.terminate();
    ASSERT_TRUE(waitUntil([&] { return compositor.state() == QProcess::NotRunning; }));
    ASSERT_TRUE(waitUntil([this] { return !panel().testAttribute(Qt::WA_TranslucentBackground); }));
    ASSERT_TRUE(waitUntil([this] { return seen(kPlainCard) == kCard; }));
    settle(200);
    expectRoundCorners();
    EXPECT_TRUE(indicator.isVisible());
}

TEST_F(PillWindowTest, followsTheFreePartOfTheScreen) {
    record();
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    const QPoint before = panel().pos();
    EXPECT_EQ(before, PillPanel::placeIn(QGuiApplication::primaryScreen()->availableGeometry()));
    if (!server.hasWindowManager())
        return; // nobody keeps parts of the screen free
    server.reserveBottom(int(90 * ratio()));
    EXPECT_TRUE(waitUntil([&] {
        return panel().pos() == PillPanel::placeIn(screen.adjusted(0, 0, 0, -90));
    })) << panel().pos().y();
    EXPECT_TRUE(waitUntil([this] { return seen(kPlainCard) == kCard; }));
}

// Where parts were repainted alone, many times, the card around them is untouched.
TEST_F(PillWindowTest, repaintingPartsLeavesNoSeams) {
    record();
    settle(2200); // the clock too was repainted
    expectPlainCard({16, 4, 288, 7});
    expectPlainCard({16, 45, 288, 7});
    expectPlainCard({16, 11, 3.4, 34});
    expectPlainCard({30.4, 11, 13, 34});
    expectPlainCard({106.4, 11, 10.5, 34});
    expectPlainCard({278.2, 11, 7, 34});
    keepPicture("pill-seams.png");
}

TEST_F(PillWindowTest, theMeterMovesOnTheScreenAndRestsWhenHidden) {
    record();
    QSet<QRgb> colours;
    EXPECT_TRUE(waitUntil([&] {
        colours.insert(seen({44 + 2, 28 - 9}).rgb());
        return colours.size() > 2;
    }));
    indicator.hide();
    EXPECT_FALSE(panel().meter().isAnimating());
}

} // namespace
} // namespace quenda
