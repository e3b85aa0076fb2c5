#pragma once
// What every login item keeps to, whatever the platform. A World names a backend, not enabled yet:
//   LoginItem &item();

#include "Platform/Desktop.h"

#include <gtest/gtest.h>

namespace quenda::contract {

template <typename World>
class LoginItemContract : public testing::Test {
protected:
    ~LoginItemContract() override { world.item().setEnabled(false); }

    // A system may refuse a change, of a program that is not installed for instance; what it
    // answers and what holds afterwards must agree.
    void change(bool enabled) {
        const bool before = world.item().isEnabled();
        const LoginItemOutcome outcome = world.item().setEnabled(enabled);
        EXPECT_EQ(world.item().isEnabled(), outcome == LoginItemOutcome::Done ? enabled : before);
    }

    World world;
};
TYPED_TEST_SUITE_P(LoginItemContract);

TYPED_TEST_P(LoginItemContract, IsOffAtFirst) {
    EXPECT_FALSE(this->world.item().isEnabled());
}

TYPED_TEST_P(LoginItemContract, WhatIsDoneHolds) {
    this->change(true);
    this->change(false);
}

TYPED_TEST_P(LoginItemContract, TwiceIsAsOnce) {
    this->change(true);
    this->change(true);
    this->change(false);
    this->change(false);
}

REGISTER_TYPED_TEST_SUITE_P(LoginItemContract, IsOffAtFirst, WhatIsDoneHolds, TwiceIsAsOnce);

} // namespace quenda::contract
