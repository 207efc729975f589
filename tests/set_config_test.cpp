// What arbitrated values do: node writes, locks by tag, control types, groups.
#include <gmock/gmock.h>

#include "tests/support/plugin_test.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kPower = 1;
constexpr int kTemp = 2;
constexpr int kGroup = 98;

std::string CpuNode(int cpu, const std::string& name) {
    return "/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/cpufreq/" + name;
}

}  // namespace

class SetConfigTest : public PluginTest {
  protected:
    void EnterControlType(int type) {
        Limit(kTemp, {{57, type}});
        Forget();
    }
};

TEST_F(SetConfigTest, RequestsForOneTagReplaceEachOther) {
    Boot();
    Limit(kPower, {{97, 1}});
    Limit(kPower, {{97, 0}});
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 0ms 0x40C00000=1 -> 1", "rel 1 -> 0",
                                        "acq 0 0ms 0x40C00000=0 -> 2"));
    EXPECT_THAT(Log(kError), ElementsAre("tarquel: tag 97 is not registerd! init handleMap[97] = "
                                         "0\n"));
    EXPECT_THAT(NodeWrites(), IsEmpty());
}

TEST_F(SetConfigTest, FailedLockIsForgottenAndNotReleased) {
    Boot();
    GetPhone().Hal().RefuseNext(1, -1);
    Limit(kPower, {{97, 1}});
    Forget();
    Limit(kPower, {{97, 2}});
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 0ms 0x40C00000=2 -> 1"));
    EXPECT_THAT(Log(kError), ElementsAre("tarquel: tag 97 last acquire failed! no need release\n"));
}

TEST_F(SetConfigTest, PerformanceModeTakesLocksAndLeavesNodesAlone) {
    Boot();
    Limit(kPower, {{1, 1171200}, {9, 350000000}});
    EXPECT_THAT(NodeWrites(), IsEmpty());
    EXPECT_THAT(HalCalls(),
                ElementsAre("acq 0 0ms 0x40804100=1171 -> 1", "acq 0 0ms 0x4280C000=350 -> 2"));
}

TEST_F(SetConfigTest, ThermalModeWritesNodesToo) {
    Boot();
    EnterControlType(6);
    Limit(kPower, {{4, 1881600}});
    EXPECT_THAT(NodeWrites(), ElementsAre(CpuNode(4, "scaling_max_freq") + "=1881600"));
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 0ms 0x40804000=1881 -> 1"));
}

TEST_F(SetConfigTest, CeilingBelowTheFloorPullsTheFloorDown) {
    Boot();
    EnterControlType(6);
    Limit(kPower, {{0, 1478400}});
    Forget();
    Limit(kPower, {{1, 1171200}});
    EXPECT_THAT(NodeWrites(), ElementsAre(CpuNode(0, "scaling_min_freq") + "=1171200",
                                          CpuNode(0, "scaling_max_freq") + "=1171200"));
    EXPECT_THAT(HalCalls(), ElementsAre("rel 1 -> 0", "acq 0 0ms 0x40800100=1171 -> 2",
                                        "acq 0 0ms 0x40804100=1171 -> 3"));
    // And a floor above the ceiling is cut to it.
    Forget();
    Limit(kPower, {{0, 1785600}});
    EXPECT_THAT(NodeWrites(), ElementsAre(CpuNode(0, "scaling_min_freq") + "=1171200"));
}

TEST_F(SetConfigTest, DefaultCeilingIsWrittenAtOnceAndNeedsNoLock) {
    Boot();
    Limit(kPower, {{1, 1171200}, {10, 640000000}});
    Forget();
    Limit(kPower, {{1, 0}, {10, 0}});
    EXPECT_THAT(NodeWrites(), ElementsAre(CpuNode(0, "scaling_max_freq") + "=1785600",
                                          "/sys/class/kgsl/kgsl-3d0/devfreq/max_freq=818000000"));
    // The GPU's ceiling keeps a lock at its default.
    EXPECT_THAT(HalCalls(),
                ElementsAre("rel 1 -> 0", "rel 2 -> 0", "acq 0 0ms 0x42810000=818 -> 3"));
}

