// Completion of chains before they run, and the count of boosts in a period.
#include <gmock/gmock.h>

#include "tests/support/plugin_test.h"

using testing::ElementsAre;
using testing::IsEmpty;

class BoostTest : public PluginTest {
  protected:
    // Boot with boost-frequency level 3 configured.
    void BootWithLevel(const std::string& device, const Pairs& level) {
        Boot(device);
        Command info(2);
        info.Element("freq_level_info3", level);
        Parse({&info});
        Forget();
    }

    void EnterThermal(int level) {
        Limit(2, {{57, 4 + level}});
        Forget();
    }
};

TEST_F(BoostTest, TaskIdGoesBehindTheTaskBoostOpcode) {
    Boot();
    const auto plain = MakeAction(4353, 10, {0x40C80000, 0});
    const auto first = MakeAction(4353, 10, {0x40C00000, 1, 0x40C80000, 0});
    plain->next = first.get();
    first->taskBoost = 1;
    EXPECT_EQ(Adapter().DoAddTaskBoostInfo(*plain, "pid=5||targetPid=1234|x=1"), 0);
    EXPECT_THAT(plain->perfList, ElementsAre(0x40C80000, 0));
    EXPECT_THAT(first->perfList, ElementsAre(0x40C00000, 1, 0x40C80000, 1234));
    EXPECT_THAT(Log(kError), IsEmpty());
}

struct TaskMessageCase {
    std::string message;
    std::vector<std::string> errors;
};

class TaskMessageTest : public BoostTest, public testing::WithParamInterface<TaskMessageCase> {};

TEST_P(TaskMessageTest, WithoutATaskIdChangesNothing) {
    Boot();
    const auto first = MakeAction(4353, 10, {0x40C80000, 7});
    const auto second = MakeAction(4353, 10, {0x40C80000, 7});
    first->taskBoost = second->taskBoost = 1;
    first->next = second.get();
    EXPECT_EQ(Adapter().DoAddTaskBoostInfo(*first, GetParam().message), 0);
    EXPECT_THAT(first->perfList, ElementsAre(0x40C80000, 7));
    EXPECT_THAT(second->perfList, ElementsAre(0x40C80000, 7));
    EXPECT_EQ(Log(kError), GetParam().errors);
}

const std::string kNoTaskId = "tarquel: TarquelEvent get taskId failed\n";
INSTANTIATE_TEST_SUITE_P(
    Boost, TaskMessageTest,
    testing::Values(TaskMessageCase{"", {kNoTaskId}}, TaskMessageCase{"pid=5", {kNoTaskId}},
                    TaskMessageCase{"|||", {kNoTaskId}},
                    TaskMessageCase{"targetPid=x|targetPid=5", {kNoTaskId}},
                    TaskMessageCase{"targetPid=0", {}}, TaskMessageCase{"targetPid=-4", {}},
                    TaskMessageCase{"targetPid=5" + std::string(501, ' '),
                                    {"tarquel: get targetPid: snprintf_s error\n", kNoTaskId}}));

TEST_F(BoostTest, MessageOf511CharactersIsTheLongest) {
    Boot();
    const auto action = MakeAction(4353, 10, {0x40C80000, 0});
    action->taskBoost = 1;
    Adapter().DoAddTaskBoostInfo(*action, "targetPid=5" + std::string(500, ' '));
    EXPECT_THAT(action->perfList, ElementsAre(0x40C80000, 5));
}

TEST_F(BoostTest, LastIntIsNoPlaceForATaskId) {
    Boot();
    const auto action = MakeAction(4353, 10, {0x40C00000, 0x40C80000});
    action->taskBoost = 1;
    Adapter().DoAddTaskBoostInfo(*action, "targetPid=9");
    EXPECT_THAT(action->perfList, ElementsAre(0x40C00000, 0x40C80000));
    // But the first int is one, also without pairs.
    action->perfList = {0x40C80000, 5, 0x40C80000, 5};
    action->tagLen = 0;
    Adapter().DoAddTaskBoostInfo(*action, "targetPid=9");
    EXPECT_THAT(action->perfList, ElementsAre(0x40C80000, 9, 0x40C80000, 5));
    action->perfList = {1, 0x40C80000, 5};
    Adapter().DoAddTaskBoostInfo(*action, "targetPid=9");
    EXPECT_THAT(action->perfList, ElementsAre(1, 0x40C80000, 5));
}

