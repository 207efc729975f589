// The perf HAL: how locks live and end, and what they make of the phone's nodes.
#include "lab/hal/perf_hal.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "lab/hal/opcode_drives.h"
#include "lab/phone/events.h"
#include "lab/phone/kernel.h"

namespace lab {
namespace {

using std::chrono::milliseconds;

constexpr int kBigMinMhz = 0x40800000;
constexpr int kBigMaxMhz = 0x40804000;
constexpr int kBigScalingMaxKhz = 0x40814000;
constexpr int kPrimeMinMhz = 0x40800200;
constexpr int kGpuMaxMhz = 0x42810000;
constexpr int kSchedBoost = 0x40C00000;
constexpr int kUpMigrate = 0x40C1C000;
constexpr int kUpMigratePrime = 0x40C1C200;
constexpr int kDownMigrate = 0x40C20000;
constexpr int kDdrMin = 0x4303C000;
constexpr int kDdrMax = 0x43040000;
constexpr int kHispeedLoadBig = 0x41440000;
constexpr int kCoresMaxBig = 0x41004000;
constexpr int kForegroundMin = 0x44400000;
constexpr int kNoNode = 0x42808000;

const std::string kCpu = "/sys/devices/system/cpu/";
const std::string kBig = kCpu + "cpu4/cpufreq/";
const std::string kDdr = kCpu + "bus_dcvs/DDR/19091000.qcom,bwmon-ddr/";
const std::string kBoost = "/proc/sys/walt/sched_boost";
const std::string kUp = "/proc/sys/walt/sched_upmigrate";

class PerfHalTest : public ::testing::Test {
  protected:
    int Acquire(int handle, int durationMs, std::vector<int> list) {
        return mHal.Acquire(handle, durationMs, list.data(), static_cast<int>(list.size()));
    }

    std::map<std::string, std::string> State() const {
        std::map<std::string, std::string> state;
        for (const std::string& path : mKernel.Paths()) state[path] = mKernel.Value(path);
        return state;
    }

    std::string Value(const std::string& path) const { return mKernel.Value(path); }