TEST_F(SetConfigTest, IsolationSwitchGuardsCoreControl) {
    StartPhone("sm8450");
    LoadLibrary();
    Initialize();
    Forget();
    Adapter().SetDebug(true);
    EXPECT_EQ(Limit(kPower, {{66, 1}, {97, 1}}), 0);
    EXPECT_THAT(Log(kInfo), Contains("tarquel: isolation switch is off.\n"));
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 0ms 0x40C00000=1 -> 1"));
    Forget();
    EXPECT_EQ(Limit(kPower, {{kGroup, 0}, {3, 5}, {66, 1}}), 0);
    EXPECT_THAT(Log(kError), Contains("tarquel: isolation switch is off.\n"));
    EXPECT_THAT(HalCalls(), IsEmpty());
}

TEST_F(SetConfigTest, TwoClustersHaveNoMiddle) {
    Boot("sm4450");
    EnterControlType(6);
    Limit(kTemp, {{3, 960000}, {4, 960000}});
    EXPECT_THAT(Log(kError), Contains("tarquel: tag = 3, configVal is 0\n"));
    EXPECT_THAT(Log(kError), Contains("tarquel: tag = 4, configVal is 0\n"));
    EXPECT_THAT(HalCalls(), IsEmpty());
    Forget();
    Limit(kPower, {{6, 960000}, {7, 1900800}});
    EXPECT_THAT(HalCalls(),
                ElementsAre("acq 0 0ms 0x40800000=960 -> 1", "acq 0 0ms 0x40804000=1900 -> 2"));
}

struct WriteBackCase {
    const char* device;
    std::vector<std::string> writes;
};

class WriteBackTest : public SetConfigTest, public testing::WithParamInterface<WriteBackCase> {};

TEST_P(WriteBackTest, ThermalReleaseRestoresEveryCeilingItOwns) {
    Boot(GetParam().device);
    EnterControlType(6);
    Limit(kTemp, {{1, 1094400}, {7, 1804800}});
    Forget();
    Limit(kTemp, {{57, 2}, {1, 0}, {7, 0}});
    EXPECT_EQ(NodeWrites(), GetParam().writes);
}

INSTANTIATE_TEST_SUITE_P(
    SetConfig, WriteBackTest,
    testing::Values(WriteBackCase{"sm8450",
                                  {CpuNode(0, "scaling_max_freq") + "=1785600",
                                   CpuNode(7, "scaling_max_freq") + "=2995200"}},
                    WriteBackCase{"sm4450",
                                  {CpuNode(0, "scaling_max_freq") + "=1958400",
                                   CpuNode(6, "scaling_max_freq") + "=2208000"}}));

struct ControlCase {
    int type;
    int perf;
    int thermal;
    int enableBoost;
    bool writesDefaults;
};

class ControlTypeTest : public SetConfigTest, public testing::WithParamInterface<ControlCase> {};

