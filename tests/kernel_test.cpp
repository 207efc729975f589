// The phone's kernel: what each kind of node takes, clamps and refuses.
#include "lab/phone/kernel.h"

#include <gmock/gmock.h>
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
    WriteCase{{}, {kBig + "scaling_max_freq", " \t1500000 and more"}, 0, "1500000"},
    WriteCase{{}, {kBig + "scaling_max_freq", "-1"}, EINVAL, "2496000"},
    WriteCase{{}, {kBig + "scaling_max_freq", "+1500000"}, EINVAL, "2496000"},
    WriteCase{{}, {kBig + "scaling_max_freq", " "}, EINVAL, "2496000"},
    WriteCase{{}, {kBig + "scaling_max_freq", ""}, 0, "2496000"},         // nothing happens
    // No step between the ends: the ceiling gives way to the next one.
    WriteCase{{{kBig + "scaling_min_freq", "1000000"}}, {kBig + "scaling_max_freq", "1000000"}, 0, "1113600"},
    WriteCase{{{kBig + "scaling_max_freq", "1200000"}}, {kBig + "scaling_min_freq", "1200000"}, 0, "1200000"},
    // Requests have 32 bits with a sign, and -1 is none.
    WriteCase{{}, {kBig + "scaling_max_freq", "4294967296"}, 0, "633600"},
    WriteCase{{}, {kBig + "scaling_max_freq", "4296467296"}, 0, "1500000"},
    WriteCase{{}, {kBig + "scaling_max_freq", "18446744073711051616"}, 0, "1500000"},
    WriteCase{{}, {kBig + "scaling_max_freq", "2147483648"}, 0, "2496000"},
    WriteCase{{}, {kBig + "scaling_min_freq", "2147483648"}, 0, "2496000"},
    WriteCase{{{kBig + "scaling_min_freq", "1440000"}}, {kBig + "scaling_min_freq", "4294967295"}, 0, "633600"},
    WriteCase{{{kBig + "scaling_min_freq", "1440000"}}, {kBig + "scaling_min_freq", "0"}, 0, "633600"},
    WriteCase{{{kBig + "scaling_max_freq", "998400"}}, {kBig + "scaling_min_freq", "1440000"}, 0, "998400"},
    WriteCase{{}, {kBig + "cpuinfo_max_freq", "1"}, EACCES, "2496000"},
    WriteCase{{}, {kBig + "scaling_cur_freq", "1"}, EACCES, "633600"}));

INSTANTIATE_TEST_SUITE_P(CoresAndWalt, KernelWrites, ::testing::Values(
    WriteCase{{}, {kCpu + "cpu4/core_ctl/min_cpus", "9"}, 0, "3"},
    WriteCase{{{kCpu + "cpu4/core_ctl/max_cpus", "1"}}, {kCpu + "cpu4/core_ctl/min_cpus", "2"}, 0, "2"},
    WriteCase{{}, {kCpu + "cpu4/core_ctl/max_cpus", "x"}, EINVAL, "3"},
    WriteCase{{}, {kCpu + "cpu4/core_ctl/max_cpus", "4294967298"}, 0, "2"},
    WriteCase{{}, {kBig + "walt/hispeed_freq", "4294967295"}, 0, "4294967295"},
    WriteCase{{}, {kBig + "walt/hispeed_freq", "4294967296"}, EINVAL, "0"},
    WriteCase{{}, {kBig + "walt/rtg_boost_freq", "12x"}, EINVAL, "768000"},
    WriteCase{{}, {kBig + "walt/rtg_boost_freq", " 12"}, EINVAL, "768000"},
    WriteCase{{}, {kBig + "walt/rtg_boost_freq", std::string("+12\n\0 6", 7)}, 0, "12"},
    WriteCase{{}, {kBig + "walt/hispeed_load", "101"}, 0, "100"},
    WriteCase{{}, {kBig + "walt/pl", "on"}, 0, "1"},
    WriteCase{{}, {kBig + "walt/pl", "true"}, EINVAL, "0"},
    WriteCase{{}, {kBig + "walt/pl", "2"}, EINVAL, "0"}));

