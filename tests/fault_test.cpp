// The phone's faults: what the plug-in says under each, how the request goes on, and what is right
// once the fault is lifted.
#include <gmock/gmock.h>

#include "lab/names/tag_names.h"
#include "lab/server/fault_step.h"
#include "tests/support/plugin_test.h"

using lab::HalLibrary;
using lab::NodeFault;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr int kTemp = 2;
constexpr int kOn = 0;
const std::string kPrimeMax = "/sys/devices/system/cpu/cpu7/cpufreq/scaling_max_freq";
const std::string kLoads = "/sys/devices/system/cpu/cpu0/cpufreq/interactive/go_hispeed_load";

}  // namespace

class FaultTest : public PluginTest {
  protected:
    lab::Faults& Phones() { return GetPhone().GetFaults(); }

    // Boot with something wrong already.
    template <typename Inject>
    void BootWith(Inject inject) {
        StartPhone("sm8450");
        inject(GetPhone());
        LoadLibrary();
        DescribeClusters();
        Initialize();
    }

    // Thermal control writes ceilings to their nodes.
    void EnterThermal() {
        Limit(kTemp, {{57, 6}});
        Forget();
    }

    int Boost(int durationMs) { return Do(*MakeAction(4353, durationMs, {0x40C00000, 1}, 4)); }

    int64_t NowMs() {
        return std::chrono::duration_cast<std::chrono::milliseconds>(GetPhone().GetClock().Now())
            .count();
    }
};

// A node's fault, what the log says at error priority, and what a slow one costs.
struct NodeCase {
    NodeFault::Kind kind;
    std::vector<std::string> errors;
    int slowMs = 0;
};

class WriteFault : public FaultTest, public testing::WithParamInterface<NodeCase> {};

