// The phone's kernel: what each kind of node takes, clamps and refuses.
#include "lab/phone/kernel.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "lab/phone/events.h"

namespace lab {
namespace {

const std::string kCpu = "/sys/devices/system/cpu/";
const std::string kBig = kCpu + "cpu4/cpufreq/";
const std::string kGpu = "/sys/class/kgsl/kgsl-3d0/";
const std::string kBwmon = kCpu + "bus_dcvs/DDR/19091000.qcom,bwmon-ddr/";
const std::string kMemlat = kCpu + "bus_dcvs/LLCC/soc:qcom,memlat:llcc:gold-compute/";
const std::string kSched = "/proc/sys/walt/";
const std::string kGroup = "/dev/cpuctl/foreground/cpu.uclamp.";

class KernelTest : public ::testing::Test {
  protected:
    void Boot(const std::string& device) { mKernel.emplace(LoadDeviceProfile(device), mRecorder); }

    std::unique_ptr<Clock> mClock = MakeVirtualClock();
    Recorder mRecorder{*mClock};
    std::optional<Kernel> mKernel;
};

struct Write {
    std::string path;
    std::string text;
};

// Writes that come first and are taken, then one whose result is looked at.
struct WriteCase {
    std::vector<Write> before;
    Write write;
    int error;
    std::string after;
};

void PrintTo(const WriteCase& c, std::ostream* out) {
    *out << c.write.path << " <- '" << c.write.text << "'";
}

class KernelWrites : public KernelTest, public ::testing::WithParamInterface<WriteCase> {};

TEST_P(KernelWrites, FollowTheNodesRule) {
    Boot("sm8450");
    const WriteCase& c = GetParam();
    for (const Write& write : c.before) ASSERT_EQ(mKernel->Write(write.path, write.text), 0);
    const std::string before = mKernel->Value(c.write.path);

    EXPECT_EQ(mKernel->Write(c.write.path, c.write.text), c.error);

    EXPECT_EQ(mKernel->Value(c.write.path), c.after);
    const NodeAccess access = mRecorder.All<NodeAccess>().back();
    EXPECT_EQ(access.requested, c.write.text);
    EXPECT_EQ(access.before, before);
    EXPECT_EQ(access.after, c.after);
    EXPECT_EQ(access.error, c.error);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(CpuFrequency, KernelWrites, ::testing::Values(
    WriteCase{{}, {kBig + "scaling_max_freq", "1500000"}, 0, "1500000"},  // off the table: kept
    WriteCase{{}, {kBig + "scaling_max_freq", "9999999"}, 0, "2496000"},
    WriteCase{{}, {kBig + "scaling_max_freq", "99999999999999999999"}, 0, "2496000"},
    WriteCase{{}, {kBig + "scaling_max_freq", "1500000 and more"}, 0, "1500000"},
    WriteCase{{}, {kBig + "scaling_max_freq", "-1"}, EINVAL, "2496000"},
    WriteCase{{}, {kBig + "scaling_max_freq", ""}, EINVAL, "2496000"},
    WriteCase{{{kBig + "scaling_min_freq", "1440000"}}, {kBig + "scaling_min_freq", "0"}, 0, "633600"},
    WriteCase{{{kBig + "scaling_max_freq", "998400"}}, {kBig + "scaling_min_freq", "1440000"}, 0, "998400"},
    WriteCase{{}, {kBig + "cpuinfo_max_freq", "1"}, EACCES, "2496000"},
    WriteCase{{}, {kBig + "scaling_cur_freq", "1"}, EACCES, "633600"}));

INSTANTIATE_TEST_SUITE_P(CoresAndWalt, KernelWrites, ::testing::Values(
    WriteCase{{}, {kCpu + "cpu4/core_ctl/min_cpus", "9"}, 0, "3"},
    WriteCase{{{kCpu + "cpu4/core_ctl/max_cpus", "1"}}, {kCpu + "cpu4/core_ctl/min_cpus", "2"}, 0, "2"},
    WriteCase{{}, {kCpu + "cpu4/core_ctl/max_cpus", "x"}, EINVAL, "3"},
    WriteCase{{}, {kBig + "walt/hispeed_freq", "4294967295"}, 0, "4294967295"},
    WriteCase{{}, {kBig + "walt/hispeed_freq", "4294967296"}, EINVAL, "0"},
    WriteCase{{}, {kBig + "walt/rtg_boost_freq", "12x"}, EINVAL, "768000"},
    WriteCase{{}, {kBig + "walt/hispeed_load", "101"}, 0, "100"},
    WriteCase{{}, {kBig + "walt/pl", "on"}, 0, "1"},
    WriteCase{{}, {kBig + "walt/pl", "2"}, EINVAL, "0"}));

INSTANTIATE_TEST_SUITE_P(Scheduler, KernelWrites, ::testing::Values(
    WriteCase{{{kSched + "sched_boost", "3"}}, {kSched + "sched_boost", "2"}, 0, "2"},
    WriteCase{{{kSched + "sched_boost", "3"}, {kSched + "sched_boost", "2"}}, {kSched + "sched_boost", "-2"}, 0, "3"},
    WriteCase{{{kSched + "sched_boost", "1"}, {kSched + "sched_boost", "1"}}, {kSched + "sched_boost", "-1"}, 0, "1"},
    WriteCase{{{kSched + "sched_boost", "1"}, {kSched + "sched_boost", "1"}}, {kSched + "sched_boost", "0"}, 0, "0"},
    WriteCase{{{kSched + "sched_boost", "-1"}}, {kSched + "sched_boost", "1"}, 0, "1"},  // none to drop
    WriteCase{{}, {kSched + "sched_boost", "4"}, EINVAL, "0"},
    WriteCase{{}, {kSched + "sched_upmigrate", "90 88"}, 0, "90\t88"},
    WriteCase{{}, {kSched + "sched_upmigrate", "90"}, EINVAL, "95\t95"},
    WriteCase{{}, {kSched + "sched_upmigrate", "95 84"}, EINVAL, "95\t95"},     // below down
    WriteCase{{}, {kSched + "sched_downmigrate", "85 96"}, EINVAL, "85\t85"},   // above up
    WriteCase{{}, {kSched + "sched_downmigrate", "0 50"}, EINVAL, "85\t85"},
    WriteCase{{}, {kSched + "sched_ravg_window_nr_ticks", "8"}, 0, "8"},
    WriteCase{{}, {kSched + "sched_ravg_window_nr_ticks", "6"}, EINVAL, "4"}));

INSTANTIATE_TEST_SUITE_P(Gpu, KernelWrites, ::testing::Values(
    WriteCase{{}, {kGpu + "devfreq/max_freq", "600000001"}, 0, "600000001"},    // not snapped
    WriteCase{{{kGpu + "devfreq/max_freq", "500000000"}}, {kGpu + "devfreq/max_freq", "0"}, 0, "818000000"},
    WriteCase{{{kGpu + "devfreq/max_freq", "500000000"}}, {kGpu + "devfreq/min_freq", "600000000"}, 0, "500000000"},
    WriteCase{{}, {kGpu + "devfreq/min_freq", "fast"}, EINVAL, "220000000"},
    WriteCase{{}, {kGpu + "min_clock_mhz", "489"}, 0, "492"},
    WriteCase{{}, {kGpu + "min_clock_mhz", "480"}, 0, "220"},                   // no level: ignored
    WriteCase{{}, {kGpu + "max_gpuclk", "735000000"}, 0, "734000000"},
    WriteCase{{}, {kGpu + "max_gpuclk", "700000000"}, ERANGE, "818000000"},
    WriteCase{{}, {kGpu + "max_gpuclk", "700M"}, EINVAL, "818000000"}));

INSTANTIATE_TEST_SUITE_P(Buses, KernelWrites, ::testing::Values(
    WriteCase{{}, {kBwmon + "min_freq", "1"}, 0, "547000"},
    WriteCase{{{kBwmon + "max_freq", "1555000"}}, {kBwmon + "min_freq", "2092000"}, 0, "1555000"},
    WriteCase{{{kBwmon + "min_freq", "1555000"}}, {kBwmon + "max_freq", "768000"}, 0, "1555000"},
    WriteCase{{}, {kBwmon + "max_freq", "-5"}, EINVAL, "3196000"},
    WriteCase{{}, {kBwmon + "hist_memory", "91"}, 0, "90"},
    WriteCase{{}, {kBwmon + "io_percent", "0"}, 0, "1"},
    WriteCase{{}, {kBwmon + "sample_ms", "51"}, 0, "50"},
    WriteCase{{}, {kMemlat + "max_freq", "9999999"}, 0, "600000"},              // its own range
    WriteCase{{}, {kMemlat + "sample_ms", "4"}, ENOENT, ""}));

INSTANTIATE_TEST_SUITE_P(Clamps, KernelWrites, ::testing::Values(
    WriteCase{{}, {kGroup + "min", "40"}, 0, "40.00"},
    WriteCase{{}, {kGroup + "min", "12.345"}, 0, "12.35"},
    WriteCase{{}, {kGroup + "max", "100"}, 0, "max"},
    WriteCase{{{kGroup + "min", "40"}}, {kGroup + "min", "max"}, 0, "max"},
    WriteCase{{}, {kGroup + "max", "100.01"}, ERANGE, "max"},
    WriteCase{{}, {kGroup + "min", "-1"}, ERANGE, "0.00"},
    WriteCase{{}, {kGroup + "min", "half"}, EINVAL, "0.00"}));
// clang-format on

TEST_F(KernelTest, RaisingTheMaximumBringsTheMinimumBack) {
    Boot("sm8450");
    mKernel->Write(kBig + "scaling_min_freq", "1440000");
    mKernel->Write(kBig + "scaling_max_freq", "998400");
    ASSERT_EQ(mKernel->Value(kBig + "scaling_min_freq"), "998400");

    mKernel->Write(kBig + "scaling_max_freq", "2496000");

    EXPECT_EQ(mKernel->Value(kBig + "scaling_min_freq"), "1440000");
    EXPECT_EQ(mKernel->Value(kBig + "scaling_cur_freq"), "1440000");
}

TEST_F(KernelTest, CpusOfAClusterShareTheirPolicyAndItsFile) {
    Boot("sm4450");
    // CPU 4 is a little one here: its walt folder is that of CPU 0.
    mKernel->Write(kCpu + "cpu4/cpufreq/walt/hispeed_freq", "1094400");

    EXPECT_EQ(mKernel->Value(kCpu + "cpu0/cpufreq/walt/hispeed_freq"), "1094400");
    EXPECT_EQ(mKernel->Value(kCpu + "cpu6/cpufreq/walt/hispeed_freq"), "0");
    EXPECT_FALSE(mKernel->Has(kCpu + "cpu1/core_ctl/min_cpus"));
    EXPECT_TRUE(mKernel->Has(kCpu + "cpu6/core_ctl/min_cpus"));
    EXPECT_FALSE(mKernel->Has(kMemlat + "max_freq"));
    std::string text;
    std::getline(std::ifstream(mKernel->Folder() + kCpu + "cpu3/cpufreq/walt/hispeed_freq"), text);
    EXPECT_EQ(text, "1094400");

    mKernel->Remove(kCpu + "cpu0/cpufreq/walt/hispeed_freq");

    EXPECT_EQ(mKernel->Open(kCpu + "cpu0/cpufreq/walt/hispeed_freq", false), ENOENT);
    EXPECT_EQ(mKernel->Open(kCpu + "cpu1/cpufreq/walt/hispeed_freq", false), 0);
}

// A boundary between two clusters takes one number; a read gives two all the same.
TEST_F(KernelTest, TwoClustersTakeOneMigrationMargin) {
    Boot("sm4450");

    EXPECT_EQ(mKernel->Write(kSched + "sched_upmigrate", "90 90"), EINVAL);
    EXPECT_EQ(mKernel->Write(kSched + "sched_upmigrate", "90"), 0);

    EXPECT_EQ(mKernel->Value(kSched + "sched_upmigrate"), "90\t95");
}

TEST_F(KernelTest, HalRequestsStandBesideTheProgramsAndGoWithoutTrace) {
    Boot("sm8450");
    const std::string node = kBig + "scaling_max_freq";
    mKernel->Write(node, "1766400");
    mKernel->Write(node, "1324800", true);
    ASSERT_EQ(mKernel->Value(node), "1324800");
    mKernel->Write(node, "2112000");  // the lower request still counts
    ASSERT_EQ(mKernel->Value(node), "1324800");

    mKernel->Withdraw(node, Kernel::Writer::kHal);

    EXPECT_EQ(mKernel->Value(node), "2112000");
    EXPECT_TRUE(mRecorder.All<NodeAccess>().back().byHal);
}

// In the program's place the HAL can lift what the program has lowered.
TEST_F(KernelTest, InPlaceWriteGivesWayToTheProgramsLatest) {
    Boot("sm8450");
    const std::string node = kBig + "scaling_max_freq";
    mKernel->Write(node, "1324800");
    mKernel->Write(node, "2496000", Kernel::Writer::kHalInPlace);
    ASSERT_EQ(mKernel->Value(node), "2496000");
    mKernel->Write(node, "1440000");
    ASSERT_EQ(mKernel->Value(node), "1440000");
    mKernel->Write(node, "2342400", Kernel::Writer::kHalInPlace);
    const auto requests = mKernel->RequestsOn(node);
    ASSERT_TRUE(requests.has_value());
    EXPECT_EQ(requests->program, 1440000);
    EXPECT_EQ(requests->inPlace, 2342400);

    mKernel->Withdraw(node, Kernel::Writer::kHalInPlace);

    EXPECT_EQ(mKernel->Value(node), "1440000");
}

TEST_F(KernelTest, ForcedTextStaysUntilTheNextAcceptedWrite) {
    Boot("sm8450");
    const std::string node = kBig + "scaling_max_freq";
    mKernel->Force(node, "no number");
    mKernel->Force("/sys/module/extra", "7");

    EXPECT_EQ(mKernel->Write(node, "x"), EINVAL);
    EXPECT_EQ(mKernel->Value(node), "no number");
    EXPECT_EQ(mKernel->Write(node, "1440000"), 0);
    EXPECT_EQ(mKernel->Value(node), "1440000");
    EXPECT_EQ(mKernel->Value("/sys/module/extra"), "7");
}

TEST_F(KernelTest, FolderGoesWithTheKernel) {
    Boot("sm4450");
    const std::string folder = mKernel->Folder();
    ASSERT_TRUE(std::filesystem::exists(folder));

    mKernel.reset();

    EXPECT_FALSE(std::filesystem::exists(folder));
}

}  // namespace
}  // namespace lab
