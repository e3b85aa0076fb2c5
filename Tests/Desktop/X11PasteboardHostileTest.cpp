// The X11 pasteboard among programs that hang, die, lie and send without end. Limits of time are
// generous, as these tests share their machine: the promise is 150 ms.

#include "Platform/Linux/X11SelectionReader.h"
#include "X11PasteboardFixture.h"

#include <signal.h>

#include <numeric>
#include <thread>

namespace quenda::tests {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<QByteArray>;
using Request = RawX11Owner::Request;

constexpr int kReadLimit = 400;

const QString kText = QStringLiteral("Hello there.");

using Taken = std::function<void(RawX11Owner &, xcb_window_t, xcb_atom_t)>;

// An owner of three formats that answers one of them, "image/png", as the test says, and lets the
// test know when what it wrote for that one was taken.
RawX11Owner::Behaviour textAnd(std::function<void(RawX11Owner &, const Request &)> image,
                               Taken taken) {
    const auto asking = std::make_shared<xcb_window_t>(XCB_NONE); // for the image, now
    return {[image = std::move(image), asking](RawX11Owner &self, const Request &request) {
                if (request.requestor == *asking)
                    *asking = XCB_NONE; // it is over with the image
                if (self.is(request.target, "TARGETS")) {
                    self.putTargets(request, {"image/png", "UTF8_STRING", "text/html"});
                } else if (self.is(request.target, "UTF8_STRING")) {
                    self.put(request, "UTF8_STRING", 8, "some text");
                } else if (self.is(request.target, "image/png")) {
                    *asking = request.requestor;
                    image(self, request);
                } else {
                    self.put(request, "text/html", 8, "<i>some</i>");
                }
            },
            [taken = std::move(taken), asking](RawX11Owner &self, xcb_window_t window,
                                               xcb_atom_t property) {
                if (taken && window == *asking)
                    taken(self, window, property);
            }};
}

qint64 peakMemoryKb() {
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').front().toLongLong();
    }
    return 0;
}

class X11HostilePasteboardTest : public X11PasteboardTest {
protected:
    /// Everything but the image is saved, soon, while the event loop runs.
    void expectOnlyTheRest() {
        const ReadResult result = read();
        EXPECT_LT(result.milliseconds, kReadLimit);
        EXPECT_TRUE(result.ticked);
        EXPECT_EQ(*result.items,
                  item({{"UTF8_STRING", "some text"}, {"text/html", "<i>some</i>"}}));
        expectStillWorking();
    }
    void expectStillWorking() {
        ASSERT_TRUE(pasteboard->setString(kText));
        EXPECT_EQ(requestor.convert("CLIPBOARD", "UTF8_STRING").bytes, kText.toUtf8());
    }
};