TEST_P(WriteFault, CostsTheNodeAndNotTheLock) {
    Boot();
    EnterThermal();
    const std::string before = Node(kPrimeMax);
    Limit(kTemp, {{7, 2054400}});
    const int64_t start = NowMs();
    Forget();
    Phones().SetNode(kPrimeMax, NodeFault{GetParam().kind, GetParam().slowMs});
    EXPECT_EQ(Limit(kTemp, {{7, 1843200}}), 0);
    EXPECT_EQ(Log(kError), GetParam().errors);
    EXPECT_THAT(HalCalls(), ElementsAre("rel 1 -> 0", "acq 0 0ms 0x40804200=1843 -> 2"));
    EXPECT_EQ(GetPhone().GetKernel().ProgramValue(kPrimeMax), "1843200") << "the HAL's";
    EXPECT_EQ(GetPhone().GetKernel().RequestsOn(kPrimeMax)->program,
              GetParam().slowMs > 0 ? 1843200 : 2054400);
    EXPECT_EQ(NowMs() - start, GetParam().slowMs);

    Phones().LiftNodes();
    Forget();
    Limit(kTemp, {{7, 1728000}});
    EXPECT_THAT(Log(kError), IsEmpty());
    EXPECT_EQ(GetPhone().GetKernel().RequestsOn(kPrimeMax)->program, 1728000);
    Limit(kTemp, {{7, 0}});
    EXPECT_EQ(Node(kPrimeMax), before);
    EXPECT_THAT(GetPhone().Hal().Held(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Faults, WriteFault,
    testing::Values(
        NodeCase{NodeFault::Kind::kMissing,
                 {"tarquel: write node open " + kPrimeMax + " error: no node/permission\n"}},
        NodeCase{NodeFault::Kind::kUnwritable,
                 {"tarquel: write node open " + kPrimeMax + " error: no node/permission\n"}},
        NodeCase{NodeFault::Kind::kRefusing,
                 {"tarquel: fprintf failed, ret = -1, node = " + kPrimeMax + "\n"}},
        NodeCase{NodeFault::Kind::kShort,
                 {"tarquel: fprintf failed, ret = -1, node = " + kPrimeMax + "\n"}},
        NodeCase{NodeFault::Kind::kSlow, {}, 50}));

class ReadFault : public FaultTest, public testing::WithParamInterface<NodeCase> {};

TEST_P(ReadFault, LeavesTheSlotAsItWas) {
    Boot();
    const int tags[] = {7, 97};
    int values[] = {-5, -5};
    Phones().SetNode(kPrimeMax, NodeFault{GetParam().kind, GetParam().slowMs});
    EXPECT_EQ(Adapter().DoPerfGetConfig(2, tags, values), 0);
    EXPECT_EQ(Log(kError), GetParam().errors);
    EXPECT_EQ(values[0], GetParam().errors.empty() ? 2995200 : -5);
    EXPECT_EQ(values[1], 0) << "the next tag is read";
    EXPECT_EQ(NowMs(), GetParam().slowMs);

    Phones().SetNode(kPrimeMax, std::nullopt);
    Adapter().DoPerfGetConfig(1, tags, values);
    EXPECT_EQ(values[0], 2995200);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, ReadFault,
    testing::Values(
        NodeCase{NodeFault::Kind::kMissing,
                 {"tarquel: read node open " + kPrimeMax + " error: no node/permission\n"}},
        NodeCase{NodeFault::Kind::kUnreadable,
                 {"tarquel: read node open " + kPrimeMax + " error: no node/permission\n"}},
        NodeCase{NodeFault::Kind::kShort,
                 {"tarquel: fscanf_s failed, ret = -1, node = " + kPrimeMax + "\n"}},
        NodeCase{NodeFault::Kind::kUnwritable, {}}, NodeCase{NodeFault::Kind::kSlow, {}, 40}));

class InterFault : public FaultTest, public testing::WithParamInterface<NodeCase> {};

TEST_P(InterFault, EndsTheActionWithTheNodesErrno) {
    Boot();
    GetPhone().GetKernel().Force(kLoads, "90");
    const auto action = MakeAction(4400, 0, {});
    action->tagLen = 1;
    action->interList = {"go_hispeed_load_l", "85"};
    Phones().SetNode(kLoads, NodeFault{GetParam().kind, 0});
    EXPECT_EQ(GetLibrary().DoInterFreqAction(*action, &kOn), -1);
    ASSERT_THAT(Log(kError), SizeIs(2));
    EXPECT_EQ(Log(kError)[0], GetParam().errors[0]);
    EXPECT_EQ(Log(kError)[1], "tarQuel: write node failed, tag=go_hispeed_load_l, value=85\n");
    EXPECT_EQ(Node(kLoads), "90");
    Phones().LiftNodes();
    EXPECT_EQ(GetLibrary().DoInterFreqAction(*action, &kOn), 0);
    EXPECT_EQ(Node(kLoads), "85");
}

INSTANTIATE_TEST_SUITE_P(
    Faults, InterFault,
    testing::Values(
        NodeCase{NodeFault::Kind::kMissing,
                 {"tarQuel: WriteNodesValue open " + kLoads + " fail errno(2)!\n"}},
        NodeCase{NodeFault::Kind::kUnwritable,
                 {"tarQuel: WriteNodesValue open " + kLoads + " fail errno(13)!\n"}},
        NodeCase{NodeFault::Kind::kRefusing,
                 {"tarQuel: WriteNodesValue write 85 to " + kLoads + " fail errno(22)!\n"}},
        NodeCase{NodeFault::Kind::kShort,
                 {"tarQuel: WriteNodesValue write 85 to " + kLoads + " fail errno(5)!\n"}}));

TEST_F(FaultTest, MissingNodeOfOneCpuIsReachedThroughAnother) {
    Boot();
    EnterThermal();
    const std::string first = "/sys/devices/system/cpu/cpu4/cpufreq/scaling_max_freq";
    Phones().SetNode(first, NodeFault{NodeFault::Kind::kMissing, 0});
    Limit(kTemp, {{4, 1440000}});
    EXPECT_THAT(Log(kError),
                Contains("tarquel: write node open " + first + " error: no node/permission\n"));
    EXPECT_EQ(GetPhone().GetKernel().RequestsOn(first)->program, 1440000);
}

// A HAL that cannot be used from the start: the library that is found, or none for want of the
// property, and what the log says each time it is looked for.
struct HalCase {
    HalLibrary library;
    bool hidesProperty;
    std::vector<std::string> errors;
};

class HalFault : public FaultTest, public testing::WithParamInterface<HalCase> {};

TEST_P(HalFault, IsLookedForAgainUntilItIsThere) {
    BootWith([](lab::Phone& phone) {
        phone.SetHalLibrary(GetParam().library);
        if (GetParam().hidesProperty) {
            phone.GetFaults().HideProperties({"ro.vendor.extension_library"});
        }
    });
    EXPECT_EQ(Log(kError), GetParam().errors);
    Forget();
    const auto event = MakeAction(4099, 0, {0x40C00000, 1});
    EXPECT_EQ(Do(*event, kOn), 0);
    std::vector<std::string> errors = GetParam().errors;
    errors.push_back(
        "tarquel: PerfLockAcq failed! cmdId = 4099, oldHandle = 0, updateHandle = 0, duration = "
        "0\n");
    EXPECT_EQ(Log(kError), errors);
    EXPECT_THAT(HalCalls(), IsEmpty());

    GetPhone().SetHalLibrary(HalLibrary::kWhole);
    Phones().HideProperties({});
    Forget();
    Do(*event, kOn);
    Do(*event, -1);
    EXPECT_THAT(Log(kError), IsEmpty());
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 0ms 0x40C00000=1 -> 1", "rel 1 -> 0"));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, HalFault,
    testing::Values(
        HalCase{HalLibrary::kAbsent, false, {"tarquel: dlopen() libqti-perfd-client.so failed!\n"}},
        HalCase{HalLibrary::kWithoutAcquire,
                false,
                {"tarquel: dlsym() perf_lock_acq failed!\n",
                 "tarquel: dlsym() perf_lock_rel failed!\n"}},
        HalCase{HalLibrary::kWithoutRelease, false, {"tarquel: dlsym() perf_lock_rel failed!\n"}},
        HalCase{HalLibrary::kWhole, true, {"tarquel: property_get() failed!\n"}}));

class RefusedLimit : public FaultTest, public testing::WithParamInterface<int> {};

TEST_P(RefusedLimit, HoldsNothingUntilTheNextRequest) {
    Boot();
    Limit(kTemp, {{7, 2054400}});
    GetPhone().Hal().RefuseNext(lab::kRefuseAlways, GetParam());
    EXPECT_EQ(Limit(kTemp, {{7, 1843200}}), 0);
    EXPECT_THAT(GetPhone().Hal().Held(), IsEmpty());
    Forget();
    GetPhone().Hal().RefuseNext(0, 0);
    Limit(kTemp, {{7, 1728000}});
    EXPECT_THAT(
        Log(kError),
        ElementsAre(GetParam() == -1 ? "tarquel: tag 7 last acquire failed! no need release\n"
                                     : "tarquel: tag 7 is not registerd! init handleMap[7] = 0\n"));
    EXPECT_THAT(GetPhone().Hal().Held(), SizeIs(1));
    Limit(kTemp, {{7, 0}});
    EXPECT_THAT(GetPhone().Hal().Held(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Faults, RefusedLimit, testing::Values(0, -1));

TEST_F(FaultTest, TimerThatCannotBeMadeLeavesTheBreakthroughToThermalControl) {
    BootWith([](lab::Phone& phone) { phone.GetFaults().SetTimer(true, false); });
    EXPECT_THAT(Log(kError), Contains("tarquel Failed to create timer"));
    EnterThermal();
    EXPECT_EQ(Boost(1000), 0);
    EXPECT_THAT(HalCalls(), SizeIs(1));
    Phones().SetTimer(false, false);
    Limit(kTemp, {{57, 9}});
    Limit(kTemp, {{7, 1843200}});
    EXPECT_THAT(NodeWrites(), Contains(kPrimeMax + "=1843200"));
}

TEST_F(FaultTest, TimerThatCannotBeSetIsMadeGoodByTheNextBreakthrough) {
    Boot();
    EnterThermal();
    Phones().SetTimer(false, true);
    EXPECT_EQ(Boost(1000), 0);
    EXPECT_THAT(Log(kError), ElementsAre("Failed to set timer"));
    EXPECT_THAT(HalCalls(), SizeIs(1));
    Phones().SetTimer(false, false);
    Forget();
    Boost(1000);
    Limit(kTemp, {{7, 1843200}});
    EXPECT_THAT(NodeWrites(), IsEmpty());
    Advance(1000);
    EXPECT_THAT(NodeWrites(), ElementsAre(kPrimeMax + "=1843200"));
}

// What keeps a request beyond the end of the breakthrough that runs: the HAL, or a node.
struct SlowCase {
    const char* name;
    int client;
    int tag;
    int value;
    const char* slowNode;  // null: the HAL
    int restored;          // the prime ceiling that is put back
};

void PrintTo(const SlowCase& slow, std::ostream* out) {
    *out << slow.name;
}

class SlowRequest : public FaultTest, public testing::WithParamInterface<SlowCase> {};

TEST_P(SlowRequest, DoesNotKeepTheBreakthroughFromEndingOnTime) {
    const SlowCase& c = GetParam();
    Boot();
    EnterThermal();
    Limit(kTemp, {{7, 2054400}});
    Adapter().SetDebug(true);
    Boost(1000);
    Forget();
    const int64_t start = NowMs();
    if (c.slowNode == nullptr) {
        Phones().SetHalDelay(1500);
    } else {
        Phones().SetNode(c.slowNode, NodeFault{NodeFault::Kind::kSlow, 1500});
    }
    Limit(c.client, {{c.tag, c.value}});
    Phones().SetHalDelay(0);
    Phones().LiftNodes();
    EXPECT_GE(NowMs(), start + 1500);

    // A thermal request writes its ceilings at its own end as well.
    std::vector<int64_t> writtenMs;
    for (const lab::Event& event : GetPhone().Events().Events()) {
        const auto* access = std::get_if<lab::NodeAccess>(&event.what);
        if (access == nullptr || access->path != kPrimeMax || access->byHal) continue;
        EXPECT_EQ(access->requested, std::to_string(c.restored));
        writtenMs.push_back(event.at / std::chrono::milliseconds(1) - start);
    }
    ASSERT_THAT(writtenMs, Not(IsEmpty()));
    EXPECT_EQ(writtenMs.front(), 1000);
    EXPECT_THAT(Log(kInfo), Contains("tarquel TimerCallback End Temperature Control Breakthrough"));

    // The next breakthrough is whole.
    Boost(500);
    Forget();
    Limit(kTemp, {{7, 1728000}});
    EXPECT_THAT(NodeWrites(), IsEmpty());
    Advance(500);
    EXPECT_THAT(NodeWrites(), Contains(kPrimeMax + "=1728000"));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, SlowRequest,
    testing::Values(SlowCase{"ThermalsOwn", kTemp, 7, 1843200, nullptr, 1843200},
                    SlowCase{"AnotherClients", 1, 1, 1171200, nullptr, 2054400},
                    SlowCase{"NodeOfTheGpu", 1, 10, 0, "/sys/class/kgsl/kgsl-3d0/devfreq/max_freq",
                             2054400},
                    SlowCase{"NodeOfAnotherCeiling", 1, 1, 0,
                             "/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq", 2054400}),
    [](const auto& test) { return std::string(test.param.name); });

// Mistakes in the `faults` of a scenario, each with the place and the beginning of its message.
struct Mistake {
    const char* yaml;
    const char* what;
};

class FaultMistake : public testing::TestWithParam<Mistake> {};

TEST_P(FaultMistake, IsNamedWhereItStands) {
    try {
        std::string text;
        const lab::YamlNode node = lab::LoadYamlText(GetParam().yaml, "my.yaml");
        const lab::DeviceProfile device = lab::LoadDeviceProfile("sm4450");
        lab::Phone phone(device);
        Inject(lab::ReadFaults(node, text), lab::Layout::kTwoClusters, device, phone);
        FAIL() << "accepted";
    } catch (const lab::InputError& error) {
        EXPECT_THAT(error.what(), testing::StartsWith(GetParam().what));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Faults, FaultMistake,
    testing::Values(
        Mistake{"all", "my.yaml:1:1: expected faults such as"},
        Mistake{"{}", "my.yaml:1:1: expected faults such as"},
        Mistake{"{hall: absent}", "my.yaml:1:2: faults has no field 'hall'"},
        Mistake{"{hal: abent}",
                "my.yaml:1:7: there is no such fault as 'abent' (did you mean 'absent'?"},
        Mistake{"{hal: {result: 0}}", "my.yaml:1:16: 'result' is what"},
        Mistake{"{hal: {}}", "my.yaml:1:7: expected {refuse"},
        Mistake{"{hal: {refuse: often}}", "my.yaml:1:16: how many locks to refuse"},
        Mistake{"{timer: [timer_delete]}", "my.yaml:1:10: 'timer_delete' cannot fail"},
        Mistake{"{properties: ro.hardware}", "my.yaml:1:14: a list of properties"},
        Mistake{"{nodes: {big_max: broken}}", "my.yaml:1:19: there is no such fault as 'broken'"},
        Mistake{"{nodes: {big_max: {slow_ms: 0}}}", "my.yaml:1:29: ms that it takes"},
        Mistake{"{nodes: {prime_max: missing}}",
                "my.yaml:1:10: 'prime_max' is neither a path nor a tag"},
        Mistake{"{nodes: {control_type: missing}}",
                "my.yaml:1:10: the tag 'control_type' has no node"}));
