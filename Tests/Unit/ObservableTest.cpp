#include "Quenda/Observable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace quenda {

namespace {

using testing::ElementsAre;
using Seen = std::vector<int>;

TEST(Observable, ASubscriberGetsThePresentValueAtOnceAndEachNewOne) {
    Observable<int> number(1);
    Seen seen;
    const Subscription subscription = number.subscribe([&](int value) { seen.push_back(value); });
    EXPECT_THAT(seen, ElementsAre(1));
    number.set(2);
    number.set(2);
    number.set(3);
    EXPECT_THAT(seen, ElementsAre(1, 2, 2, 3));
    EXPECT_EQ(number.value(), 3);
}

TEST(Observable, ItTellsBeforeEachChangeWhileTheOldValueStands) {
    Observable<int> number(1);
    std::vector<std::string> seen;
    const Subscription will =
        number.onWillChange([&] { seen.push_back("will " + std::to_string(number.value())); });
    EXPECT_TRUE(seen.empty()) << "nothing changes by subscribing";
    const Subscription did = number.subscribe([&](int value) {
        seen.push_back("did " + std::to_string(value));
        EXPECT_EQ(number.value(), value);
    });
    number.set(2);
    number.set(2);
    EXPECT_THAT(seen, ElementsAre("did 1", "will 1", "did 2", "will 2", "did 2"));
}

TEST(Observable, ASubscriptionEndsWithItsHandle) {
    Observable<int> number(1);
    Seen seen;
    int told = 0;
    auto subscription =
        std::make_unique<Subscription>(number.subscribe([&](int value) { seen.push_back(value); }));
    auto will = std::make_unique<Subscription>(number.onWillChange([&] { ++told; }));
    number.set(2);
    subscription.reset();
    will.reset();
    number.set(3);
    EXPECT_THAT(seen, ElementsAre(1, 2));
    EXPECT_EQ(told, 1);
}

TEST(Observable, AssigningAHandleEndsTheFormerSubscription) {
    Observable<int> number(1);
    Seen first;
    Seen second;
    Subscription subscription = number.subscribe([&](int value) { first.push_back(value); });
    subscription = number.subscribe([&](int value) { second.push_back(value); });
    number.set(2);
    EXPECT_THAT(first, ElementsAre(1));
    EXPECT_THAT(second, ElementsAre(1, 2));
}

TEST(Observable, AHandleMayOutliveTheObservable) {
    Subscription subscription;
    {
        Observable<int> number(1);
        subscription = number.subscribe([](int) {});
    }
    subscription = Subscription();
}

TEST(Observable, WhatAnObserverHoldsIsFreedWithItsSubscription) {
    Observable<int> number(1);
    auto held = std::make_shared<int>(0);
    {
        const Subscription subscription = number.subscribe([held](int) {});
        EXPECT_EQ(held.use_count(), 2);
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST(Observable, AnObserverMayEndItsOwnAndOtherSubscriptions) {
    Observable<int> number(1);
    Seen first;
    Seen second;
    Seen third;
    Subscription one;
    Subscription two;
    one = number.subscribe([&](int value) {
        first.push_back(value);
        if (value == 2) {
            one = Subscription();
            two = Subscription();
        }
    });
    two = number.subscribe([&](int value) { second.push_back(value); });
    const Subscription three = number.subscribe([&](int value) { third.push_back(value); });
    number.set(2);
    number.set(3);
    EXPECT_THAT(first, ElementsAre(1, 2));
    EXPECT_THAT(second, ElementsAre(1));
    EXPECT_THAT(third, ElementsAre(1, 2, 3));
}

TEST(Observable, AnObserverMaySubscribeAnotherThatGetsEachValueOnce) {
    Observable<int> number(1);
    Seen seen;
    Subscription inner;
    const Subscription outer = number.subscribe([&](int value) {
        if (value == 2)
            inner = number.subscribe([&](int each) { seen.push_back(each); });
    });
    number.set(2);
    EXPECT_THAT(seen, ElementsAre(2));
    number.set(3);
    EXPECT_THAT(seen, ElementsAre(2, 3));
}

TEST(Observable, EveryObserverGetsAllValuesInOrderWhenOneChangesTheValue) {
    Observable<int> number(1);
    Seen before;
    Seen after;
    const Subscription early = number.subscribe([&](int value) { before.push_back(value); });
    const Subscription changer = number.subscribe([&](int value) {
        if (value == 2) {
            number.set(3);
            EXPECT_EQ(number.value(), 3) << "in force at once";
        }
    });
    const Subscription late = number.subscribe([&](int value) { after.push_back(value); });
    number.set(2);
    EXPECT_THAT(before, ElementsAre(1, 2, 3));
    EXPECT_THAT(after, ElementsAre(1, 2, 3));
}

TEST(Observable, AChangeFromTheFirstCallReachesEveryOne) {
    Observable<int> number(1);
    Seen other;
    Seen own;
    const Subscription early = number.subscribe([&](int value) { other.push_back(value); });
    const Subscription changer = number.subscribe([&](int value) {
        own.push_back(value);
        if (value == 1)
            number.set(2);
    });
    EXPECT_THAT(other, ElementsAre(1, 2));
    EXPECT_THAT(own, ElementsAre(1, 2));
    number.set(3);
    EXPECT_THAT(own, ElementsAre(1, 2, 3));
}

TEST(Observable, TheSubscriberOfALaterValueMissesTheOnesThatWereSetBefore) {
    Observable<int> number(1);
    Seen seen;
    Subscription inner;
    const Subscription outer = number.subscribe([&](int value) {
        if (value != 2)
            return;
        number.set(3);
        inner = number.subscribe([&](int each) { seen.push_back(each); });
    });
    number.set(2);
    EXPECT_THAT(seen, ElementsAre(3)) << "the present one, not announced to it again";
}

TEST(Observable, DistinctDropsEqualNeighboursOnly) {
    Observable<std::string> text(std::string("a"));
    std::vector<std::size_t> lengths;
    const Subscription subscription = text.subscribe(
        distinct<std::string>([](const std::string &value) { return value.size(); },
                              [&](std::size_t length) { lengths.push_back(length); }));
    text.set("b");
    text.set("ccc");
    text.set("ddd");
    text.set("");
    text.set("e");
    EXPECT_THAT(lengths, ElementsAre(1U, 3U, 0U, 1U));
}

TEST(Observable, EachDistinctSubscriptionRemembersItsOwnValue) {
    Observable<int> number(0);
    Seen all;
    Seen tens;
    const auto identity = [](int value) { return value; };
    const auto ten = [](int value) { return value / 10; };
    const Subscription first =
        number.subscribe(distinct<int>(identity, [&](int value) { all.push_back(value); }));
    const Subscription second =
        number.subscribe(distinct<int>(ten, [&](int value) { tens.push_back(value); }));
    for (const int value : {0, 1, 1, 11, 12, 0})
        number.set(value);
    EXPECT_THAT(all, ElementsAre(0, 1, 11, 12, 0));
    EXPECT_THAT(tens, ElementsAre(0, 1, 0));
}

TEST(Observable, ADistinctSinkMayChangeTheValue) {
    Observable<int> number(0);
    Seen seen;
    const Subscription subscription =
        number.subscribe(distinct<int>([](int value) { return value; },
                                       [&](int value) {
                                           seen.push_back(value);
                                           if (value == 1)
                                               number.set(1);
                                       }));
    number.set(1);
    EXPECT_THAT(seen, ElementsAre(0, 1));
}

} // namespace

} // namespace quenda
