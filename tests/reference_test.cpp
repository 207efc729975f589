// What the lab tells of tags, of the vocabulary and of scene files.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "lab/ask/scene_explanation.h"
#include "lab/ask/tag_survey.h"
#include "lab/ask/vocabulary_list.h"
#include "lab/names/table.h"
#include "lab/server/inputs.h"
#include "lab/yaml/yaml_tree.h"
#include "loader/vocabulary_table.h"

namespace lab {
namespace {

// Tags.

class Tags : public testing::TestWithParam<const char*> {
  protected:
    static std::vector<TagReport> Survey() { return SurveyTags(LoadDeviceProfile(GetParam()), ""); }
};

// The lab's table of opcodes is the plug-in's; what its locks carry proves it.
TEST_P(Tags, LockWithTheOpcodeOfTheTable) {
    size_t locked = 0;
    for (const TagReport& report : Survey()) {
        if (!report.lockOpcode) continue;
        EXPECT_EQ(report.lockOpcode, report.opcode) << report.tag;
        ++locked;
    }
    EXPECT_GE(locked, 50u);
}

TEST_P(Tags, ReadWhatTheNodeSaysUnlessTheDeviceLacksIt) {
    for (const TagReport& report : Survey()) {
        const bool exists = std::any_of(report.nodes.begin(), report.nodes.end(),
                                        [](const auto& node) { return node.exists; });
        EXPECT_EQ(report.boot.has_value(), exists) << report.tag;
        const bool isGpuDefault = report.tag == 49 || report.tag == 50;
        if (!report.present || isGpuDefault) continue;
        EXPECT_TRUE(exists) << report.tag;
        EXPECT_EQ(std::to_string(*report.present),
                  report.boot->substr(0, report.boot->find_first_of(".\t")))
            << report.tag;
    }
}

INSTANTIATE_TEST_SUITE_P(Devices, Tags, testing::Values("sm8450", "sm4450"));

const TagReport& Find(const std::vector<TagReport>& reports, int tag) {
    return *std::find_if(reports.begin(), reports.end(),
                         [tag](const TagReport& report) { return report.tag == tag; });
}

TEST(Tags, TellWhatARequestWasSeenToDo) {
    const std::vector<TagReport> tags = SurveyTags(LoadDeviceProfile("sm4450"), "");
    const TagReport& ceiling = Find(tags, 7);
    EXPECT_EQ(ceiling.names,
              (std::vector<std::string>{"big_max", "last_max", "big_cpu0_max_freq"}));
    EXPECT_TRUE(ceiling.lockOpcode && ceiling.isWritten);
    EXPECT_TRUE(Find(tags, 97).lockOpcode && !Find(tags, 97).isWritten);  // passed through
    EXPECT_FALSE(Find(tags, 8).IsSettable());                             // read-only
    EXPECT_FALSE(Find(tags, 40).IsSettable());                            // without an opcode
    EXPECT_TRUE(Find(tags, 57).isControl && Find(tags, 98).isControl);
    const TagReport& missing = Find(tags, 81);  // no last-level cache monitor here
    EXPECT_FALSE(missing.nodes.front().exists);
    EXPECT_FALSE(missing.present);

    std::ostringstream out;
    PrintTags(out, tags, false, Paint(false));
    EXPECT_NE(out.str().find("7    big_max                  0x40804000  "
                             "cpu6 scaling_max_freq (to cpu7)   yes    2208000     2208000     kHz "
                             "    lock and write\n"),
              std::string::npos)
        << out.str();
}

// Vocabulary.

TEST(Vocabulary, HasEveryKeyOnceWithBothBusLayoutsAndItsUnits) {
    const nlohmann::json json = VocabularyJson();
    size_t differing = 0;
    size_t missing = 0;
    for (const nlohmann::json& row : json.at("tunables")) {
        const nlohmann::json& other = row.at("other_bus_opcode");
        (other.is_null() ? missing : differing) += other != row.at("opcode") ? 1u : 0u;
        if (row.at("key") != "little_cpu0_max_freq") continue;
        EXPECT_EQ(row.at("unit"), "kHz");
        EXPECT_EQ(row.at("lock_unit"), "MHz");
    }
    EXPECT_EQ(missing, 1u);
    EXPECT_EQ(differing, 4u);

    std::ostringstream page;
    PrintVocabularyPage(page);
    size_t rows = 0;
    std::istringstream lines(page.str());
    for (std::string line; std::getline(lines, line);) rows += line.rfind("| `", 0) == 0 ? 1 : 0;
    size_t keys = 0;
    for (const nlohmann::json& section : json) keys += section.size();
    EXPECT_EQ(rows, keys);
    EXPECT_EQ(json.at("tunables").size(), tarquel::kOpcodeNames.size());
}

// Explanations.

constexpr char kScenes[] = R"(<scenes>
<command id="1"><qcom_cpu_info>
  <lit_cpu_num>0-5</lit_cpu_num><big_cpu_num>6-7</big_cpu_num><isolation>0</isolation>
</qcom_cpu_info></command>
<command id="2"><freq_level_info5>
  <little_cpu0_max_freq>1804800</little_cpu0_max_freq><big_cpu0_max_freq>2054400</big_cpu0_max_freq>
</freq_level_info5></command>
<command id="100" name="boost"><boost>
  <duration_ms>700</duration_ms>
  <boost_limit_level>83886082</boost_limit_level>
  <boost_count_limit>3</boost_count_limit>
  <boost_period>9000</boost_period>
  <big_cpu0_min_freq>1000000</big_cpu0_min_freq>
  <middle_cpu0_min_freq>1344000</middle_cpu0_min_freq>
  <big_cpu0_max_freq>1651200</big_cpu0_max_freq>
  <cpu_llcc_bw_min_freq>300000</cpu_llcc_bw_min_freq>
</boost></command>
<command id="101" name="chain">
  <first><duration_ms>100</duration_ms><big_cpu0_min_freq>1651200</big_cpu0_min_freq></first>
  <second state_mask="2"><duration_ms>900</duration_ms>
    <big_cpu0_min_freq>1344000</big_cpu0_min_freq></second>
</command>
<command id="102" name="typo"><boost>
  <bigg_cpu0_min_freq>1344000</bigg_cpu0_min_freq></boost></command>
<command id="103" name="skipped" skip="1"><boost>
  <big_cpu0_min_freq>1344000</big_cpu0_min_freq></boost></command>
<command id="12288" name="limit"><limit>
  <duration_ms>0</duration_ms><big_cpu0_max_freq>1344000</big_cpu0_max_freq></limit></command>
<command id="12289" name="cores"><limit><duration_ms>0</duration_ms>
  <max_online_cpu_cluster_big>1</max_online_cpu_cluster_big></limit></command>
<command id="12290" name="late"><limit><big_cpu0_max_freq>1344000</big_cpu0_max_freq>
  <duration_ms>0</duration_ms></limit></command>
<command id="16385" name="governor" governor="interactive"><governor>
  <hispeed_freq_l>960000</hispeed_freq_l></governor></command>
</scenes>)";

ExplainedCommand Explain(const std::string& command) {
    SceneFile scenes = SceneFile::Parse(kScenes, "my.xml");
    const Explanation explanation = ExplainScenes(scenes, command, "", "");
    EXPECT_EQ(explanation.device, "sm4450");  // the shipped one with these clusters
    return explanation.commands.at(0);
}

// A tunable of a command's element: what is asked, what the node reads then, and what is noted.
struct Effect {
    const char* command;
    size_t element;
    const char* key;
    const char* code;
    const char* value;
    const char* reads;
    const char* note;
};

class Explained : public testing::TestWithParam<Effect> {};

TEST_P(Explained, TellsWhatTheNodeReads) {
    const Effect& effect = GetParam();
    const ExplainedElement element = Explain(effect.command).elements.at(effect.element);
    const auto pair =
        std::find_if(element.pairs.begin(), element.pairs.end(),
                     [&](const ExplainedPair& each) { return each.key == effect.key; });
    ASSERT_NE(pair, element.pairs.end());
    EXPECT_EQ(pair->code, effect.code);
    EXPECT_EQ(pair->value, effect.value);
    EXPECT_EQ(pair->nodes.empty() ? "" : pair->nodes[0].reads, effect.reads);
    std::string notes;
    for (const std::string& note : pair->notes) notes += note + "\n";
    EXPECT_EQ(notes.empty(), std::string(effect.note).empty()) << notes;
    EXPECT_NE(notes.find(effect.note), std::string::npos) << notes;
}

INSTANTIATE_TEST_SUITE_P(
    Effects, Explained,
    testing::Values(
        Effect{"boost", 0, "big_cpu0_min_freq", "0x40800000", ">= 1000 MHz", "1190400",
               "no step of 1000 MHz: rounded up to 1190400 kHz"},
        Effect{"boost", 0, "big_cpu0_max_freq", "0x40804000", "<= 1651 MHz", "1651200", ""},
        Effect{"boost", 0, "cpu_llcc_bw_min_freq", "0x41844000", ">= 300 MHz", "", ""},
        Effect{"chain", 0, "big_cpu0_min_freq", "0x40800000", ">= 1651 MHz", "1651200", ""},
        Effect{"101", 1, "big_cpu0_min_freq", "0x40800000", ">= 1344 MHz", "1651200",
               "another limit of the command counts: 1651200"},
        Effect{"skipped", 0, "big_cpu0_min_freq", "0x40800000", ">= 1344 MHz", "", ""},
        Effect{"limit", 0, "big_cpu0_max_freq", "tag 7", "<= 1344 MHz", "1344000", ""},
        Effect{"cores", 0, "max_online_cpu_cluster_big", "tag 63", "<= 1 core", "2",
               "refused when it runs"},
        Effect{"late", 0, "big_cpu0_max_freq", "0x40804000", "<= 1344 MHz", "",
               "stands before duration_ms: no tag, but an opcode"},
        Effect{"governor", 0, "hispeed_freq_l", "", "960000", "", ""}));

TEST(Explain, ShowsWhatIsLiftedUnderEachThermalLevel) {
    const ExplainedCommand command = Explain("boost");
    EXPECT_EQ(command.countLimit, 3);
    EXPECT_EQ(command.periodMs, 9000);
    const ExplainedElement& element = command.elements.at(0);
    ASSERT_EQ(element.lifts.size(), 2u);  // up to thermal level 2
    const ThermalLift& first = element.lifts[0];
    EXPECT_EQ(first.frequencyLevel, 5);
    EXPECT_EQ(first.forMs, 700);
    ASSERT_EQ(first.ceilings.size(), 2u);
    EXPECT_EQ(first.ceilings[1].name, "big_cpu0_scaling_max_freq");
    EXPECT_EQ(first.ceilings[1].value, "2054.4 MHz");
    ASSERT_EQ(first.rewritten.size(), 1u);
    EXPECT_EQ(first.rewritten[0].value, "2054 MHz");
    EXPECT_EQ(element.lifts[1].frequencyLevel, 0);  // without frequencies: the hardware's maxima
    EXPECT_TRUE(element.lifts[1].rewritten.empty());
}

TEST(Explain, TellsWhichKeysCountForNothingAndWhatIsRefused) {
    EXPECT_EQ(Explain("boost").elements[0].dropped,
              std::vector<std::string>{"line 14: middle_cpu0_min_freq = 1344000 does not count: "
                                       "big_cpu0_min_freq in line 13 stands for the same and comes "
                                       "first"});
    const ExplainedCommand typo = Explain("typo");
    EXPECT_FALSE(typo.isAccepted);
    ASSERT_EQ(typo.problems.size(), 1u);
    EXPECT_NE(typo.problems[0].find("my.xml:24:3: the plug-in says: tarquel: xml is invalid"),
              std::string::npos)
        << typo.problems[0];
    EXPECT_EQ(Explain("governor").said.size(), 2u);
    EXPECT_THROW(Explain("bost"), std::runtime_error);
}

TEST(Explain, GivesEveryCommandALine) {
    SceneFile scenes = SceneFile::Parse(kScenes, "my.xml");
    std::ostringstream out;
    PrintSummary(out, ExplainScenes(scenes, "", "", ""), Paint(false));
    const std::string text = out.str();
    for (const char* line :
         {"boost (100)       8     action                700 ms                 3         up to 2 "
          " 1 of its keys count for nothing, breaks through at most 3 in 9000 ms\n",
          "chain (101)       18    action                100 ms, 900 ms         2                  "
          "state 0x2\n",
          "skipped (103)     25    action                never runs             1\n",
          "limit (12288)     27    long scene            while its event lasts  1\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << "in\n" << text;
    }
    EXPECT_NE(text.find("typo (102)        23    action"), std::string::npos) << text;
}

// An element with more tunables than a lock, and than an action, takes.
TEST(Explain, TellsWhatALockHasNoRoomFor) {
    std::string keys;
    size_t count = 0;
    const nlohmann::json vocabulary = VocabularyJson();
    for (const nlohmann::json& row : vocabulary.at("tunables")) {
        if (row.at("family") != "task groups" || count == 37) continue;
        const auto key = row.at("key").get<std::string>();
        keys += "<" + key + ">1</" + key + ">\n";
        ++count;
    }
    SceneFile scenes =
        SceneFile::Parse("<scenes><command id=\"9\"><a><duration_ms>5</duration_ms>\n" + keys +
                             "</a></command></scenes>",
                         "my.xml");
    const Explanation explanation = ExplainScenes(scenes, "9", "sm8450", "");
    const ExplainedElement& element = explanation.commands.at(0).elements.at(0);
    ASSERT_EQ(element.pairs.size(), 35u);
    EXPECT_EQ(count - element.pairs.size(), element.dropped.size());
    ASSERT_FALSE(element.dropped.empty());
    EXPECT_NE(element.dropped.back().find("is cut: an element takes 35 tunables"),
              std::string::npos);
    const auto isLeftOut = [](const ExplainedPair& pair) {
        return !pair.notes.empty() && pair.notes.back().rfind("not in the lock: ", 0) == 0;
    };
    EXPECT_EQ(std::count_if(element.pairs.begin(), element.pairs.end(), isLeftOut), 3);
    EXPECT_TRUE(isLeftOut(element.pairs.back()));
    EXPECT_EQ(explanation.problems.size(), 1u);  // the file describes no clusters
}

TEST(Explain, TellsOfAClusterThatTheDeviceLacks) {
    SceneFile scenes = SceneFile::Parse(
        "<scenes><command id=\"9\"><a><duration_ms>5</duration_ms>"
        "<prime_cpu0_min_freq>1171200</prime_cpu0_min_freq></a></command></scenes>",
        "my.xml");
    const Explanation explanation = ExplainScenes(scenes, "9", "sm4450", "");
    const ExplainedPair& pair = explanation.commands.at(0).elements.at(0).pairs.at(0);
    ASSERT_EQ(pair.notes.size(), 1u);
    EXPECT_EQ(pair.notes[0], "has no effect: sm4450 has 2 clusters");
}

TEST(Explain, PrintsACommandWithItsEffects) {
    SceneFile scenes = SceneFile::Parse(kScenes, "my.xml");
    std::ostringstream out;
    PrintCommand(out, ExplainScenes(scenes, "boost", "", ""), false, Paint(false));
    EXPECT_EQ(
        out.str(),
        "boost (100) my.xml:8, action, on sm4450\n"
        "my.xml:14:3: the plug-in says: tarquel: multi-duration exist! we choose the first "
        "value(1000000, 1344000)\n"
        "  breaks through at most 3 in 9000 ms\n"
        "\n"
        "<boost> line 8, 700 ms\n"
        "  code        key                   value        node                   reads then\n"
        "  0x40800000  big_cpu0_min_freq     >= 1000 MHz  cpu6 scaling_min_freq  1190400 kHz  "
        "the device has no step of 1000 MHz: rounded up to 1190400 kHz\n"
        "  0x40804000  big_cpu0_max_freq     <= 1651 MHz  cpu6 scaling_max_freq  1651200 kHz\n"
        "  0x41844000  cpu_llcc_bw_min_freq  >= 300 MHz   llcc bwmon min_freq                 "
        "the device has no such node\n"
        "  line 14: middle_cpu0_min_freq = 1344000 does not count: big_cpu0_min_freq in line "
        "13 stands for the same and comes first\n"
        "  breaks through thermal limits up to level 2\n"
        "    thermal level  frequency level  for     scaling maxima                     its "
        "own maxima\n"
        "    1              5                700 ms  little 1804.8 MHz, big 2054.4 MHz  big "
        "2054 MHz\n"
        "    2              0                700 ms  little 1958.4 MHz, big 2208 MHz\n");
}

TEST(Tables, AlignCharactersAndLeaveEmptyColumnsOut) {
    Table table({"name", "nothing", "value"});
    table.Add({"é", "", "1"});
    table.Add({"longer", "", "a|b"});
    std::ostringstream text;
    table.Print(text, "> ", Paint(false));
    EXPECT_EQ(text.str(), "> name    value\n> é       1\n> longer  a|b\n");
    std::ostringstream page;
    table.PrintMarkdown(page);
    EXPECT_EQ(page.str(),
              "| name | nothing | value |\n|---|---|---|\n| é | | 1 |\n| longer | | a\\|b |\n");
}

TEST(Inputs, SuggestTheNearestShippedName) {
    try {
        FindSceneFile("sm845");
        FAIL() << "found";
    } catch (const InputError& error) {
        EXPECT_NE(std::string(error.what()).find("did you mean 'sm8450'?"), std::string::npos);
    }
}

}  // namespace
}  // namespace lab
