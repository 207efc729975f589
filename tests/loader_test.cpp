// Translation of parsed scene elements into action chains.
#include <gmock/gmock.h>
#include <malloc.h>

#include <cstdlib>
#include <stdexcept>

#include "tests/support/plugin_test.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class LoaderTest : public PluginTest {
  protected:
    void SetUp() override {
        StartPhone("sm8450");
        LoadLibrary();
        Forget();
    }

    // The actions of one command; null when it was refused.
    lab::ActionChain ParseOne(Command& command) {
        auto chains = Parse({&command});
        return chains.count(command.Id()) ? std::move(chains.at(command.Id())) : nullptr;
    }

    lab::ActionChain ParseOne(int cmdId, const Pairs& pairs) {
        Command command(cmdId);
        command.Element("boost", pairs);
        return ParseOne(command);
    }
};

TEST_F(LoaderTest, ElementBecomesPairsInAscendingOpcodeOrder) {
    const auto action = ParseOne(4353, {{"duration_ms", "100"},
                                        {"sched_boost", "3"},
                                        {"big_cpu0_min_freq", "1766400"},
                                        {"lpm_bias_hyst", "-5"}});
    ASSERT_NE(action, nullptr);
    EXPECT_EQ(action->cmdId, 4353);
    EXPECT_EQ(action->name, "boost");
    EXPECT_EQ(action->duration, 100);
    EXPECT_EQ(action->boostLimitLevel, -1);
    EXPECT_EQ(action->breakThrough, 1);
    EXPECT_EQ(action->tagLen, 3);
    EXPECT_THAT(action->perfList, ElementsAre(0x40408000, -5, 0x40800000, 1766, 0x40C00000, 3));
    EXPECT_THAT(Log(kError), IsEmpty());
    EXPECT_THAT(Log(kInfo), IsEmpty());
}

TEST_F(LoaderTest, NumbersBecomeWhatAtoiMakesOfThem) {
    const std::vector<std::string> texts{"-",
                                         "-2147483648",
                                         "4294967297",
                                         "00000000000000000000012",
                                         "999999999999999999",
                                         "9999999999999999999",
                                         "-9999999999999999999",
                                         "99999999999999999999",
                                         "-99999999999999999999"};
    for (const std::string& text : texts) {
        const auto action = ParseOne(4353, {{"duration_ms", "1"}, {"sched_boost", text}});
        ASSERT_NE(action, nullptr) << text;
        EXPECT_EQ(action->perfList.at(1), std::atoi(text.c_str())) << text;
    }
}

TEST_F(LoaderTest, NumbersOfAnyLengthHaveDigitsAtEveryPlace) {
    const auto parse = [this](const std::string& text) {
        return ParseOne(4353, {{"duration_ms", "1"}, {"sched_boost", text}});
    };
    const std::string digits = "90182736451";
    for (size_t length = 1; length <= digits.size(); ++length) {
        for (const std::string& text : {digits.substr(0, length), '-' + digits.substr(0, length)}) {
            const auto action = parse(text);
            ASSERT_NE(action, nullptr) << text;
            EXPECT_EQ(action->perfList.at(1), std::atoi(text.c_str())) << text;
            for (size_t at = 0; at < text.size(); ++at) {
                for (const char other : {'/', ':', ' ', '@', '\0', '\x7F', '\xB0', '\xFF'}) {
                    std::string wrong = text;
                    wrong[at] = other;
                    EXPECT_EQ(parse(wrong), nullptr) << wrong << " for " << text;
                }
                if (at == 0) continue;
                std::string split = text;
                split[at] = '-';
                EXPECT_EQ(parse(split), nullptr) << split;
            }
        }
    }
}

struct RefusalCase {
    const char* what;
    int cmdId;
    Pairs pairs;
    std::vector<std::string> errors;
};

class LoaderRefusalTest : public LoaderTest, public testing::WithParamInterface<RefusalCase> {};