INSTANTIATE_TEST_SUITE_P(Scheduler, KernelWrites, ::testing::Values(
    WriteCase{{{kSched + "sched_boost", "3"}}, {kSched + "sched_boost", "2"}, 0, "2"},
    WriteCase{{{kSched + "sched_boost", "3"}, {kSched + "sched_boost", "2"}}, {kSched + "sched_boost", "-2"}, 0, "3"},
    WriteCase{{{kSched + "sched_boost", "1"}, {kSched + "sched_boost", "1"}}, {kSched + "sched_boost", "-1"}, 0, "1"},
    WriteCase{{{kSched + "sched_boost", "1"}, {kSched + "sched_boost", "1"}}, {kSched + "sched_boost", "0"}, 0, "0"},
    WriteCase{{{kSched + "sched_boost", "-1"}}, {kSched + "sched_boost", "1"}, 0, "1"},  // none to drop
    WriteCase{{}, {kSched + "sched_boost", "4"}, EINVAL, "0"},
    WriteCase{{}, {kSched + "sched_boost", "2 1"}, 0, "2"},
    WriteCase{{}, {kSched + "sched_boost", "-"}, EINVAL, "0"},
    WriteCase{{}, {kSched + "sched_boost", " "}, EINVAL, "0"},
    WriteCase{{}, {kSched + "sched_boost", ""}, 0, "0"},
    WriteCase{{}, {kSched + "sched_upmigrate", "90 88"}, 0, "90\t88"},
    WriteCase{{}, {kSched + "sched_upmigrate", "90"}, 0, "90\t95"},            // the first alone
    WriteCase{{}, {kSched + "sched_upmigrate", "90 x"}, EINVAL, "90\t95"},     // and here, too
    WriteCase{{}, {kSched + "sched_upmigrate", "95 84"}, EINVAL, "95\t95"},     // below down
    WriteCase{{}, {kSched + "sched_downmigrate", "85 96"}, EINVAL, "85\t85"},   // above up
    WriteCase{{}, {kSched + "sched_downmigrate", "0 50"}, EINVAL, "85\t85"},
    WriteCase{{}, {kSched + "sched_ravg_window_nr_ticks", "8"}, 0, "8"},
    WriteCase{{}, {kSched + "sched_ravg_window_nr_ticks", "0x5\n"}, 0, "5"},
    WriteCase{{}, {kSched + "sched_ravg_window_nr_ticks", "010"}, 0, "8"},
    WriteCase{{}, {kSched + "sched_ravg_window_nr_ticks", "08"}, EINVAL, "4"},
    WriteCase{{}, {kSched + "sched_ravg_window_nr_ticks", "5x"}, EINVAL, "4"},
    WriteCase{{}, {kSched + "sched_ravg_window_nr_ticks", std::string("5\0", 2)}, EINVAL, "4"},
    WriteCase{{}, {kSched + "sched_ravg_window_nr_ticks", "4294967301"}, EINVAL, "4"},
    WriteCase{{}, {kSched + "sched_ravg_window_nr_ticks", "6"}, EINVAL, "4"}));

