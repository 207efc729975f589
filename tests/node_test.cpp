// The nodes behind tags: which path is reached, what is read at start, and what a query answers.
#include <gmock/gmock.h>

#include <climits>

#include "tests/support/plugin_test.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kCpu = "/sys/devices/system/cpu/cpu";
const std::string kGpu = "/sys/class/kgsl/kgsl-3d0/";
constexpr int kUntouched = -77;

}  // namespace

class NodeTest : public PluginTest {
  protected:
    // The value that a query gives for a tag, kUntouched when it leaves the slot alone.
    int Get(int tag) {
        int value = kUntouched;
        EXPECT_EQ(Adapter().DoPerfGetConfig(1, &tag, &value), 0);
        return value;
    }
};

TEST_F(NodeTest, NextCpuOfTheClusterServesWhenTheFirstIsGone) {
    Boot();
    GetPhone().GetKernel().Remove(kCpu + "0/cpufreq/scaling_max_freq");
    EXPECT_EQ(Get(1), 1785600);
    EXPECT_THAT(Log(kError), ElementsAre("tarquel: read node open " + kCpu +
                                         "0/cpufreq/scaling_max_freq error: no node/permission\n"));
}

TEST_F(NodeTest, TextIsNoNumberAndAnotherNumberIsCutToInt) {
    Boot();
    Adapter().SetDebug(true);
    GetPhone().GetKernel().Force(kGpu + "devfreq/max_freq", "turbo");
    EXPECT_EQ(Get(10), kUntouched);
    EXPECT_THAT(Log(kError), ElementsAre("tarquel: fscanf_s failed, ret = 0, node = " + kGpu +
                                         "devfreq/max_freq\n"));
    EXPECT_THAT(Log(kInfo), ElementsAre("tarquel: read node ret = 0, node = " + kGpu +
                                        "devfreq/max_freq, config = -77\n"));
    Forget();
    GetPhone().GetKernel().Force(kGpu + "devfreq/max_freq", " \n");
    EXPECT_EQ(Get(10), kUntouched);
    EXPECT_THAT(Log(kError), ElementsAre("tarquel: fscanf_s failed, ret = -1, node = " + kGpu +
                                         "devfreq/max_freq\n"));
    GetPhone().GetKernel().Force(kGpu + "devfreq/max_freq", "99999999999");
    EXPECT_EQ(Get(10), INT_MAX);
    // Of a long text the beginning counts.
    GetPhone().GetKernel().Force(kGpu + "devfreq/max_freq", std::string(125, ' ') + "345");
    EXPECT_EQ(Get(10), 34);
    GetPhone().GetKernel().Force(kGpu + "devfreq/max_freq", "7 " + std::string(4000, 'x'));
    EXPECT_EQ(Get(10), 7);
}

TEST_F(NodeTest, GpuDefaultsAreReadInHzAndSaturate) {
    StartPhone("sm8450");
    GetPhone().GetKernel().Force(kGpu + "min_clock_mhz", "3050");
    GetPhone().GetKernel().Remove(kGpu + "max_gpuclk");
    LoadLibrary();
    DescribeClusters();
    Initialize();
    EXPECT_EQ(Get(49), INT_MAX);
    EXPECT_EQ(Get(50), 0);
}

TEST_F(NodeTest, TagThatAQueryEnteredHasANodeForLaterRequests) {
    Boot("sm4450");
    Limit(2, {{57, 6}});
    Forget();
    Limit(2, {{5, 1000}});
    EXPECT_THAT(Log(kError), Contains("tarquel: tag = 5 not in mCpuNodeMap\n"));
    EXPECT_EQ(Get(5), kUntouched);
    Forget();
    Limit(2, {{5, 1000}});
    EXPECT_THAT(Log(kError), testing::Not(Contains("tarquel: tag = 5 not in mCpuNodeMap\n")));
}

TEST_F(NodeTest, MalformedQueriesAreRefused) {
    Boot();
    const int tags[] = {1};
    int values[] = {kUntouched};
    EXPECT_EQ(Adapter().DoPerfGetConfig(-1, tags, values), 0);
    EXPECT_EQ(Adapter().DoPerfGetConfig(0, nullptr, nullptr), 0);
    EXPECT_THAT(Log(kError), IsEmpty());
    std::vector<int> many(1025, 50);
    EXPECT_EQ(Adapter().DoPerfGetConfig(1024, many.data(), many.data()), 0);
    EXPECT_EQ(many[1023], 818000000);
    EXPECT_THAT(Log(kError), IsEmpty());
    EXPECT_EQ(Adapter().DoPerfGetConfig(1025, many.data(), many.data()), 0);
    EXPECT_EQ(Adapter().DoPerfGetConfig(1, nullptr, values), 0);
    EXPECT_EQ(Adapter().DoPerfGetConfig(1, tags, nullptr), 0);
    EXPECT_EQ(Log(kError).size(), 3u);
    EXPECT_EQ(values[0], kUntouched);
}

TEST_F(NodeTest, CeilingsOfAnActionAreListed) {
    Boot();
    const auto action = MakeAction(12288, 0, {1, 1171200, 0, 300000, 7, 0, 10, 500000000});
    int tags[133] = {};
    int freqs[133] = {};
    EXPECT_EQ(Adapter().GetPerfTagValue(*action, 0, tags, freqs), 2);
    EXPECT_EQ(std::vector<int>(tags, tags + 2), (std::vector<int>{1, 10}));
    EXPECT_EQ(std::vector<int>(freqs, freqs + 2), (std::vector<int>{1171200, 500000000}));
    EXPECT_EQ(Adapter().GetPerfTagValue(*action, 1, tags, freqs), 3);
    EXPECT_EQ(freqs[2], 0);
    EXPECT_EQ(Adapter().GetPerfTagValue(*action, 0, tags, nullptr), -1);

    std::vector<int> many;
    for (int i = 0; i < 200; ++i) many.insert(many.end(), {7, 1});
    EXPECT_EQ(Adapter().GetPerfTagValue(*MakeAction(12288, 0, many), 0, tags, freqs), 133);
}

TEST_F(NodeTest, OperationsWithoutAnEffectAnswer) {
    Boot();
    const auto action = MakeAction(4353, 10, {});
    int type = 9;
    EXPECT_EQ(Adapter().GetChipPlatformType(*action, type), 0);
    EXPECT_EQ(type, 0);
    EXPECT_EQ(Adapter().DoSchedLevelAction(1, 1, nullptr, nullptr), 0);
    EXPECT_EQ(Adapter().DoProbeAffinity(1, 1), 0);
    std::map<std::string, int> status{{"mPB_Prior", 9}, {"other", 5}};
    EXPECT_EQ(Adapter().GetPerfEventStatus(status), 0);
    EXPECT_EQ(status,
              (std::map<std::string, int>{{"mPB_Prior", 1}, {"mTB_Prior", 0}, {"other", 5}}));
}
