// The pure rules by which limits are combined and values converted.
#include <gtest/gtest.h>

#include "base/action_list.h"
#include "freq/limit_merge.h"
#include "freq/scene_limits.h"
#include "locks/perf_service.h"

using namespace tarquel;

TEST(LimitMerge, SmallerPositiveWinsAndZeroLeavesTheOtherInForce) {
    EXPECT_EQ(LimitMerge(0, 5), 5);
    EXPECT_EQ(LimitMerge(-1, 5), 5);
    EXPECT_EQ(LimitMerge(-1, -1), -1);
    EXPECT_EQ(LimitMerge(7, 0), 7);
    EXPECT_EQ(LimitMerge(7, 5), 5);
    EXPECT_EQ(LimitMerge(5, 7), 5);
    EXPECT_EQ(LimitMerge(7, -1), -1);
}

TEST(LimitMerge, SmallestOfThreeLimits) {
    EXPECT_EQ(GetValidMinValue(3, 1, 2), 1);
    EXPECT_EQ(GetValidMinValue(-1, 0, 2), 2);
    EXPECT_EQ(GetValidMinValue(-1, -1, -1), -1);
    EXPECT_EQ(GetValidMinValue(-1, -1, 0), 0);
    EXPECT_EQ(GetValidMinValue(-1, 0, -1), 0);
    EXPECT_EQ(GetValidMinValue(0, -1, -1), 0);
}

TEST(ToHalValue, FrequenciesBecomeMhzAndTheRestStays) {
    EXPECT_EQ(ToHalValue(8, 1785600), 1785);
    EXPECT_EQ(ToHalValue(9, 285999999), 285);
    EXPECT_EQ(ToHalValue(10, -1), -1);
    EXPECT_EQ(ToHalValue(7, -1), -1);
    EXPECT_EQ(ToHalValue(11, 1785600), 1785600);
}

TEST(Chain, IsEndlessWhereverItLeadsBackTo) {
    struct Link {
        Link* next = nullptr;
    };
    for (size_t length = 1; length <= 6; ++length) {
        std::vector<Link> links(length);
        for (size_t i = 0; i + 1 < length; ++i) links[i].next = &links[i + 1];
        EXPECT_FALSE(IsEndless(links[0])) << length;
        for (Link& target : links) {
            links.back().next = &target;
            EXPECT_TRUE(IsEndless(links[0])) << length << " back to " << &target - &links[0];
        }
    }
}

TEST(SceneLimits, CommandThatEndedLeavesNoTrace) {
    SceneLimits limits;
    EXPECT_EQ(limits.Smallest(), 0);
    limits.Set(5, 30);
    limits.Set(6, 20);
    limits.Set(5, 10);
    EXPECT_EQ(limits.Smallest(), 10);
    EXPECT_EQ(limits.SmallestOfOthers(5), 20);
    EXPECT_EQ(limits.LargestOfOthers(6), 10);
    limits.Set(5, 0);
    limits.Set(9, 0);
    EXPECT_EQ(limits.Smallest(), 20);
    EXPECT_EQ(limits.SmallestOfOthers(6), kNoSceneLimit);
    limits.Set(6, kNoSceneLimit);
    EXPECT_EQ(limits.Smallest(), 0);
}
