// Which keys count when: the bus layouts, the cluster layouts, before and after a configuration.
#include "loader/vocabulary.h"

#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>

#include "loader/vocabulary_table.h"

using namespace tarquel;

namespace {

std::optional<int> Value(const int32_t* code) {
    return code == nullptr ? std::nullopt : std::optional(*code);
}

}  // namespace

TEST(Vocabulary, EveryKeyIsFoundUnderItsOwnOpcode) {
    for (const OpcodeName& row : kOpcodeNames) {
        EXPECT_EQ(Value(FindOpcodeInLayout(row.name, 1)), row.opcode) << row.name;
    }
}

TEST(Vocabulary, NothingIsFoundUnderANameThatDiffersInOneCharacter) {
    std::set<std::string> names;
    for (const OpcodeName& row : kOpcodeNames) names.emplace(row.name);
    const auto expectNone = [&names](const std::string& name) {
        if (names.count(name) != 0) return;
        EXPECT_EQ(FindOpcodeInLayout(name, 1), nullptr) << name;
    };
    expectNone("");
    expectNone(std::string(256 + 3, 'm'));
    for (const std::string& name : names) {
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

TEST(Vocabulary, OtherBusLayoutHasOneKeyLessAndFourOpcodesOfItsOwn) {
    int missing = 0;
    int other = 0;
    for (const OpcodeName& row : kOpcodeNames) {
        const auto found = Value(FindOpcodeInLayout(row.name, 2));
        missing += found ? 0 : 1;
        other += found && *found != row.opcode ? 1 : 0;
    }
    EXPECT_EQ(missing, 1);
    EXPECT_EQ(other, 4);
    EXPECT_EQ(FindOpcodeInLayout("cpu_llcc_bw_max_freq", 2), nullptr);
    EXPECT_EQ(Value(FindOpcodeInLayout("llcc_ddr_bw_max_freq", 2)), 0x43018000);
}

TEST(Vocabulary, KeysComeIntoForceAndGo) {
    Vocabulary vocabulary;
    EXPECT_EQ(vocabulary.FindOpcode("sched_boost"), nullptr);
    EXPECT_EQ(vocabulary.FindTag("gpu_max_freq"), nullptr);
    vocabulary.OpcodeMapInit();
    vocabulary.OpcodeSetInit();
    EXPECT_EQ(Value(vocabulary.FindOpcode("sched_boost")), 0x40C00000);
    EXPECT_TRUE(vocabulary.IsFrequencyOpcode(0x40804200));
    EXPECT_FALSE(vocabulary.IsFrequencyOpcode(0x40810000));

    vocabulary.TarquelOpcodeMapInit(false);
    EXPECT_EQ(Value(vocabulary.FindTag("big_cpu0_max_freq")), 7);
    EXPECT_EQ(vocabulary.FindTag("prime_cpu0_max_freq"), nullptr);
    vocabulary.TarquelOpcodeMapInit(true);
    EXPECT_EQ(Value(vocabulary.FindTag("big_cpu0_max_freq")), 4);
    EXPECT_EQ(Value(vocabulary.FindTag("prime_cpu0_max_freq")), 7);

    vocabulary.Clear();
    EXPECT_EQ(vocabulary.FindOpcode("sched_boost"), nullptr);
    EXPECT_FALSE(vocabulary.IsFrequencyOpcode(0x40804200));
    EXPECT_EQ(Value(vocabulary.FindTag("gpu_max_freq")), 10);
}