INSTANTIATE_TEST_SUITE_P(Gpu, KernelWrites, ::testing::Values(
    WriteCase{{}, {kGpu + "devfreq/max_freq", "600000001"}, 0, "600001000"},    // to kHz, not snapped
    WriteCase{{}, {kGpu + "devfreq/min_freq", "300000999"}, 0, "300000000"},
    WriteCase{{}, {kGpu + "devfreq/max_freq", "1"}, 0, "1000"},                 // below the table
    WriteCase{{{kGpu + "devfreq/max_freq", "1"}}, {kGpu + "devfreq/min_freq", "350000000"}, 0, "1000"},
    WriteCase{{}, {kGpu + "devfreq/max_freq", "3000000000000"}, 0, "818000000"},
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
    WriteCase{{}, {kGroup + "max", "99.96"}, 0, "max"},                         // 1024 of 1024
    WriteCase{{}, {kGroup + "max", "99.95"}, 0, "99.95"},
    WriteCase{{}, {kGroup + "min", "5%"}, 0, "5.00"},
    WriteCase{{}, {kGroup + "min", "5e1"}, 0, "5.00"},
    WriteCase{{}, {kGroup + "min", " 5 6"}, 0, "5.00"},
    WriteCase{{}, {kGroup + "min", "0x5"}, 0, "0.00"},
    WriteCase{{}, {kGroup + "min", "1.2.3"}, 0, "1.20"},
    WriteCase{{}, {kGroup + "min", "1.995"}, 0, "2.00"},
    WriteCase{{}, {kGroup + "min", "1.-5"}, EINVAL, "0.00"},
    WriteCase{{}, {kGroup + "min", ".5"}, EINVAL, "0.00"},
    WriteCase{{}, {kGroup + "min", "+5"}, EINVAL, "0.00"},
    WriteCase{{}, {kGroup + "min", "max\n"}, 0, "max"},
    WriteCase{{}, {kGroup + "min", "maximum"}, EINVAL, "0.00"},
    WriteCase{{{kGroup + "min", "40"}}, {kGroup + "min", ""}, 0, "40.00"},
    WriteCase{{}, {kGroup + "min", "5.0000000000000000001"}, ERANGE, "0.00"},   // divided by 32 bits
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

    EXPECT_EQ(mKernel->Write(kSched + "sched_upmigrate", "90"), 0);
    EXPECT_EQ(mKernel->Value(kSched + "sched_upmigrate"), "90\t95");
    EXPECT_EQ(mKernel->WriteAt(kSched + "sched_upmigrate", "91 92", 0), 3) << "up to the second";
    EXPECT_EQ(mKernel->Value(kSched + "sched_upmigrate"), "91\t95");
}

// The kernel looks at the first page of what is written to sysfs; /proc/sys at nothing that is
// written behind the beginning.
TEST_F(KernelTest, PlaceAndLengthOfAWriteCountInTheirOwnWay) {
    Boot("sm8450");
    const std::string ticks = kSched + "sched_ravg_window_nr_ticks";
    const std::string longText = "1440000" + std::string(5000, ' ');

    EXPECT_EQ(mKernel->WriteAt(ticks, "5", 1), 1);
    EXPECT_EQ(mKernel->Value(ticks), "4");
    EXPECT_EQ(mKernel->WriteAt(kBig + "scaling_max_freq", longText, 7), 4096);
    EXPECT_EQ(mKernel->Value(kBig + "scaling_max_freq"), "1440000");
    EXPECT_EQ(mKernel->WriteAt(kGroup + "min", longText, 0), -E2BIG);
}

// What holds for the limits of a cluster none of whose CPUs runs.
TEST_F(KernelTest, OfflineClusterRefusesLimitsAndKeepsWhatItHad) {
    Boot("sm8450");
    const std::string max = kBig + "scaling_max_freq";
    const auto setOnline = [this](int cpu, const char* text) {
        return mKernel->Write(kCpu + "cpu" + std::to_string(cpu) + "/online", text);
    };
    mKernel->Write(max, "1440000");
    for (const int cpu : {4, 5}) ASSERT_EQ(setOnline(cpu, "0"), 0);
    EXPECT_EQ(mKernel->Write(max, "1555200"), 0) << "CPU 6 runs";
    ASSERT_EQ(setOnline(6, "0"), 0);

    EXPECT_EQ(mKernel->Write(max, "998400"), EINVAL);
    EXPECT_EQ(mKernel->Write(max, "998400", Kernel::Writer::kHal), 0)
        << "a request of the HAL's own";
    EXPECT_EQ(mKernel->Value(max), "1555200") << "follows when a CPU is back";
    EXPECT_EQ(mKernel->Open(max, false), 0);
    EXPECT_THAT(mKernel->Force(kCpu + "cpu5/online", "1"),
                testing::Contains(testing::AllOf(
                    testing::Field(&NodeValue::path, kCpu + "cpu5/cpufreq/scaling_max_freq"),
                    testing::Field(&NodeValue::value, "998400"))))
        << "it is told what changed";
    EXPECT_EQ(mKernel->Value(max), "998400");
    mKernel->Withdraw(max, Kernel::Writer::kHal);
    EXPECT_EQ(mKernel->Value(max), "1555200");

    for (const int cpu : {0, 1, 2, 3, 5}) ASSERT_EQ(setOnline(cpu, "0"), 0);
    EXPECT_EQ(setOnline(7, "0"), EBUSY) << "the last one that runs";
    EXPECT_EQ(mKernel->Value(kCpu + "cpu7/online"), "1");
}

// Another kernel's rules, as one under test is told to have.
TEST_F(KernelTest, LaterKernelAnswersByItsOwnRules) {
    KernelRules rules;
    rules.snapsCpuLimits = true;
    rules.offlineWriteError = rules.offlineReadError = EBUSY;
    rules.refusesNegativeRequest = rules.knowsTrueAndFalse = true;
    mKernel.emplace(LoadDeviceProfile("sm8450"), mRecorder,
                    [&](const DeviceProfile& profile) { return LayOutNodes(profile, rules); });
    const std::string min = kBig + "scaling_min_freq";
    const std::string max = kBig + "scaling_max_freq";

    mKernel->Write(min, "1000000");
    mKernel->Write(max, "1500000");
    EXPECT_EQ(mKernel->Value(min), "1113600") << "up to a step";
    EXPECT_EQ(mKernel->Value(max), "1440000") << "down to a step";
    EXPECT_EQ(mKernel->Write(max, "2147483648"), EINVAL);
    for (const int cpu : {4, 5, 6}) {
        EXPECT_EQ(mKernel->Write(kCpu + "cpu" + std::to_string(cpu) + "/online", "false"), 0);
    }
    EXPECT_EQ(mKernel->Write(max, "998400"), EBUSY);
    EXPECT_TRUE(std::filesystem::is_directory(mKernel->FileToRead(max))) << "opens, cannot be read";
}

TEST_F(KernelTest, HalRequestsStandBesideTheProgramsAndGoWithoutTrace) {
    Boot("sm8450");
    const std::string node = kBig + "scaling_max_freq";
    mKernel->Write(node, "1766400");
    mKernel->Write(node, "1324800", Kernel::Writer::kHal);
    ASSERT_EQ(mKernel->Value(node), "1324800");
    mKernel->Write(node, "2112000");  // the lower request still counts
    ASSERT_EQ(mKernel->Value(node), "1324800");

    mKernel->Withdraw(node, Kernel::Writer::kHal);

    EXPECT_EQ(mKernel->Value(node), "2112000");
    EXPECT_TRUE(mRecorder.All<NodeAccess>().back().byHal);

    // A program that takes its request back leaves the HAL's.
    mKernel->Write(node, "1324800", Kernel::Writer::kHal);
    mKernel->Write(node, "4294967295");
    EXPECT_EQ(mKernel->Value(node), "1324800");
    // As a number with a sign this one is below the HAL's, and as a frequency above the table.
    mKernel->Write(node, "2147483648");
    EXPECT_EQ(mKernel->Value(node), "2496000");
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

TEST_F(KernelTest, ForcedTextThatIsNoStateLeavesTheStateBeneath) {
    Boot("sm8450");
    const std::string node = kBig + "walt/pl";
    mKernel->Write(node, "1");
    mKernel->Force(node, "a text");
    mKernel->Write(node, "0", Kernel::Writer::kHalInPlace);

    mKernel->Withdraw(node, Kernel::Writer::kHalInPlace);

    EXPECT_EQ(mKernel->Value(node), "1");
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