TEST_F(X11HostilePasteboardTest, AStoppedOwnerDelaysNothing) {
    const auto owner = xclipOwner(QStringLiteral("image/png"), noise(1000));
    ::kill(pid_t(owner->processId()), SIGSTOP);
    const ReadResult result = read();
    EXPECT_LT(result.milliseconds, kReadLimit);
    EXPECT_GE(result.milliseconds, 100); // it was given its time
    EXPECT_TRUE(result.ticked);
    EXPECT_TRUE(result.items->empty());
    expectStillWorking();

    // Once it goes on, it answers what nobody waits for, and must not fail on that.
    ::kill(pid_t(owner->processId()), SIGCONT);
    ASSERT_TRUE(waitUntil([&] { return owner->state() == QProcess::NotRunning; }));
    EXPECT_EQ(owner->exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(owner->exitCode(), 0) << owner->readAllStandardError().constData();
}

TEST_F(X11HostilePasteboardTest, AStoppedOwnerThatWakesUpIsReadAgain) {
    const auto owner = xclipOwner(QStringLiteral("image/png"), noise(1000));
    ::kill(pid_t(owner->processId()), SIGSTOP);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(read().items->empty());
    ::kill(pid_t(owner->processId()), SIGCONT);
    EXPECT_EQ(*read().items, item({{"image/png", noise(1000)}}));
    EXPECT_EQ(owner->state(), QProcess::Running);
}

TEST_F(X11HostilePasteboardTest, ReadsAreAnsweredInTheirOrder) {
    const auto owner = rawOwner({});
    std::vector<int> order;
    pasteboard->readItems([&](const PasteboardItems &) { order.push_back(1); });
    spin(60);
    pasteboard->readItems([&](const PasteboardItems &) { order.push_back(2); });
    ASSERT_TRUE(waitUntil([&] { return order.size() == 1; }));
    pasteboard->readItems([&](const PasteboardItems &) { order.push_back(3); });
    ASSERT_TRUE(waitUntil([&] { return order.size() == 3; }));
    EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

TEST_F(X11HostilePasteboardTest, AReadThatWaitsTurnsToTheNextOwner) {
    const auto owner = rawOwner({});
    std::optional<PasteboardItems> items;
    pasteboard->readItems([&](PasteboardItems read) { items = std::move(read); });
    ASSERT_TRUE(waitUntil([&] { return owner->requests > 0; }));
    const auto next = rawOwner({[](RawX11Owner &self, const Request &request) {
                                    if (self.is(request.target, "TARGETS"))
                                        self.putTargets(request, {"text/html"});
                                    else
                                        self.put(request, "text/html", 8, "next");
                                },
                                {}});
    ASSERT_TRUE(waitUntil([&] { return items.has_value(); }));
    EXPECT_EQ(*items, item({{"text/html", "next"}}));
}

TEST_F(X11HostilePasteboardTest, AReadIsDroppedWithThePasteboard) {
    const auto owner = rawOwner({});
    bool called = false;
    pasteboard->readItems([&](const PasteboardItems &) { called = true; });
    pasteboard.reset();
    spin(200);
    EXPECT_FALSE(called);
}

TEST_F(X11HostilePasteboardTest, OneRepresentationThatNeverComesCostsOnlyItself) {
    const auto owner = rawOwner(textAnd([](RawX11Owner &, const Request &) {}, {}));
    expectOnlyTheRest();
}

TEST_F(X11HostilePasteboardTest, HalfARepresentationIsNotSaved) {
    std::atomic<int> chunks = 0;
    const auto owner = rawOwner(
        textAnd([](RawX11Owner &self, const Request &request) { self.startChunks(request, 2000); },
                [&](RawX11Owner &self, xcb_window_t window, xcb_atom_t property) {
                    if (++chunks == 1)
                        self.putProperty(window, property, self.atom("image/png"), 8,
                                         QByteArray(1000, 'x'));
                }));
    expectOnlyTheRest();
    EXPECT_GE(chunks, 2);
}

TEST_F(X11HostilePasteboardTest, AnOwnerThatDiesHalfWayEndsTheRead) {
    const auto owner = rawOwner(textAnd(
        [](RawX11Owner &self, const Request &request) { self.startChunks(request, 2000); },
        [](RawX11Owner &self, xcb_window_t window, xcb_atom_t property) {
            self.putProperty(window, property, self.atom("image/png"), 8, QByteArray(1000, 'x'));
            self.quit();
        }));
    const ReadResult result = read();
    EXPECT_TRUE(result.items->empty()) << "the pasteboard is empty now";
    EXPECT_LT(result.milliseconds, kReadLimit);
    expectStillWorking();
}

TEST_F(X11HostilePasteboardTest, AKilledXclipHalfWayThroughALargeImage) {
    const auto owner = xclipOwner(QStringLiteral("image/png"), noise(60 * 1024 * 1024));
    std::optional<PasteboardItems> items;
    pasteboard->readItems([&](PasteboardItems read) { items = std::move(read); });
    spin(15);
    owner->kill();
    ASSERT_TRUE(waitUntil([&] { return items.has_value(); }, 1000));
    EXPECT_TRUE(items->empty());
    expectStillWorking();
}

TEST_F(X11HostilePasteboardTest, ChunksWithoutEndAreCutOff) {
    const QByteArray chunk(200 * 1024, 'x');
    std::atomic<qint64> sent = 0;
    const auto send = [&](RawX11Owner &self, xcb_window_t window, xcb_atom_t property) {
        self.putProperty(window, property, self.atom("image/png"), 8, chunk);
        sent += chunk.size();
    };
    const auto owner = rawOwner(textAnd(
        [](RawX11Owner &self, const Request &request) { self.startChunks(request, 0); }, send));
    const qint64 before = peakMemoryKb();
    pasteboard->prepareToRead(); // has longer than a read
    qint64 last = -1;
    ASSERT_TRUE(waitUntil([&] {
        const bool stands = sent > 0 && sent == std::exchange(last, qint64(sent));
        std::this_thread::sleep_for(100ms);
        return stands;
    }));
    // The bound, and what stands in buffers; on a slow machine the time may be over before.
    EXPECT_LT(sent, X11SelectionReader::kMaxBytes + 2 * chunk.size());
    const ReadResult result = read();
    for (const QByteArray &type : typesOf(*result.items))
        EXPECT_NE(type, "image/png");
    EXPECT_LT(peakMemoryKb() - before, 4 * X11SelectionReader::kMaxBytes / 1024);
    expectStillWorking();
}

TEST_F(X11HostilePasteboardTest, WhatIsAnnouncedAsTooLargeIsNotBegun) {
    std::atomic<int> taken = 0;
    const auto owner = rawOwner(
        textAnd([](RawX11Owner &self,
                   const Request &request) { self.startChunks(request, 500U * 1024 * 1024); },
                [&](RawX11Owner &, xcb_window_t, xcb_atom_t) { ++taken; }));
    const ReadResult result = read();
    EXPECT_LT(result.milliseconds, kReadLimit);
    EXPECT_EQ(*result.items, item({{"UTF8_STRING", "some text"}, {"text/html", "<i>some</i>"}}));
    EXPECT_EQ(taken, 0);
    expectStillWorking();
}

TEST_F(X11HostilePasteboardTest, AnAnnouncementWithoutASizeIsNoneAndTheChunksCount) {
    std::atomic<int> chunks = 0;
    const auto owner = rawOwner(textAnd(
        [](RawX11Owner &self, const Request &request) { self.put(request, "INCR", 8, "x"); },
        [&](RawX11Owner &self, xcb_window_t window, xcb_atom_t property) {
            if (++chunks <= 3)
                self.putProperty(window, property, self.atom("image/png"), 8,
                                 chunks <= 2 ? QByteArray("half") : QByteArray());
        }));
    EXPECT_EQ((*read().items)[0].types[0].second, "halfhalf");
}

TEST_F(X11HostilePasteboardTest, ChunksThatChangeTheirTypeAreNotSaved) {
    std::atomic<int> chunks = 0;
    const auto owner = rawOwner(
        textAnd([](RawX11Owner &self, const Request &request) { self.startChunks(request, 10); },
                [&](RawX11Owner &self, xcb_window_t window, xcb_atom_t property) {
                    if (++chunks == 1)
                        self.putProperty(window, property, self.atom("image/png"), 8, "12345678");
                    else if (chunks == 2)
                        self.putProperty(window, property, self.atom("image/png"), 32, "12345678");
                }));
    const ReadResult result = read();
    EXPECT_EQ(typesOf(*result.items), (Names{"UTF8_STRING", "text/html"}));
}

TEST_F(X11HostilePasteboardTest, AnAnswerThatWasNeverWrittenIsLeftOut) {
    const auto owner = rawOwner(
        textAnd([](RawX11Owner &self, const Request &request) { self.notify(request); }, {}));
    EXPECT_EQ(typesOf(*read().items), (Names{"UTF8_STRING", "text/html"}));
}

TEST_F(X11HostilePasteboardTest, OnlyTheFirstOfAHundredThousandTargetsAreRead) {
    std::atomic<int> asked = 0;
    const auto owner =
        rawOwner({[&](RawX11Owner &self, const Request &request) {
                      if (!self.is(request.target, "TARGETS")) {
                          ++asked;
                          return self.put(request, "STRING", 8, "x");
                      }
                      // Most of them are no atoms at all.
                      std::vector<xcb_atom_t> atoms(100000);
                      std::iota(atoms.begin(), atoms.end(), 1U);
                      self.put(request, "ATOM", 32,
                               QByteArray(reinterpret_cast<const char *>(atoms.data()),
                                          qsizetype(atoms.size() * sizeof(xcb_atom_t))));
                  },
                  {}});
    pasteboard->prepareToRead();
    spin(1500);
    const ReadResult result = read();
    EXPECT_LT(result.milliseconds, kReadLimit);
    ASSERT_EQ(result.items->size(), 1U);
    EXPECT_GT((*result.items)[0].types.size(), 20U);
    EXPECT_LE((*result.items)[0].types.size(), X11SelectionReader::kMaxRepresentations);
    EXPECT_LE(asked, int(X11SelectionReader::kMaxRepresentations));
    expectStillWorking();
}

TEST_F(X11HostilePasteboardTest, AListOfTargetsThatIsNoneYieldsTheText) {
    const auto owner = rawOwner({[](RawX11Owner &self, const Request &request) {
                                     if (self.is(request.target, "TARGETS"))
                                         self.notify(request, false);
                                     else if (self.is(request.target, "UTF8_STRING"))
                                         self.put(request, "UTF8_STRING", 8, "plain");
                                     else
                                         self.notify(request, false);
                                 },
                                 {}});
    EXPECT_EQ(*read().items, item({{"UTF8_STRING", "plain"}}));
    const auto liar = rawOwner({[](RawX11Owner &self, const Request &request) {
                                    self.put(request, "STRING", 8, "UTF8_STRING text/html");
                                },
                                {}});
    EXPECT_TRUE(read().items->empty());
    const auto emptyList = rawOwner(
        {[](RawX11Owner &self, const Request &request) { self.putTargets(request, {}); }, {}});
    EXPECT_TRUE(read().items->empty());
}

TEST_F(X11HostilePasteboardTest, ARequestorThatStopsIsForgottenAndDisturbsNobody) {
    const QByteArray image = noise(2 * 1024 * 1024);
    ASSERT_TRUE(pasteboard->writeItems(item({{"image/png", image}})));
    RawX11Client stalled;
    ASSERT_EQ(stalled.convert("CLIPBOARD", "image/png", 2).chunks, 2);
    { // one that dies half-way
        ASSERT_EQ(RawX11Client().convert("CLIPBOARD", "image/png", 2).chunks, 2);
    }
    EXPECT_TRUE(requestor.convert("CLIPBOARD", "image/png").bytes == image);
    EXPECT_TRUE(stalled.takeChunk(5s)) << "its patience is not over yet";
    spin(5500);
    EXPECT_FALSE(stalled.takeChunk(300ms));
    EXPECT_TRUE(stalled.convert("CLIPBOARD", "image/png").bytes == image);
}

TEST_F(X11HostilePasteboardTest, RequestsInTheNameOfTheOwnWindowDoNoHarm) {
    ASSERT_TRUE(pasteboard->writeItems(item({{"image/png", noise(2 * 1024 * 1024)}})));
    const xcb_window_t own = requestor.owner("CLIPBOARD");
    for (const char *property : {"QUENDA_TIME", "QUENDA_SELECTION"}) {
        xcb_convert_selection(requestor.xcb(), own, requestor.atom("CLIPBOARD"),
                              requestor.atom("image/png"), requestor.atom(property),
                              XCB_CURRENT_TIME);
    }
    requestor.sync();
    expectStillWorking();
    const auto owner = xclipOwner(QStringLiteral("text/html"), "<p>");
    EXPECT_EQ(*read().items, item({{"text/html", "<p>"}}));
}

TEST_F(X11HostilePasteboardTest, ALostConnectionIsOneChangeAndIsMadeAnew) {
    ASSERT_TRUE(pasteboard->setString(kText));
    const auto mark = pasteboard->changeCount();
    for (int i = 1; i <= 3; ++i) {
        xcb_kill_client(requestor.xcb(), requestor.owner("CLIPBOARD"));
        requestor.sync();
        ASSERT_TRUE(waitUntil([&] { return pasteboard->changeCount() != mark + 2 * i - 2; }));
        spin(50);
        EXPECT_EQ(pasteboard->changeCount(), mark + 2 * i - 1);
        EXPECT_TRUE(read().items->empty());
        ASSERT_TRUE(pasteboard->setString(kText));
        EXPECT_EQ(pasteboard->changeCount(), mark + 2 * i);
        EXPECT_EQ(xclipOutput(), kText.toUtf8());
    }
}

TEST_F(X11HostilePasteboardTest, ADestroyedWindowIsALossToo) {
    ASSERT_TRUE(pasteboard->setString(kText));
    const auto mark = pasteboard->changeCount();
    xcb_destroy_window(requestor.xcb(), requestor.owner("CLIPBOARD"));
    requestor.sync();
    ASSERT_TRUE(waitUntil([&] { return pasteboard->changeCount() != mark; }));
    spin(30);
    EXPECT_EQ(pasteboard->changeCount(), mark + 1);
    expectStillWorking();
}

TEST_F(X11HostilePasteboardTest, ALostConnectionEndsTheReadThatWaits) {
    std::atomic<xcb_window_t> window = XCB_NONE;
    const auto owner =
        rawOwner({[&](RawX11Owner &, const Request &request) { window = request.requestor; }, {}});
    bool answered = false;
    QElapsedTimer timer;
    timer.start();
    pasteboard->readItems([&](const PasteboardItems &items) {
        answered = true;
        EXPECT_TRUE(items.empty());
    });
    ASSERT_TRUE(waitUntil([&] { return window != XCB_NONE || answered; }));
    xcb_kill_client(requestor.xcb(), window);
    requestor.sync();
    ASSERT_TRUE(waitUntil([&] { return answered; }));
    EXPECT_LT(timer.elapsed(), kReadLimit);
    expectStillWorking();
}

TEST_F(X11HostilePasteboardTest, AGrabbedServerHoldsTheMainThreadUpShortly) {
    ASSERT_TRUE(pasteboard->setString(kText));
    xcb_grab_server(requestor.xcb());
    requestor.sync();
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(pasteboard->setString(QStringLiteral("not now")));
    const ReadResult result = read();
    EXPECT_LT(timer.elapsed(), 2000);
    EXPECT_TRUE(result.items->empty());
    xcb_ungrab_server(requestor.xcb());
    requestor.sync();
    EXPECT_TRUE(waitUntil([&] { return pasteboard->setString(kText); }));
    expectStillWorking();
}

} // namespace
} // namespace quenda::tests
