// Execution of action chains: which actions run, with which lock, and what a payload changes.
#include <gmock/gmock.h>

#include <climits>
#include <cstring>

#include "tests/support/plugin_test.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr int kOn = 0;
constexpr int kOff = -1;

}  // namespace

class ActionTest : public PluginTest {
  protected:
    void SetUp() override { Boot(); }
};

TEST_F(ActionTest, TimedActionTakesALockOfItsOwn) {
    const auto action = MakeAction(4353, 100, {0x40800000, 1500});
    EXPECT_EQ(Do(*action), 0);
    EXPECT_EQ(Do(*action), 0);
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 100ms 0x40800000=1500 -> 1",
                                        "acq 0 100ms 0x40800000=1500 -> 2"));
    EXPECT_THAT(Log(kError), IsEmpty());
}

TEST_F(ActionTest, UntimedActionsShareTheCommonLock) {
    Do(*MakeAction(4353, 0, {0x40800000, 1500}));
    GetPhone().Hal().RefuseNext(1, -1);
    Do(*MakeAction(4354, 0, {0x40800000, 1600}));
    Do(*MakeAction(4355, 0, {0x40800000, 1700}));
    EXPECT_THAT(HalCalls(),
                ElementsAre("acq 0 0ms 0x40800000=1500 -> 1", "rel 1 -> 0",
                            "acq 0 0ms 0x40800000=1600 -> -1", "acq 0 0ms 0x40800000=1700 -> 2"));
    EXPECT_THAT(Log(kError), ElementsAre("tarquel: PerfLockAcq failed! cmdId = 4354, oldHandle = "
                                         "0, updateHandle = -1, duration = 0\n"));
}

TEST_F(ActionTest, EventRenewsItsLockUntilItEnds) {
    const auto action = MakeAction(4099, 500, {0x40C00000, 1});
    Do(*action, kOn);
    Do(*action, kOn);
    EXPECT_EQ(Do(*action, kOff), 0);
    EXPECT_EQ(Do(*action, kOff), 0);
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 500ms 0x40C00000=1 -> 1",
                                        "acq 1 500ms 0x40C00000=1 -> 1", "rel 1 -> 0"));
}

TEST_F(ActionTest, RefusedLockReplacesTheCachedHandle) {
    const auto action = MakeAction(4099, 500, {0x40C00000, 1});
    Do(*action, kOn);
    GetPhone().Hal().RefuseNext(1, 0);
    EXPECT_EQ(Do(*action, kOn), 0);
    Do(*action, kOff);
    Do(*action, kOn);
    EXPECT_THAT(HalCalls(),
                ElementsAre("acq 0 500ms 0x40C00000=1 -> 1", "acq 1 500ms 0x40C00000=1 -> 0",
                            "acq 0 500ms 0x40C00000=1 -> 2"));
}

TEST_F(ActionTest, EachActionOfAnEventHasItsOwnLockAndSkippedOnesCount) {
    auto first = MakeAction(4099, 500, {0x40C00000, 1});
    auto second = MakeAction(4099, 500, {0x40C00000, 2});
    auto third = MakeAction(4099, 500, {0x40C00000, 3});
    first->next = second.get();
    second->next = third.get();
    second->skip = 1;
    Adapter().SetDebug(true);
    Do(*first, kOn);
    EXPECT_THAT(Log(kInfo),
                Contains("tarquel: DoEventCacheHandle +++ cmdId = 4099-2, perfHandle = 2.\n"));
    Do(*first, kOff);
    EXPECT_THAT(HalCalls(),
                ElementsAre("acq 0 500ms 0x40C00000=1 -> 1", "acq 0 500ms 0x40C00000=3 -> 2",
                            "rel 1 -> 0", "rel 2 -> 0"));
}

TEST_F(ActionTest, RegularEventIsAlwaysCachedAndItsEndCommandReleasesIt) {
    const auto regular = MakeAction(5378, 500, {0x40C00000, 1});
    const auto end = MakeAction(5379, 200, {0x40C00000, 2});
    Do(*regular);
    Do(*regular);
    Do(*end);
    EXPECT_THAT(HalCalls(),
                ElementsAre("acq 0 500ms 0x40C00000=1 -> 1", "acq 1 500ms 0x40C00000=1 -> 1",
                            "rel 1 -> 0", "acq 0 200ms 0x40C00000=2 -> 2"));
}

struct FailureCase {
    const char* what;
    int cmdId;
    int tagLen;
    std::vector<int> pairs;
    int result;
    std::vector<std::string> errors;
};

class ActionFailureTest : public ActionTest, public testing::WithParamInterface<FailureCase> {};

