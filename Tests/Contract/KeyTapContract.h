#pragma once
// What every key tap keeps to, whatever the platform. A World names a backend and presses its keys:
//   KeyTapFactory &factory();
//   void press(int keyCode); void release(int keyCode);   // Mac key codes; right Option and Escape
//   void settle();                                        // until what was pressed has arrived

#include "Platform/KeyTap.h"

#include <gtest/gtest.h>

#include <vector>

namespace quenda::contract {

template <typename World>
class KeyTapContract : public testing::Test {
protected:
    std::unique_ptr<KeyTap> tapped() {
        return world.factory().createTap(
            [this](const KeyEvent &event) { events.push_back(event); });
    }
    void tapKey(int keyCode) {
        world.press(keyCode);
        world.settle();
        world.release(keyCode);
        world.settle();
    }

    World world;
    std::vector<KeyEvent> events;
};
TYPED_TEST_SUITE_P(KeyTapContract);

TYPED_TEST_P(KeyTapContract, ANewTapIsOffAndSilent) {
    const auto tap = this->tapped();
    ASSERT_TRUE(tap);
    EXPECT_FALSE(tap->isEnabled());
    this->tapKey(keys::kRightOption);
    EXPECT_TRUE(this->events.empty());
}

TYPED_TEST_P(KeyTapContract, AModifierIsReportedDownAndUp) {
    const auto tap = this->tapped();
    tap->setEnabled(true);
    ASSERT_TRUE(tap->isEnabled());
    this->tapKey(keys::kRightOption);
    ASSERT_EQ(this->events.size(), 2U);
    for (const KeyEvent &event : this->events) {
        EXPECT_EQ(event.type, KeyEvent::Type::FlagsChanged);
        EXPECT_EQ(event.keyCode, keys::kRightOption);
    }
    EXPECT_TRUE(this->events[0].flags & keys::kFlagAlternate);
    EXPECT_FALSE(this->events[1].flags & keys::kFlagAlternate);
}

TYPED_TEST_P(KeyTapContract, EscapeIsAKeyDown) {
    const auto tap = this->tapped();
    tap->setEnabled(true);
    this->tapKey(keys::kEscape);
    ASSERT_EQ(this->events.size(), 1U);
    EXPECT_EQ(this->events[0].type, KeyEvent::Type::KeyDown);
    EXPECT_EQ(this->events[0].keyCode, keys::kEscape);
}

TYPED_TEST_P(KeyTapContract, ATapThatIsSwitchedOffReportsNothing) {
    const auto tap = this->tapped();
    tap->setEnabled(true);
    tap->setEnabled(false);
    EXPECT_FALSE(tap->isEnabled());
    this->tapKey(keys::kEscape);
    EXPECT_TRUE(this->events.empty());
    tap->setEnabled(true);
    this->tapKey(keys::kEscape);
    EXPECT_EQ(this->events.size(), 1U);
}

TYPED_TEST_P(KeyTapContract, ADestroyedTapReportsNothing) {
    auto tap = this->tapped();
    tap->setEnabled(true);
    tap.reset();
    this->tapKey(keys::kEscape);
    EXPECT_TRUE(this->events.empty());
}

TYPED_TEST_P(KeyTapContract, TwoTapsBothHear) {
    const auto first = this->tapped();
    const auto second = this->tapped();
    first->setEnabled(true);
    second->setEnabled(true);
    this->tapKey(keys::kEscape);
    EXPECT_EQ(this->events.size(), 2U);
}

REGISTER_TYPED_TEST_SUITE_P(KeyTapContract, ANewTapIsOffAndSilent, AModifierIsReportedDownAndUp,
                            EscapeIsAKeyDown, ATapThatIsSwitchedOffReportsNothing,
                            ADestroyedTapReportsNothing, TwoTapsBothHear);

} // namespace quenda::contract