TEST_P(LoaderRefusalTest, OneBadElementCostsItsCommandAndNoOther) {
    const RefusalCase& c = GetParam();
    Command bad(c.cmdId);
    bad.Element("fine", {{"duration_ms", "10"}, {"sched_boost", "1"}}).Element("bad", c.pairs);
    Command good(20000);
    good.Element("boost", {{"duration_ms", "10"}, {"sched_boost", "1"}});
    const auto chains = Parse({&bad, &good});
    EXPECT_EQ(chains.count(c.cmdId), 0u) << c.what;
    EXPECT_EQ(chains.count(20000), 1u) << c.what;
    EXPECT_EQ(Log(kError), c.errors) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Loader, LoaderRefusalTest,
    testing::Values(
        RefusalCase{"unknown key",
                    4353,
                    {{"duration_ms", "1"}, {"sched_bost", "1"}},
                    {"tarquel: xml is invalid, cmdId is 4353 element is sched_bost"}},
        RefusalCase{"empty value",
                    4353,
                    {{"duration_ms", ""}},
                    {"tarquel: xml element is invalid, cmdId is 4353 element is duration_ms"}},
        RefusalCase{"leading plus",
                    4353,
                    {{"duration_ms", "1"}, {"sched_boost", "+1"}},
                    {"tarquel: xml element is invalid, cmdId is 4353 element is sched_boost"}},
        RefusalCase{"trailing minus",
                    4353,
                    {{"off_delay_time", "1-"}},
                    {"tarquel: xml element is invalid, cmdId is 4353 element is off_delay_time"}},
        RefusalCase{"frequency below 1 MHz",
                    4353,
                    {{"duration_ms", "1"}, {"big_cpu0_max_freq", "999"}},
                    {}},
        RefusalCase{"frequency above the HAL's range",
                    4353,
                    {{"duration_ms", "1"}, {"prime_cpu0_max_freq", "65535000"}},
                    {}},
        RefusalCase{"endless element in a chain",
                    4353,
                    {{"sched_boost", "1"}},
                    {"tarquel don't support multi-action in long term scene, cmdId is 4353"}},
        RefusalCase{"tag before the clusters are known",
                    12288,
                    {{"duration_ms", "0"}, {"gpu_max_freq", "3"}},
                    {"tarquel: xml is invalid, cmdId is 12288 element is gpu_max_freq"}}));

TEST_F(LoaderTest, ThirtySixthPairIsCutAndNotRefused) {
    // The 36 lowest opcodes of the sm range, listed in descending order.
    const std::vector<std::string> keys{
        "power_collapse",     "power_collapse_perf", "lpm_bias_hyst",      "lpm_levels_ref_stddev",
        "lpm_levels_tmr_add", "lpm_ipi_prediction",  "sched_prefer_idle",  "sched_migrate_cost",
        "sched_small_task",   "sched_up_migrate",    "sched_spill_nr_run", "sched_cpuset_top_app",
        "fg_cpuset",          "bg_cpuset",           "boost_cpuset",       "vip_cpuset",
        "topapp_cpuset",      "graphic_cpuset",      "system_cpuset",      "sysbg_cpuset",
        "keybg_cpuset",       "fas_enable",          "fas_lcd_fps_sure",   "fas_rboost_enable",
        "fas_uboost_enable",  "fas_freq_boost",      "fas_freq_boost_opp", "fas_heavy_task_num",
        "fas_rescue_percent", "board_ipa_mode",      "board_ipa_weight",   "ipa_power_target",
        "ipa_power_range",    "disable_pasr",        "pid_affine",         "vip_prefer_big_core"};
    Pairs pairs;
    for (auto key = keys.rbegin(); key != keys.rend(); ++key) pairs.emplace_back(*key, "1");
    const auto action = ParseOne(4353, pairs);
    ASSERT_NE(action, nullptr);
    EXPECT_EQ(action->tagLen, 35);
    ASSERT_THAT(action->perfList, SizeIs(70));
    // The highest opcode is the one that is left out.
    EXPECT_THAT(action->perfList, testing::Not(Contains(0x45000000)));
    EXPECT_THAT(Log(kError), ElementsAre("tarquel: xml is invalid, too many elements"));
}

TEST_F(LoaderTest, FirstOfTwoValuesForOneOpcodeWins) {
    const auto action = ParseOne(4353, {{"middle_cpu0_max_freq", "1804800"},
                                        {"top_app", "5"},
                                        {"sched_boost", "3"},
                                        {"big_cpu0_max_freq", "nonsense"},
                                        {"schedtune_boost", "6"}});
    ASSERT_NE(action, nullptr);
    EXPECT_THAT(action->perfList, ElementsAre(0x40804000, 1804, 0x40C00000, 3, 0x40C70000, 5));
    EXPECT_THAT(Log(kError),
                ElementsAre("tarquel: multi-duration exist! we choose the first value(1804800, 0)",
                            "tarquel: multi-duration exist! we choose the first value(5, 6)"));
}