TEST_P(ActionFailureTest, IsLoggedAndTheRestOfTheChainRuns) {
    const FailureCase& c = GetParam();
    auto first = MakeAction(c.cmdId, 10, c.pairs);
    auto second = MakeAction(4354, 20, {0x40C00000, 1});
    first->tagLen = c.tagLen;
    first->next = second.get();
    EXPECT_EQ(Do(*first), c.result) << c.what;
    EXPECT_EQ(Log(kError), c.errors) << c.what;
    EXPECT_THAT(HalCalls().back(), HasSubstr("acq 0 20ms 0x40C00000=1")) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Action, ActionFailureTest,
    testing::Values(FailureCase{"no action",
                                -1,
                                1,
                                {0x40C00000, 1},
                                -1,
                                {"tarquel: PerfServiceAcq failed, action is NULL!\n"}},
                    FailureCase{"no pairs", 4353, 0, {}, -1, {}},
                    FailureCase{
                        "list cut inside a pair",
                        4353,
                        1,
                        {0x40C00000},
                        -1,
                        {"tarquel: action list is invalid, cmdId is 4353, tagLen is 1\n"}}));

TEST_F(ActionTest, HalTakesAtMostThirtyTwoPairs) {
    std::vector<int> pairs;
    for (int i = 0; i < 40; ++i) pairs.insert(pairs.end(), {0x40C00000 + i, 1000 + i});
    Adapter().SetDebug(true);
    Do(*MakeAction(4353, 10, pairs));
    const auto calls = GetPhone().Events().All<lab::LockAcquire>();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].list, std::vector<int>(pairs.begin(), pairs.begin() + 64));
    // Their text does not fit into a section's name: no section, and none to close.
    EXPECT_THAT(Sections(),
                ElementsAre("PerfLockAcq reqHandle=0", "end", "PerfLockAcq retHandle=1", "end"));
    EXPECT_EQ(Log(kError).size(), 1u);
}

// A list whose text is exactly `length` characters long.
std::vector<int> ListOfText(size_t length) {
    std::vector<int> list;
    for (length -= std::strlen("list="); length > 40; length -= 22) {
        list.insert(list.end(), {0x7FFFFFFF, 1234567890});  // "0x7FFFFFFF 1234567890 "
    }
    for (const size_t part : {length / 3, length / 3, length - length / 3 * 2}) {
        list.insert(list.end(), {1, std::stoi(std::string(part - 5, '1'))});  // "0x1 111 "
    }
    return list;
}

TEST_F(ActionTest, SectionsHaveNamesOfAtMost511Characters) {
    Adapter().SetDebug(true);
    struct Case {
        size_t listLength;
        const char* error;  // null: the section is there
    };
    const std::string head = "PerfServiceAcq duration=10, len=48, ";
    for (const auto& [listLength, error] :
         {Case{511 - head.size(), nullptr}, Case{512 - head.size(), "trace_buf error"},
          Case{511, "trace_buf error"}, Case{512, "trace_arg_buf error"}}) {
        Forget();
        Do(*MakeAction(4353, 10, ListOfText(listLength)));
        const std::vector<std::string> sections = Sections();
        EXPECT_EQ(sections.size(), error == nullptr ? 6u : 4u) << listLength;
        if (error == nullptr) {
            EXPECT_EQ(sections[0].size(), 511u);
            EXPECT_THAT(Log(kError), IsEmpty());
        } else {
            EXPECT_THAT(
                Log(kError),
                ElementsAre(std::string("tarQuel: PerfServiceAcq snprintf_s ") + error + "\n"));
        }
    }
}

TEST_F(ActionTest, ScenesRunThemselvesAtMostAThousandTimes) {
    std::vector<std::unique_ptr<QcomAction>> chain;
    for (int i = 0; i < 3; ++i) {
        chain.push_back(MakeAction(12288, 0, {6, 960000, 12, 1}));
        if (i > 0) chain[chain.size() - 2]->next = chain.back().get();
    }
    for (int i = 0; i < 2; ++i) {  // each request counts anew
        Forget();
        EXPECT_EQ(Do(*chain[0], kOn), -1);
        // A thousand begin by themselves; runs that are under way then come to their end.
        EXPECT_EQ(GetPhone().Events().All<lab::LockAcquire>().size(), 1641u);
    }
}

TEST_F(ActionTest, LongTermSceneGoesToTheFrequencyManager) {
    EXPECT_EQ(Scene(12288, {{7, 1804800}}, kOn), 0);
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 0ms 0x40804200=1804 -> 1"));
    // The same command with a duration is a boost like any other.
    Do(*MakeAction(12288, 100, {0x40C00000, 1}), kOn);
    EXPECT_EQ(HalCalls().back(), "acq 0 100ms 0x40C00000=1 -> 2");
}

