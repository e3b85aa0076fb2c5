// Starts a child through the runner, prints its process id, and waits to be killed.
#include "Platform/Linux/LinuxProcessRunner.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    quenda::LinuxProcessRunner runner;
    const auto child =
        runner.launch({QStringLiteral("/bin/sleep"), {QStringLiteral("600")}, {}}, {});
    if (!child)
        return 1;
    std::printf("%lld\n", static_cast<long long>(child.value()->processId()));
    std::fflush(stdout);
    return QCoreApplication::exec();
}
