// The program as its users meet it: exit codes, what goes where, and help.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/support/lab_program.h"

namespace lab {
namespace {

struct Usage {
    const char* name;
    const char* arguments;
    int code;
    const char* out;  // parts; "" where nothing may stand
    const char* errors;
};

void PrintTo(const Usage& usage, std::ostream* out) {
    *out << usage.arguments;
}

class LabProgram : public testing::TestWithParam<Usage> {};

TEST_P(LabProgram, AnswersOnOutputAndFailsOnError) {
    const Usage& usage = GetParam();
    const Ran ran = RunLab(usage.arguments);
    EXPECT_EQ(ran.code, usage.code) << ran.errors;
    EXPECT_EQ(ran.out.empty(), std::string(usage.out).empty()) << ran.out;
    EXPECT_NE(ran.out.find(usage.out), std::string::npos) << ran.out;
    EXPECT_EQ(ran.errors.empty(), std::string(usage.errors).empty()) << ran.errors;
    EXPECT_NE(ran.errors.find(usage.errors), std::string::npos) << ran.errors;
    EXPECT_EQ(ran.out.find('\033'), std::string::npos) << "coloured, though no terminal";
}

INSTANTIATE_TEST_SUITE_P(
    Help, LabProgram,
    testing::Values(
        Usage{"Why", "why --help", 0, "tarquel-lab why thermal_breakthrough big_max --at 5.200",
              ""},
        Usage{"Explain", "explain --help", 0, "tarquel-lab explain sm8450 game_fight", ""},
        Usage{"Nodes", "nodes --help", 0, "tarquel-lab nodes --device sm4450", ""},
        Usage{"Vocabulary", "vocabulary --help", 0, "tarquel-lab vocabulary | grep uclamp", ""}),
    [](const auto& test) { return std::string(test.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Usage, LabProgram,
    testing::Values(
        Usage{"WhyAtTheEnd", "why shared_limits last_max", 0, "reads   2995200 kHz, as after boot",
              ""},
        Usage{"WhyOnAnotherDevice", "why shared_limits last_max --device sm4450 --at 700ms", 0,
              "cpu6 scaling_max_freq on sm4450 at 0.700 s", ""},
        Usage{"WhyWithoutHistory", "why shared_limits last_max --at 950ms --history 0", 0,
              "the lowest ceiling wins among the words on a tag", ""},
        Usage{"WhyNoScenario", "why shared_limit last_max", 2, "", "did you mean 'shared_limits'?"},
        Usage{"WhyNoNode", "why shared_limits lst_max", 2, "", "did you mean 'last_max'?"},
        Usage{"WhyNoTime", "why shared_limits last_max --at soon", 2, "",
              "--at soon: this is no time"},
        Usage{"WhyOneOfTwoTimes", "why shared_limits last_max --at 5", 2, "", "5ms or 5s"},
        Usage{"WhyNoClock", "why shared_limits last_max --at 19:42:30", 2, "", "has no clock"},
        Usage{"WhyNoDevice", "why shared_limits last_max --device sm1", 2, "", "sm1"},
        Usage{"WhyWithoutNode", "why shared_limits", 2, "", "node is required"},
        Usage{"ExplainAll", "explain sm4450", 0, "game_fight (9220)", ""},
        Usage{"ExplainPaths", "explain sm4450 game_fight --paths", 0,
              "/sys/devices/system/cpu/cpu6/cpufreq/scaling_min_freq", ""},
        Usage{"ExplainById", "explain sm4450 12288", 0, "power_save (12288)", ""},
        Usage{"ExplainNoCommand", "explain sm4450 game_fihgt", 2, "", "did you mean 'game_fight'?"},
        Usage{"SwappedLetters", "explain sm4450 touhc", 2, "", "did you mean 'touch'?"},
        Usage{"NoCommand", "rnu first_seconds", 2, "", "no command 'rnu' (did you mean 'run'?)"},
        Usage{"NoOption", "run --reprot=x first_seconds", 2, "",
              "run has no option '--reprot' (did you mean '--report'?)"},
        Usage{"ExplainNoFile", "explain nothing.xml", 2, "", "nothing.xml: there is no such file"},
        Usage{"CompareSame", "compare sm8450 sm8450", 0, "do the same: 82 scenes", ""},
        Usage{"CompareDifferent", "compare sm8450 sm4450", 1,
              "touch (4098): big floor 1113 -> 1190 MHz", ""},
        Usage{"CompareKinds", "compare sm8450 hot_game.txt", 2, "",
              "hot_game.txt: is a scenario or a capture, and sm8450 is a scene file"},
        Usage{"CompareSameRuns", "compare first_seconds first_seconds", 0, "do the same: ", ""},
        Usage{"CompareRunWithCapture", "compare thermal_breakthrough hot_game.txt", 0,
              "do the same: 11 requests", ""},
        Usage{"CompareDifferentRuns", "compare thermal_breakthrough first_seconds", 1,
              "new: do screen_on (4097), at 0.200 s (line 9)", ""},
        Usage{"StatsSideBySide", "stats thermal_breakthrough hot_game.txt --longest 0", 0,
              "capped by thermal B: big 8.020 s 43.0 %", ""},
        Usage{"StatsUntil", "stats thermal_breakthrough --at 5.0s", 0, "on sm8450: 5.000 s", ""},
        Usage{"StatsNoPower", "stats first_seconds --power nothing.csv", 2, "", "nothing.csv"},
        Usage{"NodesNoDevice", "nodes --device nothing.yaml", 2, "", "nothing.yaml"},
        Usage{"NodesPaths", "nodes --paths --device sm4450", 0,
              "/sys/devices/system/cpu/cpu5/core_ctl/max_cpus (missing)", ""},
        Usage{"VocabularyTwice", "vocabulary --json --markdown", 2, "", "excludes"},
        Usage{"WhyLessThanNoHistory", "why shared_limits last_max --history -1", 2, "",
              "--history"},
        Usage{"WhyAFolder", "why / big_max", 2, "", "/: cannot be read: Is a directory"},
        Usage{"RunAFolderOfNone", "run /proc/self/fdinfo", 2, "", "no file that ends in .yaml"},
        Usage{"FullDisk", "vocabulary >/dev/full", 2, "", "standard output cannot be written"},
        Usage{"HelpOnAFullDisk", "--help >/dev/full", 2, "", "standard output cannot be written"},
        Usage{"Nothing", "", 2, "", "subcommand is required"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(LabProgram, ExplainsWhatIsRefusedAndSaysSo) {
    const File scenes("scenes.xml",
                      "<scenes>\n"
                      "<command id=\"100\" name=\"good\"><boost><duration_ms>5</duration_ms>\n"
                      "  <big_cpu0_min_freq>1440000</big_cpu0_min_freq></boost></command>\n"
                      "<command id=\"101\" name=\"bad\"><boost><duration_ms>5ms</duration_ms>\n"
                      "  <big_cpu0_min_freq>1440000</big_cpu0_min_freq></boost></command>\n"
                      "</scenes>\n");
    EXPECT_EQ(RunLab("explain " + scenes.Path()).code, 1);
    EXPECT_EQ(RunLab("explain " + scenes.Path() + " good --device sm4450").code, 0);
    const Ran bad = RunLab("explain " + scenes.Path() + " bad --device sm4450");
    EXPECT_EQ(bad.code, 1);
    EXPECT_NE(bad.out.find(scenes.Path() + ":4:37: the plug-in says: tarquel: xml element is "
                                           "invalid, cmdId is 101 element is duration_ms"),
              std::string::npos)
        << bad.out;

    const File broken("broken.xml", "<scenes>\n<command id=\"1\">\n</scenes>\n");
    const Ran ran = RunLab("explain " + broken.Path());
    EXPECT_EQ(ran.code, 2);
    EXPECT_NE(ran.errors.find(broken.Path() + ":3:"), std::string::npos) << ran.errors;
}

TEST(LabProgram, AsksAScenarioOfTheUsersOwn) {
    const File scenario("mine.yaml",
                        "steps:\n"
                        "- {limit: {client: power, tags: {big_max: 1440000}}}\n"
                        "- {after: 100, limt: {client: eapa}}\n");
    const Ran ran = RunLab("why " + scenario.Path() + " big_max");
    EXPECT_EQ(ran.code, 2);
    EXPECT_NE(ran.errors.find(scenario.Path() + ":3:16: there is no step 'limt'"),
              std::string::npos)
        << ran.errors;
}

TEST(LabProgram, LooksForTheDeviceBesideTheScenarioThatNamesIt) {
    const File device("mine_device.yaml",
                      "name: mine\nclusters:\n"
                      "- {name: little, cpus: 0-3, khz: [300000, 600000]}\n"
                      "- {name: big, cpus: 4-7, khz: [500000, 1000000]}\n"
                      "gpu: {mhz: [600, 300], initial_mhz: 300}\n");
    const std::string name = std::filesystem::path(device.Path()).filename();
    const std::string steps = "scenes: sm4450\nsteps:\n- {do: touch}\n";
    const File scenario("beside.yaml", "device: " + name + "\n" + steps);
    EXPECT_NE(RunLab("run " + scenario.Path()).out.find("device mine, "), std::string::npos);
    EXPECT_NE(RunLab("why " + scenario.Path() + " big_min").out.find("on mine at"),
              std::string::npos);
    // A recorded copy may stand elsewhere.
    EXPECT_NE(RunLab("record " + scenario.Path()).out.find("device: " + device.Path()),
              std::string::npos);

    const File wrong("wrong.yaml", "title: a\ndevice: sm84\n" + steps);
    EXPECT_NE(RunLab("run " + wrong.Path()).errors.find(wrong.Path() + ":2:9: sm84: no such"),
              std::string::npos);
    const File wrongScenes("scenes.yaml", "scenes: nix.xml\nsteps:\n- {do: touch}\n");
    EXPECT_NE(RunLab("run " + wrongScenes.Path()).errors.find(wrongScenes.Path() + ":1:9: nix.xml"),
              std::string::npos);
}

TEST(LabProgram, SaysWhatComesOfClustersThatThePluginHasNoNameFor) {
    const std::string gpu = "gpu: {mhz: [600, 300], initial_mhz: 300}\n";
    const std::string table = ", khz: [300000, 900000]}\n";
    const File four("four.yaml", "name: four\nclusters:\n- {name: little, cpus: 0-1" + table +
                                     "- {name: big, cpus: 2-4" + table +
                                     "- {name: gold, cpus: 5-6" + table +
                                     "- {name: prime, cpus: \"7\"" + table + gpu);
    const Ran nodes = RunLab("nodes --device " + four.Path());
    EXPECT_NE(nodes.errors.find("four's CPUs 5-6 (gold) are in none of the clusters"),
              std::string::npos);
    EXPECT_NE(nodes.out.find("cpu2 scaling_max_freq (to cpu4) "), std::string::npos);
    EXPECT_NE(nodes.out.find("prime_max "), std::string::npos);

    const File one("one.yaml", "name: one\nclusters:\n- {name: little, cpus: 0-7" + table + gpu);
    const File scenario("one_cluster.yaml",
                        "steps:\n- {limit: {client: power, tags: {big_max: 300000}}}\n"
                        "- expect: {nodes: {/sys/devices/system/cpu/cpu5/cpufreq/"
                        "scaling_max_freq: 900000}}\n"
                        "- {control: 9}\n- {limit: {client: power, tags: {big_max: 300000}}}\n"
                        "- expect: {nodes: {/sys/devices/system/cpu/cpu5/cpufreq/"
                        "scaling_max_freq: 300000}}\n");
    const File scenes("one.xml",
                      "<scenes><command id=\"1\"><qcom_cpu_info><lit_cpu_num>0-7</lit_cpu_num>"
                      "<isolation>1</isolation></qcom_cpu_info></command></scenes>\n");
    const Ran ran = RunLab("run -q " + scenario.Path() + " --device " + one.Path() + " --scenes " +
                           scenes.Path());
    EXPECT_EQ(ran.code, 0) << ran.out << ran.errors;
    EXPECT_NE(ran.errors.find("one has no big cluster: unless a scene file's big_cpu_num names"),
              std::string::npos);
}

TEST(LabProgram, TellsOfACommandThatThePluginRefused) {
    const File scenes("refused.xml",
                      "<scenes>\n<command id=\"100\" name=\"bad\"><boost>\n"
                      "<big_cpu0_min_freq>1440000</big_cpu0_min_freq><bigg>1</bigg>\n"
                      "</boost></command>\n</scenes>\n");
    const File scenario("refused.yaml",
                        "steps:\n- {do: bad}\n"
                        "- {limit: {client: power, tags: {little_cores_min: 2}}}\n");
    const Ran ran =
        RunLab("why " + scenario.Path() + " 'cpu4 scaling_min_freq' --scenes " + scenes.Path());
    EXPECT_EQ(ran.code, 0) << ran.errors;
    EXPECT_NE(ran.out.find("bad (100)                    >= 1440 MHz    took no lock: the plug-in "
                           "refused this command (" +
                           scenes.Path() + ":2)"),
              std::string::npos)
        << ran.out;
    const Ran cores =
        RunLab("why " + scenario.Path() + " little_cores_min --scenes " + scenes.Path());
    EXPECT_NE(cores.out.find("core isolation is off in qcom_cpu_info"), std::string::npos)
        << cores.out;
    EXPECT_NE(ran.errors.find(scenes.Path() + ":3:47: the plug-in says: "), std::string::npos)
        << ran.errors;
}

TEST(LabProgram, PrintsJsonThatAScriptCanRead) {
    const auto why =
        nlohmann::json::parse(RunLab("why shared_limits last_max --at 950ms --json").out);
    EXPECT_EQ(why.at("at_ms"), 950);
    EXPECT_EQ(why.at("holders").size(), 4u);
    EXPECT_EQ(why.at("holders")[0].at("who"), "eapa");
    EXPECT_EQ(why.at("ended")[0].at("how"), "replaced by the same client (line 16)");

    const auto nodes = nlohmann::json::parse(RunLab("nodes --json").out);
    const auto& big = nodes.at("tags").at(3);
    EXPECT_EQ(big.at("names").at(0), "big_min");
    EXPECT_EQ(big.at("nodes").size(), 3u);
    EXPECT_EQ(big.at("settable"), true);

    const auto scenes = nlohmann::json::parse(RunLab("explain sm8450 game_fight --json").out);
    const auto& element = scenes.at("commands").at(0).at("elements").at(0);
    EXPECT_EQ(element.at("duration_ms"), 2000);
    EXPECT_EQ(element.at("pairs").at(0).at("nodes").at(0).at("reads"), "2112000");
    EXPECT_EQ(element.at("thermal").size(), 4u);
    EXPECT_EQ(element.at("thermal").at(1).at("ceilings").at("big_cpu0_scaling_max_freq"),
              "2227.2 MHz");

    const auto keys = nlohmann::json::parse(RunLab("vocabulary --json").out);
    EXPECT_EQ(keys.at("tunables").at(0).at("key"), "power_collapse");
    EXPECT_EQ(keys.at("long_scene").size(), 14u);

    const auto unread = nlohmann::json::parse(RunLab("check --json nothing.xml").out);
    EXPECT_EQ(unread.at("files").at(0).at("file"), "nothing.xml");
    EXPECT_NE(unread.at("files").at(0).at("error").get<std::string>().find("cannot be read"),
              std::string::npos);
}

}  // namespace
}  // namespace lab
