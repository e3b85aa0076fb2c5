// Connecting to a real X server. Run it by with-x-server; what it is about, the thread sanitizer
// sees.

#include "Platform/Linux/X11Connection.h"

#include "Platform/Linux/X11SelectionLink.h"

#include <QByteArray>

#include <gtest/gtest.h>

#include <latch>
#include <optional>
#include <thread>

namespace quenda {

namespace {

constexpr int kTimes = 20;

/// Without a name for it the display's authority is looked for in the home folder.
class NoAuthorityNamed {
public:
    NoAuthorityNamed() { qunsetenv(kVariable); }
    NoAuthorityNamed(const NoAuthorityNamed &) = delete;
    NoAuthorityNamed &operator=(const NoAuthorityNamed &) = delete;
    ~NoAuthorityNamed() {
        if (m_before)
            qputenv(kVariable, *m_before);
    }

private:
    static constexpr auto kVariable = "XAUTHORITY";
    const std::optional<QByteArray> m_before =
        qEnvironmentVariableIsSet(kVariable) ? std::optional(qgetenv(kVariable)) : std::nullopt;
};

TEST(X11ConnectionTest, TwoThreadsConnectAtTheSameTime) {
    const NoAuthorityNamed inTheHomeFolder;
    std::latch both(2);
    int linked = 0;
    std::thread clipboard([&] {
        both.arrive_and_wait();
        for (int i = 0; i < kTimes; ++i)
            linked += X11SelectionLink::open({}) != nullptr;
    });
    both.arrive_and_wait();
    int connected = 0;
    for (int i = 0; i < kTimes; ++i)
        connected += X11Connection::open() != nullptr;
    clipboard.join();
    EXPECT_EQ(connected, kTimes);
    EXPECT_EQ(linked, kTimes);
}

} // namespace

} // namespace quenda
