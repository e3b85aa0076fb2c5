// The yardstick of launch, memory and wake-ups: a program that shows a tray icon with a menu of one
// entry and does nothing else. Prints the time in nanoseconds of the monotonic clock when its event
// loop runs and everything due at the start was done.

#include <QAction>
#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QTimer>

#include <chrono>
#include <cstdio>

int main(int argc, char **argv) {
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QPixmap picture(22, 22);
    picture.fill(Qt::gray);
    QMenu menu;
    menu.addAction(QStringLiteral("Quit"), &application, &QCoreApplication::quit);
    QSystemTrayIcon tray{QIcon(picture)};
    tray.setContextMenu(&menu);
    tray.show();
    QTimer::singleShot(0, &application, [] {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        std::printf("%lld\n",
                    static_cast<long long>(
                        std::chrono::duration_cast<std::chrono::nanoseconds>(now).count()));
        std::fflush(stdout);
    });
    return QApplication::exec();
}
