#include "lab/check/scene_check.h"

#include <gtest/gtest.h>

#include "fuzz/scene_agreement.h"

namespace lab {
namespace {

constexpr char kClusters[] =
    "<scenes><command id='1'><qcom_cpu_info><lit_cpu_num>0-3</lit_cpu_num>"
    "<big_cpu_num>4-6</big_cpu_num><prime_cpu_num>7-7</prime_cpu_num></qcom_cpu_info></command>\n";

// "2:30 warning frequency-step" for each finding.
std::string Listed(const SceneCheck& check) {
    std::string text;
    for (const Finding& finding : check.findings) {
        constexpr const char* kNames[] = {"note", "warning", "error"};
        text += (text.empty() ? "" : "; ") + std::to_string(finding.place.line) + ":" +
                std::to_string(finding.place.column) + " " +
                kNames[static_cast<size_t>(finding.severity)] + " " + finding.rule;
    }
    return text;
}

std::string Words(const SceneCheck& check) {
    std::string text;
    for (const Finding& finding : check.findings) {
        text += finding.message + " | " + finding.plugin + " | " + finding.advice + "\n";
    }
    return text;
}

// A command, its findings on sm8450, and what they say.
struct Row {
    const char* name;
    const char* command;
    const char* findings;
    std::vector<const char*> parts;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

class SceneRule : public testing::TestWithParam<Row> {};

TEST_P(SceneRule, NamesPlaceRuleAndRemedy) {
    const SceneCheck check = CheckSceneText(
        kClusters + std::string(GetParam().command) + "\n</scenes>", "my.xml", "sm8450");
    EXPECT_EQ(Listed(check), GetParam().findings) << Words(check);
    for (const char* part : GetParam().parts) {
        EXPECT_NE(Words(check).find(part), std::string::npos) << part << " in\n" << Words(check);
    }
}

TEST_P(SceneRule, RefusesWhatTheLoaderRefuses) {
    std::vector<SceneProblem> mistakes;
    SceneFile scenes = SceneFile::ParseAll(
        kClusters + std::string(GetParam().command) + "\n</scenes>", "my.xml", mistakes);
    if (!mistakes.empty()) return;  // no file for the loader
    Phone phone(LoadDeviceProfile("sm8450"));
    Library library("");
    EXPECT_EQ(fuzz::FindDisagreement(scenes, phone, library), "");
}

INSTANTIATE_TEST_SUITE_P(
    Refused, SceneRule,
    testing::Values(
        Row{"EveryKeyNotTheFirst",
            "<command "
            "id='16'><b><duration_ms>1</duration_ms><big_cpu0_min_frq>1</big_cpu0_min_frq>\n"
            "<sched_boost>x</sched_boost>\n<big_cpu0_min_freq>999</big_cpu0_min_freq>\n"
            "<hmp>1</hmp></b></command>",
            "2:49 error unknown-key; 3:1 error number; 4:1 error frequency-range",
            {"did you mean 'big_cpu0_min_freq'", "cmdId is 16 element is sched_boost", "999"}},
        Row{"EveryEndlessElementOfAChain",
            "<command id='16'><b><duration_ms>1</duration_ms><hmp>1</hmp></b>\n"
            "<c><hmp>1</hmp></c>\n<d><duration_ms>0</duration_ms><hmp>1</hmp></d></command>",
            "3:1 error endless-element; 4:4 error endless-element",
            {"don't support multi-action", "the command has 3"}},
        Row{"DurationThatIsNoNumber",
            "<command id='16'><b><duration_ms>x</duration_ms><hmp>1</hmp></b>\n"
            "<c><duration_ms>1</duration_ms><hmp>y</hmp></c></command>",
            "2:21 error number; 3:32 error number",
            {}},
        Row{"LevelWithoutANumber",
            "<command id='2'><freq_level_info><little_cpu0_max_freq>307200</little_cpu0_max_freq>"
            "</freq_level_info></command>",
            "2:17 error refused",
            {"<freq_level_info3>"}},
        Row{"CommandsWithOneId",
            "<command id='16'><b><hmp>1</hmp></b></command>\n"
            "<command id='16'><b><sched_boost>x</sched_boost></b></command>",
            "3:10 error form; 3:21 error number",
            {}},
        Row{"CommandWithoutAnId",
            "<command><b><duration_ms>1</duration_ms><nonsense>1</nonsense></b></command>",
            "2:1 error form; 2:41 error unknown-key",
            {}},
        Row{"Interactive",
            "<command id='16' governor='interactive'><g><hispeed_freq>1</hispeed_freq>"
            "<hispeed_freq_l/><hispeed_freq_l>1</hispeed_freq_l></g></command>",
            "2:44 error unknown-key; 2:74 error number; 2:41 note node-missing; "
            "2:91 warning repeated-key",
            {"hispeed_freq_l'"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(SceneCheck, QuotesNoMoreOfAValueThanALineHolds) {
    const std::string value(5000, '1');
    const SceneCheck check =
        CheckSceneText(kClusters +
                           ("<command id='16'><b><hmp>" + value + "</hmp><sched_boost>x" + value +
                            "</sched_boost></b></command>") +
                           "</scenes>",
                       "my.xml", "sm8450");
    ASSERT_EQ(check.findings.size(), 2u) << Listed(check);
    for (const Finding& finding : check.findings) EXPECT_LT(finding.message.size(), 200u);
}

TEST(SceneCheck, WantsTheDeclarationBeforeAllElse) {
    const std::string scenes =
        kClusters + std::string(
                        "<command id='16'><b><duration_ms>1</duration_ms>"
                        "<sched_boost>1</sched_boost></b></command></scenes>");
    const auto listed = [](const std::string& text) {
        return Listed(CheckSceneText(text, "my.xml", "sm8450"));
    };
    EXPECT_EQ(listed("<?xml version='1.0'?>\n" + scenes), "");
    EXPECT_EQ(listed("\xEF\xBB\xBF<?xml version='1.0'?>\n" + scenes), "");
    EXPECT_EQ(listed("\n <?xml version='1.0'?>\n" + scenes), "2:2 error xml");
}

INSTANTIATE_TEST_SUITE_P(
    Regretted, SceneRule,
    testing::Values(
        Row{"Fine",
            "<command id='16'><b><duration_ms>1</duration_ms>"
            "<big_cpu0_min_freq>1113600</big_cpu0_min_freq></b></command>",
            "",
            {}},
        Row{"Steps",
            "<command id='16'><b><duration_ms>1</duration_ms><big_cpu0_min_freq>1113601"
            "</big_cpu0_min_freq>\n<gpu_max_freq>600</gpu_max_freq>\n"
            "<llcc_ddr_bw_min_freq>800000</llcc_ddr_bw_min_freq>\n"
            "<l3_memlat_min_freq>800000</l3_memlat_min_freq></b></command>",
            "2:49 warning frequency-step; 3:1 warning frequency-step; 4:1 warning frequency-step",
            {"becomes 1113600", "beside it are 1113600 and 1209600", "ceiling becomes 599",
             "floor becomes 1555000"}},
        Row{"Units",
            "<command id='16'><b><duration_ms>1</duration_ms><big_cpu0_min_freq>1113"
            "</big_cpu0_min_freq>\n<gpu_max_freq>545000000</gpu_max_freq></b></command>\n"
            "<command id='12288'><b><duration_ms>0</duration_ms><gpu_max_freq>545</gpu_max_freq>"
            "</b></command>",
            "2:49 warning frequency-range; 3:1 warning frequency-range; "
            "4:52 warning frequency-range",
            {"did you mean 1113600?", "did you mean 545?", "did you mean 545000000?"}},
        Row{"AttributesThatAreNoXml",
            "<command id='16' name='a & b &amp; &#x26;'><b><duration_ms>1</duration_ms>"
            "<hmp>1</hmp></b></command>\n"
            "<command id='17' name='a<b'><b><duration_ms>1</duration_ms><hmp>1</hmp></b></command>",
            "2:26 error xml; 3:25 error xml",
            {"write '&amp;'", "write '&lt;'"}},
        Row{"TwoNamesOfOneOpcode",
            "<command id='16'><b><duration_ms>1</duration_ms>"
            "<big_cpu0_min_freq>1113600</big_cpu0_min_freq>\n"
            "<middle_cpu0_min_freq>1209600</middle_cpu0_min_freq>\n<duration_ms>2</duration_ms>"
            "</b></command>",
            "3:1 warning repeated-key; 4:1 warning repeated-key",
            {"two names of opcode 0x40800000", "the first counts, 1113600",
             "multi-duration exist! we choose the first value(1113600, 1209600)",
             "the last one counts"}},
        Row{"Order",
            "<command id='12288'><b><gpu_max_freq>545000000</gpu_max_freq>"
            "<duration_ms>0</duration_ms></b></command>",
            "2:24 error duration-order",
            {"put duration_ms first"}},
        Row{"LongSceneKeys",
            "<command id='12288'><b><duration_ms>0</duration_ms><gpu_max_freq>0</gpu_max_freq>\n"
            "<gpu_max_power_level>3</gpu_max_power_level>"
            "<boost_limit_level>0</boost_limit_level>\n<hmp>1</hmp></b></command>",
            "3:1 error scene-key; 4:1 error unknown-key; 2:52 warning scene-key; "
            "3:45 warning scene-key",
            {"it takes little_cpu0_max_freq"}},
        Row{"EventWithADuration",
            "<command id='12288'><b><duration_ms>500</duration_ms>"
            "<gpu_max_freq>545</gpu_max_freq></b></command>",
            "2:24 warning event-duration",
            {}},
        Row{"NeverRunsAndHoldsNothing",
            "<command id='16'><b><duration_ms>-1</duration_ms><hmp>1</hmp></b></command>\n"
            "<command id='17'><b><duration_ms>5</duration_ms></b></command>",
            "2:21 warning never-runs; 3:18 warning no-tunable",
            {}},
        Row{"LevelsMissing",
            "<command id='2'><freq_level_info1><little_cpu0_max_freq>1785600"
            "</little_cpu0_max_freq></freq_level_info1></command>\n"
            "<command id='16'><b><duration_ms>1</duration_ms>"
            "<boost_limit_level>19087362</boost_limit_level><hmp>1</hmp></b></command>",
            "2:17 warning level-incomplete; 3:49 warning level-missing",
            {"level 1 has no big_cpu0_max_freq, prime_cpu0_max_freq",
             "frequency level 2 (under thermal level 2)"}},
        Row{"LevelAsHexadecimalDigits",
            "<command id='16'><b><duration_ms>1</duration_ms>"
            "<boost_limit_level>01234004</boost_limit_level><hmp>1</hmp></b></command>",
            "2:49 warning boost-level",
            {"in decimal these are 19087364"}},
        Row{"CountWithoutPeriod",
            "<command id='16'><b><duration_ms>1</duration_ms><hmp>1</hmp>"
            "<boost_count_limit>3</boost_count_limit></b></command>\n"
            "<command id='17'><b><duration_ms>1</duration_ms><hmp>1</hmp>"
            "<boost_period>3</boost_period></b></command>",
            "2:61 warning count-limit; 3:61 warning count-limit",
            {"boost_count_limit without boost_period", "boost_period without boost_count_limit"}},
        Row{"Bounds",
            "<command id='16'><b><duration_ms>1</duration_ms>"
            "<middle_cpu0_min_freq>1209600</middle_cpu0_min_freq>"
            "<big_cpu0_max_freq>1113600</big_cpu0_max_freq></b></command>",
            "2:49 warning min-above-max",
            {"above big_cpu0_max_freq in line 2, 1113600"}},
        Row{"Ranges",
            "<command id='16'><b><duration_ms>1</duration_ms><sched_boost>4</sched_boost>\n"
            "<cpuctl_fg_uclamp_min>101</cpuctl_fg_uclamp_min>\n"
            "<min_online_cpu_cluster_big>9</min_online_cpu_cluster_big>\n"
            "<fas_enable>2</fas_enable>\n<sched_up_migrate>80</sched_up_migrate></b></command>",
            "2:49 warning value-range; 3:1 warning value-range; 4:1 warning value-range; "
            "5:1 warning value-range; 6:1 warning value-range",
            {"the kernel makes 3 of it", "up at or above down"}},
        Row{"Numbers",
            "<command id='16'><b><duration_ms>99999999999</duration_ms>"
            "<hmp>-</hmp></b></command>",
            "2:21 error number; 2:59 error number",
            {"32 bits", "reads as 0"}},
        Row{"TaskAndState",
            "<command id='16' task_boost='1' state_mask='-1'><b><duration_ms>1</duration_ms>"
            "<hmp>1</hmp></b></command>\n<command id='17'><b><duration_ms>1</duration_ms>"
            "<sched_task_boost>0</sched_task_boost></b></command>",
            "2:49 warning state-mask; 2:49 warning task-boost; 3:49 warning task-boost",
            {}},
        Row{"DescriptionOutOfPlace",
            "<command id='16'><b><duration_ms>1</duration_ms><hmp>1</hmp></b>\n"
            "<freq_level_info1><duration_ms>1</duration_ms>"
            "<little_cpu0_max_freq>1785600</little_cpu0_max_freq></freq_level_info1></command>",
            "3:1 error description",
            {}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(SceneCheck, TellsWhichOfTooManyTunablesAreCut) {
    std::string element;
    for (const char* name :
         {"fg", "bg", "boost", "vip", "topapp", "graphic", "system", "sysbg", "keybg"}) {
        for (const char* leaf : {"uclamp_min", "uclamp_max", "cpu_shares"}) {
            const std::string key = std::string("cpuctl_") + name + "_" + leaf;
            element += "<" + key + ">50</" + key + ">\n";
        }
        const std::string key = std::string(name) + "_cpuset";
        element += "<" + key + ">3</" + key + ">\n";
    }
    const SceneCheck check =
        CheckSceneText(kClusters + ("<command id='9'><b><duration_ms>5</duration_ms>" + element) +
                           "</b></command></scenes>",
                       "my.xml", "sm8450");
    EXPECT_EQ(Listed(check), "25:1 warning too-many-keys; 37:1 warning too-many-keys")
        << Words(check);
    EXPECT_NE(Words(check).find("cut: keybg_cpuset"), std::string::npos) << Words(check);
    EXPECT_NE(Words(check).find("too many elements"), std::string::npos) << Words(check);
}

// A text that is no scene file, and a rule that must say so with an error.
struct Broken {
    const char* name;
    std::string text;
    const char* rule;
    int line;
    int column;
};

void PrintTo(const Broken& broken, std::ostream* out) {
    *out << broken.name;
}

class BrokenSceneFile : public testing::TestWithParam<Broken> {};

TEST_P(BrokenSceneFile, IsNeverFine) {
    const SceneCheck check = CheckSceneText(GetParam().text, "my.xml", "");
    ASSERT_FALSE(check.findings.empty());
    for (const Finding& finding : check.findings) {
        if (finding.rule != GetParam().rule || finding.severity != Severity::kError) continue;
        EXPECT_EQ(finding.place.line, GetParam().line) << finding.message;
        EXPECT_EQ(finding.place.column, GetParam().column) << finding.message;
        return;
    }
    FAIL() << Listed(check) << "\n" << Words(check);
}

const std::string kWhole = std::string(kClusters) + "</scenes>";

INSTANTIATE_TEST_SUITE_P(
    Texts, BrokenSceneFile,
    testing::Values(
        Broken{"Empty", "", "xml", 1, 1}, Broken{"Blanks", " \n ", "xml", 1, 1},
        Broken{"Json", "{}", "xml", 1, 1},
        Broken{"Truncated", kWhole.substr(0, kWhole.size() - 4), "xml", 2, 3},
        Broken{"NullBehindTheEnd", kWhole + std::string(1, '\0') + "x", "encoding", 2, 10},
        Broken{"TextBehindTheEnd", kWhole + " x", "xml", 2, 11},
        Broken{"SecondRoot", kWhole + "\n<scenes/>", "xml", 3, 1},
        Broken{"Utf16", std::string("\xFF\xFE<\0s\0", 6), "encoding", 1, 1},
        Broken{"Latin1BehindAMark", "\xEF\xBB\xBF<scenes>\xC3\xA4 \xE4</scenes>", "encoding", 1,
               11},
        Broken{"SaidToBeLatin1",
               "<?xml version='1.0' encoding='ISO-8859-1'?><scenes>\xC3\xA4</scenes>", "encoding",
               1, 21},
        Broken{"CommentInAComment", "<scenes><!-- a -- b --></scenes>", "xml", 1, 13},
        Broken{"Deep", "<scenes>" + std::string(30000, '<') + "</scenes>", "xml", 1, 10},
        Broken{"NoCommand", "<scenes/>", "empty", 1, 1}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(SceneCheck, ShippedFilesAreCleanOnTheirDevices) {
    for (const std::string& name : DeviceProfileNames()) {
        const SceneCheck check = CheckSceneFile(DataFolder() + "/scenes/" + name + ".xml", "");
        EXPECT_EQ(check.device, name);
        EXPECT_EQ(check.Count(Severity::kError) + check.Count(Severity::kWarning), 0u)
            << Listed(check) << "\n"
            << Words(check);
        EXPECT_GE(check.commands, 60u);
    }
}

TEST(SceneCheck, TellsWhatAnotherDeviceLacks) {
    const SceneCheck check = CheckSceneFile(DataFolder() + "/scenes/sm8450.xml", "sm4450");
    const std::string words = Words(check);
    EXPECT_NE(words.find("prime_cpu0_min_freq has no effect: sm4450 has 2 clusters"),
              std::string::npos);
    EXPECT_NE(words.find("sm4450 has no node llcc bwmon min_freq"), std::string::npos);
    EXPECT_NE(words.find("big_cpu_num is 4-6, but on sm4450 it is 6-7"), std::string::npos);
}

}  // namespace
}  // namespace lab
