#include "Quenda/TextInjector.h"

#include "Fakes/FakePasteboard.h"
#include "Fakes/TestMain.h"
#include "Fakes/VirtualScheduler.h"
#include "Quenda/Log.h"

#include <QFile>

#include <gtest/gtest.h>

#include <memory>

namespace quenda {
namespace {

using namespace std::chrono_literals;
using fakes::FakePasteboard;
using Outcome = TextInjector::Outcome;

const QString kHello = QStringLiteral("Hello there.");
const QString kBefore = QStringLiteral("what was there before");

class TextInjectorTest : public testing::Test {
protected:
    TextInjectorTest() { makeInjector(); }

    void makeInjector() {
        injector = std::make_unique<TextInjector>(
            TextInjector::Environment{pasteboard, poster, accessibility, scheduler});
    }
    static PasteboardItems image() {
        return {PasteboardItem{{{QStringLiteral("image/png"), QByteArray("\x89PNG\0\1\2", 7)},
                                {QStringLiteral("text/html"), QByteArray("<img>")},
                                {QStringLiteral("application/x-empty"), QByteArray("")}}}};
    }
    static QString logged() {
        Log::flush();
        QFile file(Log::fileURL());
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }
    static QStringList steps(std::initializer_list<const char *> names) {
        QStringList list;
        for (const char *name : names)
            list.append(QString::fromUtf8(name));
        return list;
    }