    std::unique_ptr<Clock> mClock = MakeVirtualClock();
    Recorder mRecorder{*mClock};
    Kernel mKernel{LoadDeviceProfile("sm8450"), mRecorder};
    PerfHal mHal{*mClock, mRecorder, mKernel};
};

TEST_F(PerfHalTest, LockLastsUntilReleased) {
    const int handle = Acquire(0, 0, {kBigMinMhz, 1440});
    EXPECT_EQ(handle, 1);
    mClock->AdvanceTo(std::chrono::hours(24));
    EXPECT_EQ(Value(kBig + "scaling_min_freq"), "1440000");

    EXPECT_EQ(mHal.Release(handle), 0);
    EXPECT_EQ(mHal.Release(handle), -1);

    EXPECT_EQ(Value(kBig + "scaling_min_freq"), "633600");
    EXPECT_FALSE(mRecorder.All<LockRelease>().back().wasHeld);
    EXPECT_TRUE(mHal.Held().empty());
}

TEST_F(PerfHalTest, RenewalGivesANewListAndANewEnd) {
    const int handle = Acquire(0, 1000, {kBigMinMhz, 1440, kSchedBoost, 1});
    mClock->AdvanceTo(milliseconds(600));
    EXPECT_EQ(Acquire(handle, 1000, {kBigMinMhz, 998, kPrimeMinMhz, 1171}), handle);
    EXPECT_EQ(Value(kBig + "scaling_min_freq"), "998400");
    EXPECT_EQ(Value(kBoost), "0");

    mClock->AdvanceTo(milliseconds(1599));
    ASSERT_EQ(mHal.Held().size(), 1u);
    EXPECT_EQ(mHal.Held().front().until, milliseconds(1600));
    EXPECT_EQ(mHal.Held().front().since, milliseconds(0));
    mClock->AdvanceTo(milliseconds(1600));

    EXPECT_TRUE(mHal.Held().empty());
    EXPECT_EQ(mRecorder.All<LockExpire>().size(), 1u);
    EXPECT_EQ(Value(kCpu + "cpu7/cpufreq/scaling_min_freq"), "806400");
    EXPECT_EQ(Acquire(handle, 0, {kBigMinMhz, 998}), 2) << "a handle that ran out is not renewed";
}

TEST_F(PerfHalTest, RefusalsTakeNoLock) {
    mHal.RefuseNext(1, 0);
    EXPECT_EQ(Acquire(0, 0, {kBigMinMhz, 1440}), 0);
    EXPECT_EQ(Acquire(0, 0, {kBigMinMhz}), -1);
    EXPECT_EQ(Acquire(0, -1, {kBigMinMhz, 1440}), -1);
    EXPECT_EQ(mHal.Acquire(0, 0, nullptr, 2), -1);

    EXPECT_TRUE(mHal.Held().empty());
    EXPECT_EQ(Value(kBig + "scaling_min_freq"), "633600");
    EXPECT_EQ(mRecorder.All<LockAcquire>().size(), 4u);
    EXPECT_EQ(Acquire(0, 0, {kBigMinMhz, 1440}), 1) << "a refusal uses up no handle";
}

// Two locks on one node, and the order in which they go.
struct Contest {
    std::string path;
    int opcode;
    int first;
    int second;
    std::string both;
    std::string firstAlone;
    std::string secondAlone;
};

void PrintTo(const Contest& c, std::ostream* out) {
    *out << c.path;
}

class TwoLocks : public PerfHalTest, public ::testing::WithParamInterface<Contest> {};

TEST_P(TwoLocks, ResolveAndLeaveNoTrace) {
    const Contest& c = GetParam();
    const auto before = State();
    for (const bool isFirstReleasedFirst : {true, false}) {
        const int first = Acquire(0, 0, {c.opcode, c.first});
        EXPECT_EQ(Value(c.path), c.firstAlone);
        const int second = Acquire(0, 0, {c.opcode, c.second});
        EXPECT_EQ(Value(c.path), c.both);
        mHal.Release(isFirstReleasedFirst ? first : second);
        EXPECT_EQ(Value(c.path), isFirstReleasedFirst ? c.secondAlone : c.firstAlone);
        mHal.Release(isFirstReleasedFirst ? second : first);
        EXPECT_EQ(State(), before);
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(PerfHal, TwoLocks, ::testing::Values(
    Contest{kBig + "scaling_min_freq", kBigMinMhz, 1440, 998, "1440000", "1440000", "998400"},
    Contest{kBig + "scaling_max_freq", kBigMaxMhz, 1440, 998, "998400", "1440000", "998400"},
    Contest{kBig + "scaling_max_freq", kBigScalingMaxKhz, 1500000, 998400, "998400", "1500000", "998400"},
    Contest{"/sys/class/kgsl/kgsl-3d0/devfreq/max_freq", kGpuMaxMhz, 600, 350, "350000000", "600000000", "350000000"},
    Contest{kDdr + "min_freq", kDdrMin, 768000, 2092000, "2092000", "768000", "2092000"},
    Contest{kBig + "walt/hispeed_load", kHispeedLoadBig, 80, 85, "85", "80", "85"},
    Contest{kCpu + "cpu4/core_ctl/max_cpus", kCoresMaxBig, 2, 1, "1", "2", "1"},
    Contest{"/dev/cpuctl/foreground/cpu.uclamp.min", kForegroundMin, 20, 50, "50.00", "20.00", "50.00"},
    Contest{kUp, kUpMigratePrime, 90, 87, "95\t87", "95\t90", "95\t87"},
    Contest{kBoost, kSchedBoost, 3, 2, "2", "3", "2"}));
// clang-format on

// What the HAL makes of a frequency in MHz.
struct Step {
    int opcode;
    int mhz;
    std::string value;
};
class FrequencySteps : public PerfHalTest, public ::testing::WithParamInterface<Step> {};

TEST_P(FrequencySteps, MinimaGoUpAndMaximaGoDown) {
    const std::string node =
        GetParam().opcode % 0x8000 == 0 ? "scaling_min_freq" : "scaling_max_freq";
    Acquire(0, 0, {GetParam().opcode, GetParam().mhz});
    EXPECT_EQ(Value(kBig + node), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    PerfHal, FrequencySteps,
    ::testing::Values(Step{kBigMinMhz, 633, "633600"}, Step{kBigMinMhz, 1209, "1209600"},
                      Step{kBigMinMhz, 1210, "1324800"}, Step{kBigMinMhz, 9000, "2496000"},
                      Step{kBigMinMhz, -1, "2496000"}, Step{kBigMaxMhz, 1209, "1209600"},
                      Step{kBigMaxMhz, 1208, "1113600"}, Step{kBigMaxMhz, 1, "633600"},
                      Step{kBigMaxMhz, -1, "2496000"}));

TEST_F(PerfHalTest, ProgramsOwnWritesSurviveALock) {
    mKernel.Write(kBig + "scaling_max_freq", "1766400");
    mKernel.Write(kBoost, "1");
    const auto before = State();
    const int handle = Acquire(0, 0, {kBigMaxMhz, 998, kSchedBoost, 1, kHispeedLoadBig, 50});
    mHal.Release(handle);
    EXPECT_EQ(State(), before);

    const int another = Acquire(0, 0, {kBigMaxMhz, 998, kHispeedLoadBig, 50});
    mKernel.Write(kBig + "scaling_max_freq", "2112000");
    mKernel.Write(kBig + "walt/hispeed_load", "70");
    mHal.Release(another);

    EXPECT_EQ(Value(kBig + "scaling_max_freq"), "2112000");
    EXPECT_EQ(Value(kBig + "walt/hispeed_load"), "70");
}

// The opcode in kHz writes where programs write, and stands above other locks' ceilings: that is
// how a boost breaks through a limit.
TEST_F(PerfHalTest, ScalingMaximumLiftsEveryCeilingForItsTime) {
    const std::string node = kBig + "scaling_max_freq";
    mKernel.Write(node, "1324800");
    const int limit = Acquire(0, 0, {kBigMaxMhz, 998});
    Acquire(0, 500, {kBigMaxMhz, 2342, kBigScalingMaxKhz, 2496000});
    EXPECT_EQ(Value(node), "2496000");

    mClock->AdvanceTo(milliseconds(500));
    EXPECT_EQ(Value(node), "998400");

    mHal.Release(limit);
    EXPECT_EQ(Value(node), "1324800");
}

// Up-migration may not fall below down-migration, nor a bus minimum exceed its maximum: undoing
// passes through the states that the lock came by, and a value that did not fit is put again when
// its neighbour moves.
TEST_F(PerfHalTest, NodesThatCheckEachOtherComeBackToo) {
    const auto before = State();
    const int margins = Acquire(0, 0, {kDownMigrate, 40, kUpMigrate, 50});
    EXPECT_EQ(Value(kUp), "50\t95");
    const int low = Acquire(0, 0, {kDdrMax, 768000});
    const int high = Acquire(0, 0, {kDdrMin, 1555000});
    EXPECT_EQ(Value(kDdr + "min_freq"), "768000");

    mHal.Release(low);
    EXPECT_EQ(Value(kDdr + "min_freq"), "1555000");
    mHal.Release(high);
    mHal.Release(margins);

    EXPECT_EQ(State(), before);
}

TEST_F(PerfHalTest, OpcodeWithoutNodeIsHeldAndChangesNothing) {
    const auto before = State();
    const int handle = Acquire(0, 0, {kNoNode, 3, kSchedBoost, 0});
    EXPECT_EQ(State(), before);
    EXPECT_EQ(mHal.Held().size(), 1u);
    EXPECT_TRUE(mRecorder.All<NodeAccess>().empty());
    EXPECT_EQ(mHal.Release(handle), 0);
}

TEST_F(PerfHalTest, ClaimsTellWhoHoldsANodeAndWhoWins) {
    const int first = Acquire(0, 0, {kBigMaxMhz, 1440});
    const int second = Acquire(0, 0, {kBigMaxMhz, 998});
    const std::string node = kCpu + "cpu6/cpufreq/scaling_max_freq";

    auto claims = mHal.ClaimsOn(node);

    ASSERT_EQ(claims.size(), 2u);
    EXPECT_EQ(claims[0].handle, first);
    EXPECT_EQ(claims[0].nodeValue, 1440000);
    EXPECT_FALSE(claims[0].wins);
    EXPECT_EQ(claims[1].handle, second);
    EXPECT_EQ(claims[1].nodeValue, 998400);
    EXPECT_TRUE(claims[1].wins);

    Acquire(0, 0, {kBigScalingMaxKhz, 2342400});
    claims = mHal.ClaimsOn(node);

    ASSERT_EQ(claims.size(), 3u);
    EXPECT_FALSE(claims[1].wins);
    EXPECT_TRUE(claims[2].isInPlace);
    EXPECT_TRUE(claims[2].wins);
}

// Which node an opcode drives follows the device's clusters.
TEST(OpcodeDrives, FollowTheDevice) {
    const auto path = [](int opcode, const char* device) {
        const auto drives = DrivesOf(static_cast<uint32_t>(opcode), LoadDeviceProfile(device));
        return drives.empty() ? "" : drives.front().path;
    };
    const std::string hispeed = "/cpufreq/walt/hispeed_load";
    EXPECT_EQ(path(kBigMinMhz, "sm8450"), kCpu + "cpu4/cpufreq/scaling_min_freq");
    EXPECT_EQ(path(kBigMinMhz, "sm4450"), kCpu + "cpu6/cpufreq/scaling_min_freq");
    EXPECT_EQ(path(kHispeedLoadBig, "sm8450"), kCpu + "cpu4" + hispeed);
    EXPECT_EQ(path(kHispeedLoadBig, "sm4450"), kCpu + "cpu6" + hispeed);
    EXPECT_EQ(path(kPrimeMinMhz, "sm4450"), "");
    EXPECT_EQ(path(kUpMigratePrime, "sm4450"), "");
    EXPECT_EQ(path(kBigScalingMaxKhz, "sm4450"), kCpu + "cpu6/cpufreq/scaling_max_freq");
    EXPECT_EQ(path(0x43010000, "sm8450"), path(kDdrMin, "sm8450")) << "the other bus variant's";
}

}  // namespace
}  // namespace lab