TEST_F(LoaderTest, LevelElementWithoutANumberThrows) {
    Command boost(1);
    boost.Element("boost", {{"duration_ms", "1"}});
    Command level(2);
    level.Element("freq_level_info", {{"big_cpu0_max_freq", "1"}});
    EXPECT_THROW(Parse({&boost, &level}), std::invalid_argument);
    Command empty(2);
    empty.Element("freq_level_info", {});
    EXPECT_NO_THROW(Parse({&empty}));
}

TEST_F(LoaderTest, LoaderServesOneConfiguration) {
    using Create = QcomPerfLoadXml* (*)();
    using ParserXml = std::map<int, Action*>* (*)(QcomPerfLoadXml*, std::map<int, RawXmlData*>&);
    QcomPerfLoadXml* loader = Exported<Create>("CreateTarQuelLoadXml")();
    void** slots = *reinterpret_cast<void***>(loader);
    const auto parse = reinterpret_cast<ParserXml>(slots[2]);
    Command command(4353);
    command.Element("boost", {{"duration_ms", "1"}, {"sched_boost", "1"}});
    Command alone(4354);  // a head without an element
    std::map<int, RawXmlData*> heads{{4353, &command.Head()}, {4354, &alone.Head()}};
    for (const size_t found : {1u, 0u}) {
        const std::unique_ptr<std::map<int, Action*>> chains(parse(loader, heads));
        EXPECT_THAT(*chains, SizeIs(found));
        for (const auto& [id, action] : *chains) delete action;
    }
    EXPECT_THAT(Log(kError),
                ElementsAre("tarquel: xml is invalid, cmdId is 4353 element is sched_boost"));
    reinterpret_cast<void (*)(QcomPerfLoadXml*)>(slots[1])(loader);
}

TEST_F(LoaderTest, WhatIsRefusedOrFreedIsGivenBack) {
    const auto deleteAction =
        Exported<void (*)(void*, Action&)>("_ZN15QcomPerfLoadXml12DeleteActionER6Action");
    void* const loader = Exported<void* (*)()>("CreateTarQuelLoadXml")();
    const Pairs fine{{"duration_ms", "1"}, {"sched_boost", "1"}};
    Command refused(4353);
    refused.Element("first", fine).Element("second", fine).Element("third", {{"nonsense", "1"}});
    Command endless(4354);
    endless.Element("first", fine).Element("second", {{"duration_ms", "0"}});
    Command good(4355);
    good.Element("first", fine).Element("second", fine).Element("third", fine);
    const auto run = [&] {
        auto chains = Parse({&refused, &endless, &good});
        EXPECT_THAT(chains, SizeIs(1));
        deleteAction(loader, *chains.at(4355).release());
        Forget();
    };
    const auto runs = [&run] {
        for (int i = 0; i < 100; ++i) run();
        return static_cast<long>(mallinfo2().uordblks);
    };
    const long before = runs();
    // What the allocator keeps for itself is a matter of luck; a hundred actions are 20 KB.
    EXPECT_LT(runs() - before, 4096);
    (*static_cast<void (***)(void*)>(loader))[1](loader);  // its deleting destructor
}

TEST_F(LoaderTest, AnActionHasAtMost65536Pairs) {
    std::vector<int> list(2 * 65536, 1);
    EXPECT_EQ(GetLibrary().Copy(*MakeAction(4353, 1, list))->perfList, list);
    EXPECT_THAT(GetLibrary().Copy(*MakeAction(4353, 1, {}))->perfList, IsEmpty());
    EXPECT_THAT(Log(kError), IsEmpty());
    list.resize(list.size() + 2);
    EXPECT_THROW(GetLibrary().Copy(*MakeAction(4353, 1, list)), std::length_error);
    EXPECT_THAT(Log(kError), ElementsAre("tarquel: action list is invalid, cmdId is 4353, tagLen "
                                         "is 65537\n"));
}

TEST_F(LoaderTest, MalformedRecordsAreSurvived) {
    Command cycle(4354);
    cycle.Element("boost", {{"duration_ms", "5"}}).Element("boost", {{"duration_ms", "5"}});
    cycle.Last().next = cycle.Head().next;
    EXPECT_EQ(ParseOne(cycle), nullptr);

    EXPECT_NE(ParseOne(4355, {{"sched_boost", std::string(100000, '1')}}), nullptr);
}