    QStringList journal;
    FakePasteboard pasteboard{&journal};
    fakes::FakeKeyPoster poster{&journal};
    fakes::FakeAccessibility accessibility{&journal};
    fakes::VirtualScheduler scheduler;
    std::unique_ptr<TextInjector> injector;
};

TEST_F(TextInjectorTest, AnEmptyTextTouchesNothing) {
    pasteboard.copiedElsewhere(image());
    const auto count = pasteboard.changeCount();
    EXPECT_EQ(injector->insert(QString()), Outcome::copiedToClipboard);
    EXPECT_EQ(injector->insert(QLatin1String("")), Outcome::copiedToClipboard);
    scheduler.advance(2s);
    EXPECT_EQ(journal, QStringList());
    EXPECT_EQ(pasteboard.changeCount(), count);
    EXPECT_EQ(pasteboard.items, image());
    EXPECT_EQ(logged(), QString());
}

TEST_F(TextInjectorTest, AsksForTheFocusSavesWritesAndPastesInThisOrder) {
    pasteboard.copiedElsewhere(image());
    EXPECT_EQ(injector->insert(kHello), Outcome::pasted);
    EXPECT_EQ(journal, steps({"focus?", "read", "setString Hello there.", "paste"}));
    EXPECT_EQ(poster.posted, 1);
    EXPECT_EQ(logged(), QString());
}

TEST_F(TextInjectorTest, GivesEverythingBackAfterExactlyOneSecond) {
    pasteboard.copiedElsewhere(image());
    injector->insert(kHello);
    scheduler.advance(999ms);
    EXPECT_EQ(pasteboard.string(), kHello);
    scheduler.advance(1ms);
    EXPECT_EQ(pasteboard.items, image());
    EXPECT_EQ(journal.mid(4), steps({"writeItems"}));
    scheduler.advance(10s);
    EXPECT_EQ(journal.size(), 5);
    EXPECT_EQ(scheduler.pendingOneShots(), 0);
}

TEST_F(TextInjectorTest, SeveralItemsComeBackInTheirOrder) {
    PasteboardItems items = image();
    items.push_back(FakePasteboard::plainText(kBefore).front());
    pasteboard.copiedElsewhere(items);
    injector->insert(kHello);
    scheduler.advance(1s);
    EXPECT_EQ(pasteboard.items, items);
}

TEST_F(TextInjectorTest, WhatTheUserCopiesMeanwhileIsKept) {
    pasteboard.copiedElsewhere(image());
    injector->insert(kHello);
    scheduler.advance(999ms);
    pasteboard.copiedElsewhere(FakePasteboard::plainText(QStringLiteral("copied by the user")));
    scheduler.advance(10s);
    EXPECT_EQ(pasteboard.string(), QStringLiteral("copied by the user"));
    EXPECT_EQ(journal.size(), 4);
}

TEST_F(TextInjectorTest, EvenTheSameTextCopiedMeanwhileIsKept) {
    pasteboard.copiedElsewhere(image());
    injector->insert(kHello);
    pasteboard.copiedElsewhere(FakePasteboard::plainText(kHello));
    scheduler.advance(2s);
    EXPECT_EQ(pasteboard.string(), kHello);
}

TEST_F(TextInjectorTest, WithoutFocusTheTextStaysOnThePasteboard) {
    accessibility.focused = false;
    pasteboard.copiedElsewhere(image());
    EXPECT_EQ(injector->insert(kHello), Outcome::copiedToClipboard);
    EXPECT_EQ(journal, steps({"focus?", "read", "setString Hello there.", "paste"}));
    EXPECT_EQ(poster.posted, 1);
    EXPECT_EQ(scheduler.pendingOneShots(), 0);
    scheduler.advance(10s);
    EXPECT_EQ(pasteboard.string(), kHello);
    const QString log = logged();
    EXPECT_EQ(log.count(QLatin1Char('\n')), 1) << qPrintable(log);
    EXPECT_TRUE(log.endsWith(
        QStringLiteral("insert: no focused text element — left transcript on clipboard\n")))
        << qPrintable(log);
    EXPECT_FALSE(log.contains(kHello));
}

TEST_F(TextInjectorTest, AnEmptyPasteboardIsEmptyAgainAfterwards) {
    EXPECT_EQ(injector->insert(kHello), Outcome::pasted);
    scheduler.advance(999ms);
    EXPECT_EQ(pasteboard.string(), kHello);
    scheduler.advance(1ms);
    EXPECT_TRUE(pasteboard.items.empty());
    EXPECT_EQ(journal.last(), QStringLiteral("clear"));
    EXPECT_EQ(journal.size(), 5);
}

TEST_F(TextInjectorTest, OfTwoQuickInsertionsTheSecondRestoresTheFirstTranscript) {
    pasteboard.copiedElsewhere(image());
    injector->insert(QStringLiteral("first"));
    scheduler.advance(400ms);
    injector->insert(QStringLiteral("second"));
    scheduler.advance(600ms); // the first restore is due and finds other contents
    EXPECT_EQ(pasteboard.string(), QStringLiteral("second"));
    scheduler.advance(399ms);
    EXPECT_EQ(pasteboard.string(), QStringLiteral("second"));
    scheduler.advance(1ms);
    EXPECT_EQ(pasteboard.string(), QStringLiteral("first"));
    scheduler.advance(10s);
    EXPECT_EQ(pasteboard.string(), QStringLiteral("first"));
    EXPECT_EQ(journal, steps({"focus?", "read", "setString first", "paste", "focus?", "read",
                              "setString second", "paste", "writeItems"}));
}

TEST_F(TextInjectorTest, TwoInsertionsFurtherApartBothRestore) {
    pasteboard.copiedElsewhere(image());
    injector->insert(QStringLiteral("first"));
    scheduler.advance(1s);
    EXPECT_EQ(pasteboard.items, image());
    injector->insert(QStringLiteral("second"));
    scheduler.advance(1s);
    EXPECT_EQ(pasteboard.items, image());
}

TEST_F(TextInjectorTest, ASlowReadDelaysThePasteAndNotTheAnswer) {
    pasteboard.copiedElsewhere(image());
    pasteboard.slow = true;
    EXPECT_EQ(injector->insert(kHello), Outcome::pasted);
    EXPECT_EQ(journal, steps({"focus?", "read"}));
    EXPECT_EQ(pasteboard.items, image());
    scheduler.advance(150ms);
    pasteboard.deliver();
    EXPECT_EQ(journal, steps({"focus?", "read", "setString Hello there.", "paste"}));
    scheduler.advance(999ms); // the second counts from the paste
    EXPECT_EQ(pasteboard.string(), kHello);
    scheduler.advance(1ms);
    EXPECT_EQ(pasteboard.items, image());
}

TEST_F(TextInjectorTest, WithoutFocusTheLogLineComesWithTheSlowPaste) {
    accessibility.focused = false;
    pasteboard.slow = true;
    EXPECT_EQ(injector->insert(kHello), Outcome::copiedToClipboard);
    EXPECT_EQ(logged(), QString());
    pasteboard.deliver();
    EXPECT_EQ(logged().count(QLatin1Char('\n')), 1);
    EXPECT_EQ(pasteboard.string(), kHello);
}

TEST_F(TextInjectorTest, InsertionsDuringASlowReadKeepTheirOrder) {
    pasteboard.copiedElsewhere(image());
    pasteboard.slow = true;
    EXPECT_EQ(injector->insert(QStringLiteral("first")), Outcome::pasted);
    accessibility.focused = false;
    EXPECT_EQ(injector->insert(QStringLiteral("second")), Outcome::copiedToClipboard);
    accessibility.focused = true;
    EXPECT_EQ(injector->insert(QStringLiteral("third")), Outcome::pasted);
    EXPECT_EQ(journal, steps({"focus?", "read", "focus?", "focus?"}));

    pasteboard.deliver();
    scheduler.advance(300ms);
    EXPECT_EQ(journal.mid(4), steps({"setString first", "paste", "read"}));
    pasteboard.deliver();
    scheduler.advance(300ms);
    EXPECT_EQ(journal.mid(7), steps({"setString second", "paste", "read"}));
    EXPECT_EQ(logged().count(QLatin1Char('\n')), 1); // the second one's focus, as asked then
    scheduler.advance(100ms);
    pasteboard.deliver();
    EXPECT_EQ(journal.mid(10), steps({"setString third", "paste"}));

    scheduler.advance(900ms);
    EXPECT_EQ(pasteboard.string(), QStringLiteral("third"));
    scheduler.advance(100ms);
    EXPECT_EQ(pasteboard.string(), QStringLiteral("second"));
    scheduler.advance(10s);
    EXPECT_EQ(journal.mid(12), steps({"writeItems"}));
}

TEST_F(TextInjectorTest, ATextIsLeftToBeReadBeforeTheNextReplacesIt) {
    injector->insert(QStringLiteral("first"));
    EXPECT_EQ(injector->insert(QStringLiteral("second")), Outcome::pasted);
    scheduler.advance(100ms);
    EXPECT_EQ(injector->insert(QStringLiteral("third")), Outcome::pasted);
    scheduler.advance(199ms);
    EXPECT_EQ(pasteboard.string(), QStringLiteral("first"));
    EXPECT_EQ(poster.posted, 1);
    scheduler.advance(1ms);
    EXPECT_EQ(pasteboard.string(), QStringLiteral("second"));
    EXPECT_EQ(poster.posted, 2);
    scheduler.advance(299ms);
    EXPECT_EQ(poster.posted, 2);
    scheduler.advance(1ms);
    EXPECT_EQ(pasteboard.string(), QStringLiteral("third"));
    EXPECT_EQ(poster.posted, 3);
    scheduler.advance(10s);
    EXPECT_EQ(poster.posted, 3);
    EXPECT_EQ(scheduler.pendingOneShots(), 0);
}

TEST_F(TextInjectorTest, ATextLaterThanThatIsPastedAtOnce) {
    injector->insert(QStringLiteral("first"));
    scheduler.advance(300ms);
    injector->insert(QStringLiteral("second"));
    EXPECT_EQ(pasteboard.string(), QStringLiteral("second"));
    EXPECT_EQ(poster.posted, 2);
}

TEST_F(TextInjectorTest, DestroyedBetweenTwoPastesItPastesNoMore) {
    injector->insert(QStringLiteral("first"));
    injector->insert(QStringLiteral("second"));
    injector.reset();
    scheduler.advance(10s);
    EXPECT_EQ(poster.posted, 1);
}

TEST_F(TextInjectorTest, ARefusedKeystrokeChangesNothingElse) {
    poster.refuse = true;
    pasteboard.copiedElsewhere(image());
    EXPECT_EQ(injector->insert(kHello), Outcome::pasted);
    EXPECT_EQ(journal, steps({"focus?", "read", "setString Hello there.", "paste"}));
    EXPECT_EQ(poster.posted, 0);
    EXPECT_EQ(pasteboard.string(), kHello);
    scheduler.advance(1s);
    EXPECT_EQ(pasteboard.items, image());
}

TEST_F(TextInjectorTest, NothingIsPastedWhenThePasteboardRefusesTheText) {
    pasteboard.refuseWrites = true;
    accessibility.focused = false;
    EXPECT_EQ(injector->insert(kHello), Outcome::copiedToClipboard);
    accessibility.focused = true;
    EXPECT_EQ(injector->insert(kHello), Outcome::pasted);
    EXPECT_FALSE(journal.contains(QStringLiteral("paste")));
    EXPECT_EQ(scheduler.pendingOneShots(), 0);
    EXPECT_EQ(logged(), QString());

    pasteboard.refuseWrites = false; // and the next one goes through
    injector->insert(kHello);
    EXPECT_EQ(poster.posted, 1);
}

TEST_F(TextInjectorTest, DestroyedDuringASlowReadItPastesNothing) {
    pasteboard.slow = true;
    injector->insert(kHello);
    injector->insert(kHello);
    injector.reset();
    pasteboard.deliver();
    scheduler.advance(2s);
    EXPECT_EQ(journal, steps({"focus?", "read", "focus?"}));
}

TEST_F(TextInjectorTest, DestroyedBeforeTheRestoreItLeavesThePasteboardAlone) {
    pasteboard.copiedElsewhere(image());
    injector->insert(kHello);
    injector.reset();
    scheduler.advance(2s);
    EXPECT_EQ(pasteboard.string(), kHello);
    EXPECT_EQ(journal.size(), 4);
}

TEST_F(TextInjectorTest, PrepareOnlyHintsAtTheRead) {
    injector->prepare();
    EXPECT_EQ(pasteboard.prepared, 1);
    EXPECT_EQ(journal, QStringList());
}

} // namespace
} // namespace quenda
