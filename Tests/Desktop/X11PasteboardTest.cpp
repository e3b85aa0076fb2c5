// The X11 pasteboard among well-behaved programs.

#include "X11PasteboardFixture.h"

#include <QDeadlineTimer>

#include <thread>

namespace quenda::tests {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<QByteArray>;

const QString kUnicode = QStringLiteral("grün, naïve — 你好 👩‍🚀");
const QString kLatin = QStringLiteral("grün, naïve");

TEST_F(X11PasteboardTest, TextIsInEffectWhenSetStringReturns) {
    ASSERT_TRUE(pasteboard->setString(kUnicode));
    EXPECT_EQ(requestor.convert("CLIPBOARD", "UTF8_STRING").bytes, kUnicode.toUtf8());
    ASSERT_TRUE(pasteboard->setString(kLatin));
    EXPECT_EQ(requestor.convert("CLIPBOARD", "UTF8_STRING").bytes, kLatin.toUtf8());
}

TEST_F(X11PasteboardTest, TextIsServedUnderEveryName) {
    ASSERT_TRUE(pasteboard->setString(kLatin));
    EXPECT_EQ(requestor.atomNames(requestor.convert("CLIPBOARD", "TARGETS").bytes),
              (Names{"TARGETS", "TIMESTAMP", "MULTIPLE", "UTF8_STRING", "text/plain;charset=utf-8",
                     "text/plain", "STRING", "TEXT"}));
    for (const char *target : {"UTF8_STRING", "text/plain;charset=utf-8", "text/plain"}) {
        const auto answer = requestor.convert("CLIPBOARD", target);
        EXPECT_EQ(answer.bytes, kLatin.toUtf8());
        EXPECT_EQ(answer.type, target);
        EXPECT_EQ(answer.format, 8);
    }
    for (const char *target : {"STRING", "TEXT"}) {
        const auto answer = requestor.convert("CLIPBOARD", target);
        EXPECT_EQ(answer.bytes, kLatin.toLatin1());
        EXPECT_EQ(answer.type, "STRING");
    }
    const auto time = requestor.convert("CLIPBOARD", "TIMESTAMP");
    EXPECT_EQ(time.type, "INTEGER");
    EXPECT_EQ(time.format, 32);
    EXPECT_NE(time.bytes, QByteArray(4, '\0'));
    EXPECT_FALSE(requestor.convert("CLIPBOARD", "image/png").given);
}

TEST_F(X11PasteboardTest, StringIsNotOfferedForTextBeyondLatin1) {
    ASSERT_TRUE(pasteboard->setString(kUnicode));
    EXPECT_FALSE(requestor.convert("CLIPBOARD", "STRING").given);
    const auto text = requestor.convert("CLIPBOARD", "TEXT");
    EXPECT_EQ(text.type, "UTF8_STRING");
    EXPECT_EQ(text.bytes, kUnicode.toUtf8());
}

TEST_F(X11PasteboardTest, SeveralTargetsAreServedInOneRequest) {
    ASSERT_TRUE(pasteboard->setString(kLatin));
    const std::vector<xcb_atom_t> pairs{requestor.atom("UTF8_STRING"), requestor.atom("FIRST"),
                                        requestor.atom("image/png"),   requestor.atom("SECOND"),
                                        requestor.atom("STRING"),      requestor.atom("THIRD")};
    xcb_change_property(requestor.xcb(), XCB_PROP_MODE_REPLACE, requestor.window(),
                        requestor.atom("TEST_PROPERTY"), requestor.atom("ATOM_PAIR"), 32,
                        std::uint32_t(pairs.size()), pairs.data());
    const auto answer = requestor.convert("CLIPBOARD", "MULTIPLE");
    ASSERT_TRUE(answer.given);
    EXPECT_EQ(requestor.atomNames(answer.bytes),
              (Names{"UTF8_STRING", "FIRST", "image/png", "", "STRING", "THIRD"}));
    const auto value = [this](const char *name) { return requestor.propertyBytes(name); };
    EXPECT_EQ(value("FIRST"), kLatin.toUtf8());
    EXPECT_EQ(value("THIRD"), kLatin.toLatin1());
}

TEST_F(X11PasteboardTest, AnotherProgramReadsFiveMegabytesWhileTheMainThreadIsBusy) {
    QString text;
    while (text.size() < 2 * 1024 * 1024)
        text += QStringLiteral("%1 € ").arg(text.size());
    const QByteArray utf8 = text.toUtf8() + QByteArray(3 * 1024 * 1024, 'x');
    ASSERT_GT(utf8.size(), 5 * 1024 * 1024);
    ASSERT_TRUE(pasteboard->setString(QString::fromUtf8(utf8)));
    const QByteArray printed = xclipOutput(); // this thread waits for xclip
    EXPECT_TRUE(printed == utf8) << printed.size();
    const auto answer = requestor.convert("CLIPBOARD", "UTF8_STRING");
    EXPECT_GT(answer.chunks, 10);
    EXPECT_TRUE(answer.bytes == utf8);
}

TEST_F(X11PasteboardTest, SeveralProgramsReadLargeContentsAtOnce) {
    const PasteboardItems items = item({{"image/png", noise(6 * 1024 * 1024)}});
    ASSERT_TRUE(pasteboard->writeItems(items));
    std::vector<std::thread> threads;
    std::vector<QByteArray> got(6);
    for (QByteArray &each : got) {
        threads.emplace_back(
            [&each] { each = RawX11Client().convert("CLIPBOARD", "image/png").bytes; });
    }
    for (std::thread &each : threads)
        each.join();
    for (const QByteArray &each : got)
        EXPECT_TRUE(each == items[0].types[0].second) << each.size();
}

TEST_F(X11PasteboardTest, WhatBeganIsSentToTheEndAfterTheContentsHaveChanged) {
    const QByteArray image = noise(1024 * 1024);
    ASSERT_TRUE(pasteboard->writeItems(item({{"image/png", image}})));
    ASSERT_EQ(requestor.convert("CLIPBOARD", "image/png", 1).chunks, 1);
    ASSERT_TRUE(pasteboard->setString(kLatin));
    EXPECT_TRUE(requestor.takeChunk(5s));
}

TEST_F(X11PasteboardTest, AForeignImageComesBackByteForByte) {
    const QByteArray image = noise(3 * 1024 * 1024);
    const auto owner = xclipOwner(QStringLiteral("image/png"), image);
    const ReadResult saved = read();
    EXPECT_EQ(typesOf(*saved.items), Names{"image/png"});
    ASSERT_TRUE(*saved.items == item({{"image/png", image}}));

    ASSERT_TRUE(pasteboard->setString(kLatin));
    EXPECT_EQ(xclipOutput(), kLatin.toUtf8());
    ASSERT_TRUE(pasteboard->writeItems(*saved.items));
    EXPECT_TRUE(xclipOutput(QStringLiteral("clipboard"), QStringLiteral("image/png")) == image);
    const QByteArray targets = xclipOutput(QStringLiteral("clipboard"), QStringLiteral("TARGETS"));
    EXPECT_TRUE(targets.split('\n').contains("image/png")) << targets.constData();
    EXPECT_FALSE(targets.contains("UTF8_STRING"));
}

TEST_F(X11PasteboardTest, EveryRepresentationComesBackWithItsTypeAndFormat) {
    struct Known {
        QByteArray target, type;
        int format;
        QByteArray bytes;
    };
    const std::vector<Known> known{
        {"text/html", "text/html", 8, "<b>bold</b>"},
        {"UTF8_STRING", "UTF8_STRING", 8, kUnicode.toUtf8()},
        {"TEXT", "COMPOUND_TEXT", 8, "compound"},
        {"application/x-color", "application/x-color", 16, noise(8)},
        {"_NUMBERS", "INTEGER", 32, noise(4000)},
        {"image/png", "image/png", 8, noise(700 * 1024)},
        {"application/x-empty", "application/x-empty", 8, ""},
    };
    Names listed{"TARGETS", "TIMESTAMP",        "MULTIPLE",        "SAVE_TARGETS",
                 "DELETE",  "INSERT_SELECTION", "INSERT_PROPERTY", "application/x-qt-image"};
    for (const Known &each : known)
        listed.push_back(each.target);
    std::atomic<bool> pseudoAsked = false;
    const auto owner =
        rawOwner({[&](RawX11Owner &self, const RawX11Owner::Request &request) {
                      const QByteArray target = self.name(request.target);
                      if (target == "TARGETS")
                          return self.putTargets(request, listed);
                      for (const Known &each : known) {
                          if (target == each.target)
                              return self.put(request, each.type, each.format, each.bytes);
                      }
                      pseudoAsked = true;
                      self.notify(request, false);
                  },
                  {}});
    const ReadResult saved = read();
    EXPECT_FALSE(pseudoAsked);
    ASSERT_EQ(saved.items->size(), 1U);
    ASSERT_EQ((*saved.items)[0].types.size(), known.size());

    ASSERT_TRUE(pasteboard->setString(kLatin));
    ASSERT_TRUE(pasteboard->writeItems(*saved.items));
    Names offered{"TARGETS", "TIMESTAMP", "MULTIPLE"};
    for (const Known &each : known) {
        offered.push_back(each.target);
        const auto answer = requestor.convert("CLIPBOARD", each.target);
        EXPECT_TRUE(answer.given);
        EXPECT_EQ(answer.type, each.type);
        EXPECT_EQ(answer.format, each.format);
        EXPECT_TRUE(answer.bytes == each.bytes) << each.target.constData();
    }
    EXPECT_EQ(requestor.atomNames(requestor.convert("CLIPBOARD", "TARGETS").bytes), offered);
    EXPECT_TRUE(read().items == saved.items);
}

TEST_F(X11PasteboardTest, OwnContentsAreReadAtOnceAndWithoutTheServer) {
    ASSERT_TRUE(pasteboard->setString(kLatin));
    xcb_grab_server(requestor.xcb());
    requestor.sync();
    const ReadResult result = read();
    xcb_ungrab_server(requestor.xcb());
    requestor.sync();
    EXPECT_TRUE(result.atOnce);
    EXPECT_EQ((*result.items)[0].types[0].second, kLatin.toUtf8());
}

TEST_F(X11PasteboardTest, ClearLeavesAnEmptyPasteboard) {
    ASSERT_TRUE(pasteboard->setString(kLatin));
    const auto count = pasteboard->changeCount();
    pasteboard->clear();
    EXPECT_EQ(pasteboard->changeCount(), count + 1);
    EXPECT_EQ(xclipOutput(), QByteArray());
    const ReadResult result = read();
    EXPECT_TRUE(result.atOnce);
    EXPECT_TRUE(result.items->empty());
}

TEST_F(X11PasteboardTest, ManyItemsAreMergedInTheirOrder) {
    PasteboardItems items = item({{"text/html", "one"}, {"text/x-first", "two"}});
    items.push_back(item({{"text/html", "three"}, {"text/x-last", "four"}}).front());
    ASSERT_TRUE(pasteboard->writeItems(items));
    EXPECT_EQ(*read().items,
              item({{"text/html", "one"}, {"text/x-first", "two"}, {"text/x-last", "four"}}));
}

TEST_F(X11PasteboardTest, EachOwnWriteCountsOnceAndAtOnce) {
    const auto start = pasteboard->changeCount();
    ASSERT_TRUE(pasteboard->setString(kLatin));
    EXPECT_EQ(pasteboard->changeCount(), start + 1);
    spin(50); // its echo has long arrived
    EXPECT_EQ(pasteboard->changeCount(), start + 1);
    ASSERT_TRUE(pasteboard->setString(kLatin));
    ASSERT_TRUE(pasteboard->writeItems(item({{"text/html", "x"}})));
    EXPECT_EQ(pasteboard->changeCount(), start + 3);
}

TEST_F(X11PasteboardTest, OtherProgramsChangesCount) {
    ASSERT_TRUE(pasteboard->setString(kLatin));
    const auto mark = pasteboard->changeCount();
    auto owner = xclipOwner(QStringLiteral("UTF8_STRING"), "first");
    ASSERT_TRUE(waitUntil([&] { return pasteboard->changeCount() == mark + 1; }));
    auto next = xclipOwner(QStringLiteral("UTF8_STRING"), "second");
    ASSERT_TRUE(waitUntil([&] { return pasteboard->changeCount() == mark + 2; }));
    spin(30);
    EXPECT_EQ(pasteboard->changeCount(), mark + 2);
    next->kill();
    ASSERT_TRUE(next->waitForFinished());
    ASSERT_TRUE(waitUntil([&] { return pasteboard->changeCount() == mark + 3; }));
    EXPECT_TRUE(read().items->empty());
}

TEST_F(X11PasteboardTest, TheMarkOfAWriteIsItsOwnEvenIfAnotherProgramFollows) {
    ASSERT_TRUE(pasteboard->setString(kLatin));
    requestor.take("CLIPBOARD");
    std::this_thread::sleep_for(50ms); // the clipboard thread has seen it; nobody has asked yet
    const auto mark = pasteboard->changeCount();
    EXPECT_EQ(pasteboard->changeCount(), mark + 1);
}

TEST_F(X11PasteboardTest, WhatWasPreparedIsReadAtOnce) {
    const QByteArray image = noise(2 * 1024 * 1024);
    const auto owner = xclipOwner(QStringLiteral("image/png"), image);
    ASSERT_TRUE(waitUntil([&] { return !read().items->empty(); }));
    pasteboard->prepareToRead();
    spin(500);
    const ReadResult result = read();
    EXPECT_TRUE(result.atOnce);
    EXPECT_TRUE(*result.items == item({{"image/png", image}}));
}

TEST_F(X11PasteboardTest, WhatWasPreparedIsFetchedAnewAfterAChange) {
    const auto owner = xclipOwner(QStringLiteral("UTF8_STRING"), "first");
    pasteboard->prepareToRead();
    spin(300);
    const auto next = xclipOwner(QStringLiteral("UTF8_STRING"), "second");
    spin(50);
    EXPECT_EQ((*read().items)[0].types[0].second, "second");
}

TEST_F(X11PasteboardTest, AReadThatWaitsGetsWhatIsWrittenMeanwhile) {
    const auto owner = rawOwner({});
    std::optional<PasteboardItems> items;
    pasteboard->readItems([&](PasteboardItems read) { items = std::move(read); });
    ASSERT_TRUE(pasteboard->setString(kLatin));
    EXPECT_FALSE(items);
    ASSERT_TRUE(waitUntil([&] { return items.has_value(); }));
    ASSERT_EQ(items->size(), 1U);
    EXPECT_EQ((*items)[0].types[0].second, kLatin.toUtf8());
}

TEST_F(X11PasteboardTest, PrimaryHoldsTheClipboardsTextUntilThatChanges) {
    EXPECT_FALSE(pasteboard->mirrorClipboardText()) << "there is no text";
    ASSERT_TRUE(pasteboard->setString(kUnicode));
    const auto count = pasteboard->changeCount();
    EXPECT_EQ(xclipOutput(QStringLiteral("primary")), QByteArray());
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(pasteboard->mirrorClipboardText());
        EXPECT_EQ(requestor.convert("PRIMARY", "UTF8_STRING").bytes, kUnicode.toUtf8());
        EXPECT_EQ(xclipOutput(QStringLiteral("primary")), kUnicode.toUtf8());
    }
    EXPECT_EQ(pasteboard->changeCount(), count);