TEST_F(ActionTest, SceneThatRunsItselfAgainIsCutShort) {
    EXPECT_EQ(Scene(12288, {{7, 1804800}, {12, 1}}, kOn), -1);
    EXPECT_THAT(Log(kError), Contains("tarquel: DoOnOffAction dead loop, cmdId is 12288\n"));
    EXPECT_EQ(GetPhone().Hal().Held().size(), 1u);
    Forget();
    EXPECT_EQ(Scene(12288, {{7, 1804800}}, kOff), 0);
    EXPECT_THAT(Log(kError), IsEmpty());
}

TEST_F(ActionTest, SavedValuesAreClampedToWhatTheHalTakes) {
    const auto save =
        Exported<void (*)(PerfAdapter*, const QcomAction&, const int*, int&, int*, int&)>(
            "_ZN15QcomPerfAdapter11SavePerfValERK10QcomActionPKiRiPiS5_");
    ASSERT_NE(save, nullptr);
    std::vector<int> pairs(100, 5);
    const auto action = MakeAction(4353, 100, pairs);
    GetPhone().SetOnDemandDuration(4353, 40);
    int duration = 100;
    int len = 100;
    std::vector<int> list(65, -7);
    save(&Adapter(), *action, nullptr, duration, list.data(), len);
    EXPECT_EQ(duration, 40);
    EXPECT_EQ(len, 64);
    EXPECT_EQ(list[63], 5);
    EXPECT_EQ(list[64], -7);
    // No ints at all are a request too.
    len = 0;
    duration = 100;
    save(&Adapter(), *action, nullptr, duration, nullptr, len);
    EXPECT_EQ(duration, 40);
    len = 101;
    save(&Adapter(), *MakeAction(4353, 100, {1, 2}), nullptr, duration, list.data(), len);
    EXPECT_EQ(len, 2);
    EXPECT_THAT(Log(kError), IsEmpty());
}

class InterActionTest : public ActionTest {
  protected:
    static constexpr const char* kLoads =
        "/sys/devices/system/cpu/cpu0/cpufreq/interactive/go_hispeed_load";

    int DoInter(const std::vector<std::string>& strings, const int* payload) {
        const auto action = MakeAction(4353, 0, {});
        action->tagLen = static_cast<int>(strings.size() / 2);
        action->interList = strings;
        return Exported<int (*)(PerfAdapter*, const QcomAction&, const int*)>(
            "_ZN15QcomPerfAdapter17DoInterFreqActionERK10QcomActionPKi")(&Adapter(), *action,
                                                                         payload);
    }
};

TEST_F(InterActionTest, PairsAreWrittenToTheGovernorsNodes) {
    GetPhone().GetKernel().Force(kLoads, "90");
    EXPECT_EQ(DoInter({"priority", "1", "go_hispeed_load_l", "85"}, &kOn), 0);
    EXPECT_THAT(NodeWrites(), ElementsAre(std::string(kLoads) + "=85"));
    EXPECT_EQ(Node(kLoads), "85");
    EXPECT_EQ(DoInter({"go_hispeed_load_l", "70"}, &kOff), 0);
    EXPECT_EQ(Node(kLoads), "85");
}

TEST_F(InterActionTest, FirstPairThatCannotBeWrittenEndsIt) {
    GetPhone().GetKernel().Force(kLoads, "90");
    EXPECT_EQ(DoInter({"hispeed_freq_b", "1000", "go_hispeed_load_l", "85"}, &kOn), -1);
    EXPECT_EQ(Node(kLoads), "90");
    EXPECT_THAT(
        Log(kError),
        ElementsAre(
            "tarQuel: WriteNodesValue open "
            "/sys/devices/system/cpu/cpu4/cpufreq/interactive/hispeed_freq fail errno(2)!\n",
            "tarQuel: write node failed, tag=hispeed_freq_b, value=1000\n"));
}

TEST_F(InterActionTest, NothingWrittenIsAFailure) {
    EXPECT_EQ(DoInter({"go_hispeed_load_l", "85"}, nullptr), -1);
    EXPECT_THAT(Log(kError), ElementsAre("tarQuel: invalid scene params cmdId is 4353\n"));
    EXPECT_EQ(DoInter({"priority", "1"}, &kOn), -1);
    EXPECT_EQ(DoInter({}, &kOn), -1);
    EXPECT_EQ(DoInter({"go_hispeed_load_l", ""}, &kOn), -1);
    EXPECT_THAT(Log(kError), Contains("tarQuel: WriteNodesValue invalid params!\n"));
    EXPECT_THAT(NodeWrites(), IsEmpty());
}