TEST_P(ControlTypeTest, SetsWhoOwnsTheLimits) {
    const ControlCase& c = GetParam();
    Boot();
    Adapter().SetDebug(true);
    Limit(kPower, {{57, c.type}});
    std::map<std::string, int> status;
    Adapter().GetPerfEventStatus(status);
    EXPECT_EQ(status["mPB_Prior"], c.perf);
    EXPECT_EQ(status["mTB_Prior"], c.thermal);
    const auto records = GetPhone().Events().All<lab::JankRecord>();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].priority, 3);
    EXPECT_EQ(records[0].id, 361);
    EXPECT_EQ(records[0].text,
              "#EB:" + std::to_string(c.enableBoost) + "#PBP:" + std::to_string(c.perf));
    EXPECT_TRUE(HasLogged(kInfo, "tarquel: SetControlType config " + std::to_string(c.type) +
                                     ", mEnableBoost " + std::to_string(c.enableBoost) + "\n"));
    EXPECT_EQ(NodeWrites().size(), c.writesDefaults ? 3u : 0u);
    EXPECT_THAT(HalCalls(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    SetConfig, ControlTypeTest,
    testing::Values(ControlCase{0, 1, 0, 1, true}, ControlCase{1, 1, 0, 1, false},
                    ControlCase{2, 0, -1, 1, false}, ControlCase{4, 0, -1, 0, false},
                    ControlCase{5, 1, 1, 1, false}, ControlCase{6, 0, 2, 1, false},
                    ControlCase{7, 0, 3, 1, false}, ControlCase{8, 0, 4, 1, false},
                    ControlCase{9, 0, -1, 1, false}, ControlCase{10, 0, -1, 0, false},
                    ControlCase{11, 1, 0, 1, false}));

using GroupTest = SetConfigTest;

TEST_F(GroupTest, UntimedGroupIsOneLockBesideThoseOfTheCpuCeilings) {
    Boot();
    Limit(kPower, {{kGroup, 0}, {97, 1}, {3, 1209600}, {1, 1171200}, {40, 7}});
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 0ms 0x40804100=1171 -> 1",
                                        "acq 0 0ms 0x40800000=1209 0x0=7 0x40C00000=1 -> 2"));
    Forget();
    Limit(kPower, {{kGroup, -1}, {97, 3}});
    EXPECT_THAT(HalCalls(), ElementsAre("rel 2 -> 0"));
}

TEST_F(GroupTest, TimedGroupTakesEveryTagUnclampedAndReplacesItsOwnKind) {
    Boot();
    Limit(kPower, {{kGroup, 0}, {97, 1}});
    Limit(kPower, {{kGroup, 2000}, {7, 9000000}, {97, 2}, {97, 3}});
    Limit(kPower, {{kGroup, 500}, {97, 1}});
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 0ms 0x40C00000=1 -> 1",
                                        "acq 0 2000ms 0x40804200=9000 0x40C00000=3 -> 2",
                                        "rel 2 -> 0", "acq 0 500ms 0x40C00000=1 -> 3"));
}

TEST_F(GroupTest, GroupOfCpuCeilingsAloneTakesNoGroupLock) {
    Boot("sm4450");
    Adapter().SetDebug(true);
    Limit(kPower, {{kGroup, 0}, {4, 1900800}, {7, 1900800}});
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 0ms 0x40804000=1900 -> 1"));
}

TEST_F(GroupTest, LongGroupIsHeldThoughItsTextFitsNoSection) {
    Boot();
    Adapter().SetDebug(true);
    std::vector<std::pair<int, int>> tagValues{{kGroup, 0}};
    for (int tag = 200; tag < 300; ++tag) tagValues.emplace_back(tag, 1000000);
    Limit(kPower, tagValues);
    EXPECT_EQ(GetPhone().Events().All<lab::LockAcquire>().at(0).list.size(), 200u);
    EXPECT_THAT(Log(kError),
                Contains("tarQuel: DoGroupPerfSetConfig snprintf_s trace_arg_buf error\n"));
    const auto sections = Sections();
    EXPECT_EQ(std::count(sections.begin(), sections.end(), "end") * 2,
              static_cast<long>(sections.size()));
}

TEST_F(GroupTest, RefusedGroupLockIsReportedWithItsClient) {
    Boot();
    GetPhone().Hal().RefuseNext(1, -1);
    EXPECT_EQ(Limit(kPower, {{kGroup, 300}, {97, 1}}), 0);
    EXPECT_THAT(Log(kError), Contains("tarquel: DoGroupPerfSetConfig failed! clientId = 1, "
                                      "duration = 300, perfHandle = -1\n"));
}
