// Which keys count when: the bus layouts, the cluster layouts, before and after a configuration.
#include "loader/vocabulary.h"

#include <gtest/gtest.h>

#include "loader/vocabulary_table.h"

using namespace tarquel;

TEST(Vocabulary, EveryKeyIsFoundUnderItsOwnOpcode) {
    for (const OpcodeName& row : kOpcodeNames) {
        EXPECT_EQ(FindOpcodeInLayout(row.name, 1), row.opcode) << row.name;
    }
    EXPECT_EQ(FindOpcodeInLayout("", 1), std::nullopt);
    EXPECT_EQ(FindOpcodeInLayout("aaa", 1), std::nullopt);
    EXPECT_EQ(FindOpcodeInLayout("zzz", 1), std::nullopt);
}

TEST(Vocabulary, OtherBusLayoutHasOneKeyLessAndFourOpcodesOfItsOwn) {
    int missing = 0;
    int other = 0;
    for (const OpcodeName& row : kOpcodeNames) {
        const auto found = FindOpcodeInLayout(row.name, 2);
        missing += found ? 0 : 1;
        other += found && *found != row.opcode ? 1 : 0;
    }
    EXPECT_EQ(missing, 1);
    EXPECT_EQ(other, 4);
    EXPECT_EQ(FindOpcodeInLayout("cpu_llcc_bw_max_freq", 2), std::nullopt);
    EXPECT_EQ(FindOpcodeInLayout("llcc_ddr_bw_max_freq", 2), 0x43018000);
}

TEST(Vocabulary, KeysComeIntoForceAndGo) {
    Vocabulary vocabulary;
    EXPECT_EQ(vocabulary.FindOpcode("sched_boost"), std::nullopt);
    EXPECT_EQ(vocabulary.FindTag("gpu_max_freq"), std::nullopt);
    vocabulary.OpcodeMapInit();
    vocabulary.OpcodeSetInit();
    EXPECT_EQ(vocabulary.FindOpcode("sched_boost"), 0x40C00000);
    EXPECT_TRUE(vocabulary.IsFrequencyOpcode(0x40804200));
    EXPECT_FALSE(vocabulary.IsFrequencyOpcode(0x40810000));

    vocabulary.TarquelOpcodeMapInit(false);
    EXPECT_EQ(vocabulary.FindTag("big_cpu0_max_freq"), 7);
    EXPECT_EQ(vocabulary.FindTag("prime_cpu0_max_freq"), std::nullopt);
    vocabulary.TarquelOpcodeMapInit(true);
    EXPECT_EQ(vocabulary.FindTag("big_cpu0_max_freq"), 4);
    EXPECT_EQ(vocabulary.FindTag("prime_cpu0_max_freq"), 7);

    vocabulary.Clear();
    EXPECT_EQ(vocabulary.FindOpcode("sched_boost"), std::nullopt);
    EXPECT_FALSE(vocabulary.IsFrequencyOpcode(0x40804200));
    EXPECT_EQ(vocabulary.FindTag("gpu_max_freq"), 10);
}