TEST_F(BoostTest, ThermalBoostTakesTheLevelsFrequencies) {
    BootWithLevel("sm8450", {{"little_cpu0_max_freq", "1171200"},
                             {"big_cpu0_max_freq", "1881600"},
                             {"prime_cpu0_max_freq", "2054400"}});
    EnterThermal(2);
    const auto first = MakeAction(4353, 10, {0x40804000, 1, 0x40804100, 2, 0x40804200, 3}, 1);
    const auto second = MakeAction(4353, 10, {0x40C00000, 1}, 2);
    first->next = second.get();
    first->boostLevels = second->boostLevels = {9, 3, 9, 9};
    EXPECT_EQ(Adapter().DoAddScalingInfo(*first), 0);
    // The first allows thermal level 1 only: its limits are rewritten, but it gets no ceilings.
    EXPECT_THAT(first->perfList, ElementsAre(0x40804000, 1881, 0x40804100, 1171, 0x40804200, 2054));
    EXPECT_EQ(first->tagLen, 3);
    EXPECT_THAT(second->perfList, ElementsAre(0x40C00000, 1, 0x40810000, 1171200, 0x40814000,
                                              1881600, 0x40818000, 2054400));
    EXPECT_EQ(second->tagLen, 4);
}

// One with fewer frequencies than clusters, one with none, and those that no element can describe.
TEST_F(BoostTest, LevelWithoutFrequenciesLiftsToTheHardwareMaximum) {
    BootWithLevel("sm4450", {{"little_cpu0_max_freq", "1094400"}});
    EnterThermal(1);
    for (const int level : {3, 9, 10, 15, -1}) {
        const auto action = MakeAction(4353, 10, {0x40804000, 1}, 4);
        action->boostLevels = {level, 3, 3, 3};
        Adapter().DoAddScalingInfo(*action);
        EXPECT_THAT(action->perfList,
                    ElementsAre(0x40804000, 1, 0x40810000, 1958400, 0x40814000, 2208000))
            << level;
        EXPECT_EQ(action->tagLen, 3) << level;
    }
}

TEST_F(BoostTest, TextThatIsNoFrequencyCountsAsZero) {
    BootWithLevel("sm4450", {{"little_cpu0_max_freq", "fast"}, {"big_cpu0_max_freq", "1651200"}});
    EnterThermal(1);
    const auto action = MakeAction(4353, 10, {0x40804100, 5}, 4);
    action->boostLevels = {3};
    Adapter().DoAddScalingInfo(*action);
    EXPECT_THAT(action->perfList, ElementsAre(0x40804100, 0, 0x40810000, 0, 0x40814000, 1651200));
}

struct UntouchedCase {
    const char* what;
    int thermal;
    int boostLimitLevel;
    int breakThrough;
    std::vector<int> boostLevels;
};

class UntouchedTest : public BoostTest, public testing::WithParamInterface<UntouchedCase> {};

TEST_P(UntouchedTest, ChainStaysAsItIs) {
    Boot();
    const UntouchedCase& c = GetParam();
    if (c.thermal != 0) EnterThermal(c.thermal);
    const auto action = MakeAction(4353, 10, {0x40804000, 1}, c.boostLimitLevel);
    action->breakThrough = static_cast<uint8_t>(c.breakThrough);
    action->boostLevels.assign(c.boostLevels.begin(), c.boostLevels.end());
    EXPECT_EQ(Adapter().DoAddScalingInfo(*action), 0);
    EXPECT_THAT(action->perfList, ElementsAre(0x40804000, 1)) << c.what;
    EXPECT_EQ(action->tagLen, 1) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Boost, UntouchedTest,
    testing::Values(UntouchedCase{"no thermal level", 0, 4, 1, {3, 3, 3, 3}},
                    UntouchedCase{"hotter than the action allows", 3, 2, 1, {3, 3, 3, 3}},
                    UntouchedCase{"limit level beyond 4", 1, 5, 1, {3, 3, 3, 3}},
                    UntouchedCase{"no breakthrough allowed", 1, 4, 0, {3, 3, 3, 3}},
                    UntouchedCase{"fewer levels than the thermal one", 4, 4, 1, {3, 3, 3}}));
