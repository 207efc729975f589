// Which keys count when, and what they stand for: vocabulary.txt lists the opcodes once more.
#include "loader/vocabulary.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "loader/vocabulary_table.h"

using namespace tarquel;

namespace {

std::optional<int> Value(const int32_t* code) {
    return code == nullptr ? std::nullopt : std::optional(*code);
}

const std::map<std::string, int32_t>& Listed() {
    static const std::map<std::string, int32_t> listed = [] {
        std::map<std::string, int32_t> opcodes;
        std::ifstream list(TARQUEL_TESTS_FOLDER "/vocabulary.txt");
        std::string name;
        std::getline(list, name);  // the comment
        for (std::string opcode; list >> name >> opcode;) {
            opcodes[name] = static_cast<int32_t>(std::stoul(opcode, nullptr, 16));
        }
        return opcodes;
    }();
    return listed;
}

}  // namespace

TEST(Vocabulary, EveryKeyIsFoundUnderItsOpcode) {
    const Vocabulary vocabulary;
    const std::set<int> kFrequencies{0x40800000, 0x40800100, 0x40800200,
                                     0x40804000, 0x40804100, 0x40804200};
    EXPECT_EQ(Listed().size(), kOpcodeNames.size());
    for (const auto& [name, opcode] : Listed()) {
        EXPECT_EQ(Value(vocabulary.FindOpcode(name)), opcode) << name;
        EXPECT_EQ(IsFrequencyOpcode(opcode), kFrequencies.count(opcode) == 1) << name;
    }
}

TEST(Vocabulary, NothingIsFoundUnderANameThatDiffersInOneCharacter) {
    const Vocabulary vocabulary;
    const auto expectNone = [&vocabulary](const std::string& name) {
        if (Listed().count(name) != 0) return;
        EXPECT_EQ(vocabulary.FindOpcode(name), nullptr) << name;
    };
    expectNone("");
    expectNone(std::string(256 + 3, 'm'));
    for (const auto& [name, opcode] : Listed()) {
        for (size_t at = 0; at < name.size(); ++at) {
            std::string other = name;
            other[at] ^= 1;
            expectNone(other);
        }
        expectNone(name + '\0');
        expectNone('\0' + name);
        expectNone(name.substr(1));
        expectNone(name.substr(0, name.size() - 1));
    }
}

TEST(Vocabulary, KeysComeIntoForceAndGo) {
    Vocabulary vocabulary;
    EXPECT_EQ(vocabulary.FindTag("gpu_max_freq"), nullptr);
    vocabulary.TarquelOpcodeMapInit(true);
    vocabulary.Clear();
    EXPECT_EQ(vocabulary.FindOpcode("sched_boost"), nullptr);
    EXPECT_EQ(Value(vocabulary.FindTag("gpu_max_freq")), 10);
}

TEST(Vocabulary, TagsFollowTheClusterLayout) {
    constexpr int kNone = -1;
    const std::map<std::string, std::pair<int, int>> kTags{
        {"little_cpu0_max_freq", {1, 1}},
        {"little_cpu0_min_freq", {0, 0}},
        {"gpu_max_power_level", {68, 68}},
        {"gpu_max_freq", {10, 10}},
        {"gpu_min_power_level", {67, 67}},
        {"gpu_min_freq", {9, 9}},
        {"prime_cpu0_max_freq", {kNone, 7}},
        {"big_cpu0_max_freq", {7, 4}},
        {"prime_cpu0_min_freq", {kNone, 6}},
        {"big_cpu0_min_freq", {6, 3}},
        {"max_online_cpu_cluster_prime", {kNone, 63}},
        {"min_online_cpu_cluster_prime", {kNone, 66}},
        {"max_online_cpu_cluster_big", {63, 62}},
        {"min_online_cpu_cluster_big", {66, 65}}};
    Vocabulary vocabulary;
    for (const bool hasPrime : {false, true}) {
        vocabulary.TarquelOpcodeMapInit(hasPrime);
        for (const auto& [name, opcode] : Listed()) {
            const auto tags = kTags.find(name);
            int wanted = kNone;
            if (tags != kTags.end()) wanted = hasPrime ? tags->second.second : tags->second.first;
            EXPECT_EQ(Value(vocabulary.FindTag(name)).value_or(kNone), wanted) << name;
        }
    }
}

TEST(Vocabulary, InteractiveElementsHaveKeysOfTheirOwn) {
    const std::set<std::string> kKeys{
        "duration_ms",           "boost_limit_level",     "priority",
        "go_hispeed_load_l",     "go_hispeed_load_b",     "hispeed_freq_l",
        "hispeed_freq_b",        "target_load_freq_l",    "target_load_freq_b",
        "above_hispeed_delay_l", "above_hispeed_delay_b", "min_sample_time_l",
        "min_sample_time_b"};
    EXPECT_EQ(kKeys.size(), kInteractiveKeys.size());
    for (const std::string& key : kKeys) EXPECT_TRUE(IsInteractiveKey(key)) << key;
    for (const auto& [name, opcode] : Listed()) EXPECT_FALSE(IsInteractiveKey(name)) << name;
}
