// The sliding window in which boosts are counted.
#include <gtest/gtest.h>

#include <climits>

#include "actions/boost_counter.h"

TEST(BoostWindow, OldestSlotLeavesWhenTimeMovesOn) {
    tarquel::BoostWindow window;
    for (const int64_t now : {1000, 1500, 2500}) window.Count(now, 3000, 3);
    EXPECT_EQ(window.Sum(), 3);
    // Slots are 1000 wide and start at 1000: at 4000 the period is over, before it nothing leaves.
    window.Count(3999, 3000, 3);
    EXPECT_EQ(window.Sum(), 4);
    // The window's start moved to 3000 with that boost, so that the slot of 1000 leaves now.
    window.Count(4100, 3000, 3);
    EXPECT_EQ(window.Sum(), 3);
}

TEST(BoostWindow, KeepsCountingWhereTimeOrSlotsStandStill) {
    tarquel::BoostWindow window;
    for (int i = 1; i <= 3; ++i) {
        window.Count(1000, 3000, 3);
        EXPECT_EQ(window.Sum(), i);
    }
    // A period shorter than its limit has no width for slots: nothing leaves before its end.
    tarquel::BoostWindow narrow;
    for (const int64_t now : {1, 1, 1, 2, 2, 3, 3}) narrow.Count(now, 3, 5);
    EXPECT_EQ(narrow.Sum(), 7);
    narrow.Count(4, 3, 5);
    EXPECT_EQ(narrow.Sum(), 1);
}

TEST(BoostWindow, FollowsALimitThatChangesAndSurvivesAnyNumber) {
    tarquel::BoostWindow window;
    window.Count(1000, 1000, 10);
    window.Count(1100, 1000, 10);
    window.Count(1200, 1000, 2);
    EXPECT_EQ(window.Sum(), 3);
    // Limits and times at the ends of their types: no slot is allocated that holds nothing.
    window.Count(LONG_MIN, INT_MAX, INT_MAX);
    window.Count(LONG_MAX, INT_MAX, INT_MAX);
    EXPECT_EQ(window.Sum(), 1);
    window.Count(LONG_MAX, 1, INT_MAX);
    EXPECT_EQ(window.Sum(), 2);
}
