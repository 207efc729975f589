// Arbitration of the limits of several clients and scene commands.
#include <gmock/gmock.h>

#include <climits>

#include "tests/support/plugin_test.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kPower = 1;
constexpr int kTemp = 2;
constexpr int kEapa = 3;
constexpr int kCamera = 4;
constexpr int kGroup = 98;
constexpr int kOn = 0;
constexpr int kOff = -1;

// Prime cluster ceiling; its opcode for the HAL takes MHz.
constexpr int kPrimeMax = 7;

}  // namespace

class ArbitrationTest : public PluginTest {
  protected:
    void SetUp() override { Boot(); }

    // The MHz of the prime ceiling's live lock, 0 when it has none.
    int PrimeCeiling() {
        int mhz = 0;
        for (const auto& lock : GetPhone().Hal().Held()) {
            if (static_cast<unsigned>(lock.list[0]) == 0x40804200) mhz = lock.list[1];
        }
        return mhz;
    }
};

TEST_F(ArbitrationTest, LowestCeilingWinsUntilItIsLifted) {
    Limit(kEapa, {{kPrimeMax, 2054400}});
    EXPECT_EQ(PrimeCeiling(), 2054);
    Limit(kPower, {{kPrimeMax, 2400000}});
    EXPECT_EQ(PrimeCeiling(), 2054);
    // The power client's own, higher request counts from now on.
    Limit(kEapa, {{kPrimeMax, 0}});
    EXPECT_EQ(PrimeCeiling(), 2400);
    Limit(kPower, {{kPrimeMax, 0}});
    EXPECT_EQ(PrimeCeiling(), 0);
    EXPECT_EQ(Node("/sys/devices/system/cpu/cpu7/cpufreq/scaling_max_freq"), "2995200");
    EXPECT_TRUE(GetPhone().Hal().Held().empty());
}

TEST_F(ArbitrationTest, CameraCountsOnlyAsAnUntimedGroup) {
    Limit(kEapa, {{kPrimeMax, 2054400}});
    Limit(kCamera, {{kPrimeMax, 2400000}});
    EXPECT_EQ(PrimeCeiling(), 2400);
    Limit(kPower, {{kPrimeMax, 0}});
    EXPECT_EQ(PrimeCeiling(), 2054);

    Limit(kCamera, {{kGroup, 0}, {kPrimeMax, 1843200}});
    EXPECT_EQ(PrimeCeiling(), 1843);
    Limit(kPower, {{kPrimeMax, 2400000}});
    EXPECT_EQ(PrimeCeiling(), 1843);
}

TEST_F(ArbitrationTest, SceneCeilingHoldsFromItsStartToItsEnd) {
    Limit(kPower, {{kPrimeMax, 2400000}});
    Scene(12288, {{kPrimeMax, 1843200}}, kOn);
    Scene(12289, {{kPrimeMax, 2054400}}, kOn);
    EXPECT_EQ(PrimeCeiling(), 1843);
    Limit(kPower, {{kPrimeMax, 2265600}});
    EXPECT_EQ(PrimeCeiling(), 1843);
    Scene(12288, {{kPrimeMax, 1843200}}, kOff);
    EXPECT_EQ(PrimeCeiling(), 2054);
    Scene(12289, {{kPrimeMax, 2054400}}, kOff);
    EXPECT_EQ(PrimeCeiling(), 2265);
}

TEST_F(ArbitrationTest, HighestSceneFloorWins) {
    Scene(12288, {{6, 1171200}}, kOn);
    Scene(12289, {{6, 1401600}}, kOn);
    Scene(12288, {{6, 1171200}}, kOn);
    EXPECT_EQ(HalCalls().back(), "acq 0 0ms 0x40800200=1401 -> 3");
    Scene(12289, {{6, 1401600}}, kOff);
    EXPECT_EQ(HalCalls().back(), "acq 0 0ms 0x40800200=1171 -> 4");
    Scene(12288, {{6, 1171200}}, kOff);
    // Nobody asks any more: the default floor, as the kernel had it.
    EXPECT_EQ(HalCalls().back(), "acq 0 0ms 0x40800200=806 -> 5");
}

TEST_F(ArbitrationTest, SceneWithoutLimitsBehindItEndsWithTheDefault) {
    Scene(12288, {{kPrimeMax, 1843200}}, kOn);
    Scene(12288, {{kPrimeMax, 1843200}}, kOff);
    EXPECT_EQ(PrimeCeiling(), 0);
    EXPECT_TRUE(GetPhone().Hal().Held().empty());
}

TEST_F(ArbitrationTest, ManyScenesThatEndedCostAndChangeNothing) {
    for (int cmdId = 12288; cmdId <= 13568; ++cmdId) {
        Scene(cmdId, {{kPrimeMax, 1843200}}, kOn);
        Scene(cmdId, {{kPrimeMax, 1843200}}, kOff);
    }
    EXPECT_TRUE(GetPhone().Hal().Held().empty());
    Scene(12288, {{kPrimeMax, 2400000}}, kOn);
    EXPECT_EQ(PrimeCeiling(), 2400);
}

TEST_F(ArbitrationTest, MalformedRequestsAreRefused) {
    const int one = 1;
    std::vector<std::pair<int, int>> longest(1024, {97, 1});
    EXPECT_EQ(Limit(kPower, longest), 0);
    EXPECT_EQ(GetPhone().Events().All<lab::LockAcquire>().size(), 1024u);
    std::vector<std::pair<int, int>> scene(134, {6, 960000});
    EXPECT_EQ(Scene(12288, scene, kOn), 0);
    scene.emplace_back(6, 960000);
    EXPECT_EQ(Scene(12288, scene, kOn), -1);
    Forget();
    longest.emplace_back(97, 1);
    EXPECT_EQ(Limit(kPower, longest), -1);
    Forget();
    EXPECT_EQ(Adapter().DoPerfSetConfig(1, -1, &one, &one), -1);
    EXPECT_EQ(Adapter().DoPerfSetConfig(1, INT_MAX, &one, &one), -1);
    EXPECT_EQ(Adapter().DoPerfSetConfig(1, 1, nullptr, &one), -1);
    EXPECT_EQ(Adapter().DoPerfSetConfig(1, 1, &one, nullptr), -1);
    EXPECT_EQ(Log(kError).size(), 4u);
    EXPECT_THAT(HalCalls(), IsEmpty());
}

TEST_F(ArbitrationTest, ThermalRequestKeepsTheCeilingsThatItLeavesOut) {
    Limit(kTemp, {{57, 6}});
    Limit(kTemp, {{1, 1171200}, {kPrimeMax, 2054400}});
    Forget();
    Limit(kTemp, {{1, 1075200}});
    // The write-back restores what the last requests gave, but for the tag just written.
    EXPECT_THAT(NodeWrites(),
                ElementsAre("/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq=1075200",
                            "/sys/devices/system/cpu/cpu7/cpufreq/scaling_max_freq=2054400"));
}