    ASSERT_TRUE(pasteboard->setString(kLatin));
    EXPECT_EQ(requestor.owner("PRIMARY"), xcb_window_t(XCB_NONE));
    ASSERT_TRUE(pasteboard->mirrorClipboardText());
    EXPECT_EQ(xclipOutput(QStringLiteral("primary")), kLatin.toUtf8());
    pasteboard->clear();
    EXPECT_EQ(requestor.owner("PRIMARY"), xcb_window_t(XCB_NONE));

    ASSERT_TRUE(pasteboard->setString(kLatin));
    ASSERT_TRUE(pasteboard->mirrorClipboardText());
    requestor.take("CLIPBOARD");
    EXPECT_TRUE(waitUntil([&] { return requestor.owner("PRIMARY") == XCB_NONE; }));
    EXPECT_FALSE(pasteboard->mirrorClipboardText());
}

TEST_F(X11PasteboardTest, AnotherProgramsPrimaryIsLeftAlone) {
    ASSERT_TRUE(pasteboard->setString(kLatin));
    ASSERT_TRUE(pasteboard->mirrorClipboardText());
    requestor.take("PRIMARY");
    pasteboard->clear();
    spin(30);
    EXPECT_EQ(requestor.owner("PRIMARY"), requestor.window());
    ASSERT_TRUE(pasteboard->setString(kLatin));
    ASSERT_TRUE(pasteboard->mirrorClipboardText());
    EXPECT_EQ(xclipOutput(QStringLiteral("primary")), kLatin.toUtf8());
}

