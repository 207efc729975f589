// What a virtual machine is given to be a device, and the lists of what is written to it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>

#include "lab/machine/hardware.h"
#include "lab/machine/kernel_under_test.h"
#include "lab/machine/single_writes.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

using ::testing::HasSubstr;

uint32_t WordAt(const std::string& bytes, size_t offset) {
    uint32_t word = 0;
    for (size_t i = 4; i-- > 0;) word = word << 8 | static_cast<unsigned char>(bytes[offset + i]);
    return word;
}

TEST(Hardware, HasAClustersTableAsItsDriverReadsIt) {
    const DeviceProfile profile = LoadDeviceProfile("sm8450");
    const Hardware hardware = MakeHardware(profile);

    ASSERT_EQ(hardware.registers.size(), 3u);
    const std::string& big = hardware.registers[1].bytes;
    EXPECT_EQ(WordAt(big, 0), 1u) << "switched on";
    std::vector<int64_t> khz;
    for (size_t i = 0; i < 40; ++i) {
        const uint32_t word = WordAt(big, 0x100 + 4 * i);
        EXPECT_NE(word >> 16 & 7, 1u) << "a turbo step";
        const int64_t step = int64_t{word & 0xff} * 19200;
        if (!khz.empty() && khz.back() == step) break;  // the end of the table
        khz.push_back(step);
    }
    EXPECT_EQ(khz, profile.clusters[1].khz);
    EXPECT_THAT(hardware.deviceTree,
                HasSubstr("&{/cpus/cpu@6} { qcom,freq-domain = <&lab_cpufreq 1>"));
    EXPECT_THAT(hardware.deviceTree, HasSubstr("opp-hz = /bits/ 64 <818000000>"));
}

TEST(Hardware, RefusesTablesThatRegistersCannotHold) {
    DeviceProfile profile = LoadDeviceProfile("sm4450");
    profile.clusters[0].khz = {499200, 500000};
    EXPECT_THROW(MakeHardware(profile), std::runtime_error) << "between two steps";
    profile.clusters[0].khz = {499200, 256 * 19200};
    EXPECT_THROW(MakeHardware(profile), std::runtime_error) << "beyond eight bits";
    profile.clusters[0].khz.clear();
    for (int64_t i = 1; i <= 41; ++i) profile.clusters[0].khz.push_back(i * 19200);
    EXPECT_THROW(MakeHardware(profile), std::runtime_error) << "too many";
}

TEST(WriteList, SaysWhoWritesWhatWhere) {
    const WriteList list = ReadWriteList(
        LoadYamlText("cases:\n- name: x\n  writes:\n  - {hal big/scaling_max_freq: }\n"
                     "  - {gpu/max_freq at 3: \"5\\0 6\"}\n  - {create /sys/x: \"\"}\n"
                     "  - {little/online: {text: \"1\", blanks: 2}}\n",
                     "w.yaml"));
    ASSERT_EQ(list.cases.size(), 1u);
    const auto& writes = list.cases[0].writes;
    ASSERT_EQ(writes.size(), 4u);
    EXPECT_EQ(writes[0].kind, SingleWrite::Kind::kHal);
    EXPECT_EQ(writes[0].node, "big/scaling_max_freq");
    EXPECT_FALSE(writes[0].text.has_value());
    EXPECT_EQ(writes[1].offset, 3u);
    EXPECT_EQ(writes[1].text, std::string("5\0 6", 4));
    EXPECT_EQ(writes[2].kind, SingleWrite::Kind::kCreate);
    EXPECT_EQ(writes[3].text, "1  ");
    EXPECT_EQ(ParseSingleWrite("gpu/min_freq=1=2\\n").text, "1=2\n");
    EXPECT_THROW(ParseSingleWrite("gpu/min_freq"), std::runtime_error);
}

// A document with one mistake, and the beginning of the message.
struct Mistake {
    std::string text;
    std::string message;
    std::function<void(const YamlNode&)> read;
};

void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.text;
}

class MachineFileMistakes : public ::testing::TestWithParam<Mistake> {};

TEST_P(MachineFileMistakes, AreNamedWhereTheyStand) {
    try {
        GetParam().read(LoadYamlText(GetParam().text, "m.yaml"));
        FAIL() << "no InputError";
    } catch (const InputError& error) {
        EXPECT_THAT(error.what(), ::testing::StartsWith(GetParam().message));
    }
}

const auto kReadList = [](const YamlNode& root) { ReadWriteList(root); };
const auto kReadKernel = [](const YamlNode& root) { ReadKernelUnderTest(root); };

INSTANTIATE_TEST_SUITE_P(
    Machine, MachineFileMistakes,
    ::testing::Values(
        Mistake{"cases:\n- {name: x, writes: [{a: b, c: d}]}", "m.yaml:2:22: a write is",
                kReadList},
        Mistake{"cases:\n- {name: x, writes: [{gpu/max_freq: }]}", "m.yaml:2:", kReadList},
        Mistake{"cases:\n- {name: x, writes: [{gpu/max_freq at x: 5}]}", "m.yaml:2:23: 'at'",
                kReadList},
        Mistake{"kernel: x\nhas: [cpus]\ndiffers: []\nunreal: []",
                "m.yaml:2:7: there is no family 'cpus'", kReadKernel},
        Mistake{"kernel: x\nhas: []\ndiffers:\n- {rule: cpu_limits_are_snaped, why: x}\nunreal: []",
                "m.yaml:4:10: there is no rule 'cpu_limits_are_snaped' (did you mean", kReadKernel},
        Mistake{"kernel: x\nhas: []\ndiffers:\n- {rule: cpu_limits_are_snapped}\nunreal: []",
                "m.yaml:4:3: the field 'why' is missing", kReadKernel}));

}  // namespace
}  // namespace lab
