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