TEST_F(X11PasteboardTest, AClipboardManagerGetsTheContentsAtTheEnd) {
    ASSERT_TRUE(pasteboard->setString(kUnicode));
    QByteArray kept;
    {
        RawX11Owner manager({[&kept](RawX11Owner &self, const RawX11Owner::Request &request) {
                                 kept =
                                     self.is(request.target, "SAVE_TARGETS")
                                         ? RawX11Client().convert("CLIPBOARD", "UTF8_STRING").bytes
                                         : QByteArray("wrong target");
                                 self.put(request, "NULL", 8, {});
                             },
                             {}},
                            "CLIPBOARD_MANAGER");
        pasteboard.reset();
        EXPECT_EQ(manager.requests, 1);
    }
    EXPECT_EQ(kept, kUnicode.toUtf8());
}

TEST_F(X11PasteboardTest, AClipboardManagerThatHangsDelaysTheEndLittle) {
    ASSERT_TRUE(pasteboard->setString(kUnicode));
    RawX11Owner manager({}, "CLIPBOARD_MANAGER");
    QElapsedTimer timer;
    timer.start();
    pasteboard.reset();
    EXPECT_GE(timer.elapsed(), 150);
    EXPECT_LT(timer.elapsed(), 480);
}

TEST_F(X11PasteboardTest, WithoutAServerEverythingIsRefused) {
    X11Pasteboard nowhere(":77");
    const auto count = nowhere.changeCount();
    EXPECT_FALSE(nowhere.setString(kLatin));
    EXPECT_FALSE(nowhere.writeItems(item({{"text/html", "x"}})));
    EXPECT_FALSE(nowhere.mirrorClipboardText());
    nowhere.clear();
    nowhere.prepareToRead();
    std::optional<PasteboardItems> items;
    nowhere.readItems([&](PasteboardItems read) { items = std::move(read); });
    ASSERT_TRUE(waitUntil([&] { return items.has_value(); }));
    EXPECT_TRUE(items->empty());
    EXPECT_EQ(nowhere.changeCount(), count);
}

} // namespace
} // namespace quenda::tests
