// What tarquel-lab compare tells of two scene files.
#include "lab/ask/scene_comparison.h"

#include <gtest/gtest.h>

namespace lab {
namespace {

constexpr char kClusters[] =
    "<command id='1'><qcom_cpu_info><lit_cpu_num>0-3</lit_cpu_num><big_cpu_num>4-6</big_cpu_num>"
    "<prime_cpu_num>7-7</prime_cpu_num></qcom_cpu_info></command>";

SceneFile FileOf(const std::string& commands, const std::string& name) {
    return SceneFile::Parse("<scenes>" + (kClusters + commands) + "</scenes>", name);
}

std::string Boost(const std::string& keys, const std::string& attributes = "") {
    return "<command id='16' name='touch'" + attributes + "><boost><duration_ms>500</duration_ms>" +
           keys + "</boost></command>";
}

std::string Scene(const std::string& keys) {
    return "<command id='12288'><limit><duration_ms>0</duration_ms>" + keys + "</limit></command>";
}

const std::string kBig = "<big_cpu0_min_freq>1651200</big_cpu0_min_freq>";
const std::string kGpu = "<gpu_max_freq>545</gpu_max_freq>";

// Two files and the lines that tell their differences; none when they do the same.
struct Pair {
    const char* name;
    std::string before;
    std::string after;
    std::vector<std::string> told;
    const char* device = "";
};

void PrintTo(const Pair& pair, std::ostream* out) {
    *out << pair.name;
}

class Comparison : public testing::TestWithParam<Pair> {};

TEST_P(Comparison, TellsWhatTheUserGets) {
    std::optional<DeviceProfile> device;
    if (*GetParam().device) device = LoadDeviceProfile(GetParam().device);
    const SceneComparison comparison =
        CompareScenes(FileOf(GetParam().before, "a.xml"), FileOf(GetParam().after, "b.xml"),
                      device ? &*device : nullptr);
    std::vector<std::string> told;
    for (const SceneDifference& difference : comparison.differences) {
        told.push_back(difference.Text());
    }
    EXPECT_EQ(told, GetParam().told);
}

INSTANTIATE_TEST_SUITE_P(
    Same, Comparison,
    testing::Values(
        Pair{"OrderOfKeys", Boost(kBig + kGpu), Boost(kGpu + kBig), {}},
        Pair{"AnotherNameOfTheTunable",
             Boost(kBig),
             Boost("<middle_cpu0_min_freq>1651200</middle_cpu0_min_freq>"),
             {}},
        Pair{"WhatComesSecond", Boost(kBig), Boost(kBig + kBig), {}},
        Pair{"AttributeAboveOrBelow",
             Boost(kBig, " state_mask='4'"),
             "<command id='16'><boost state_mask='0x4'><duration_ms>500</duration_ms>" + kBig +
                 "</boost></command>",
             {}},
        Pair{"Kilohertz", Boost(kBig), Boost("<big_cpu0_min_freq>1651999</big_cpu0_min_freq>"), {}},
        Pair{"OfAnElementThatNeverRuns", Boost(kBig, " skip='1'"), Boost(kGpu, " skip='1'"), {}},
        Pair{"LimitOfNothing", Scene(kBig), Scene(kBig + "<gpu_max_freq>0</gpu_max_freq>"), {}},
        Pair{
            "StepOfTheDevice",
            Boost("<big_cpu0_min_freq>1113000</big_cpu0_min_freq><gpu_max_freq>600</gpu_max_freq>"),
            Boost("<big_cpu0_min_freq>1113600</big_cpu0_min_freq><gpu_max_freq>599</gpu_max_freq>"),
            {},
            "sm8450"},
        Pair{"OrderOfElements",
             "<command id='9'><a><duration_ms>5</duration_ms>" + kBig +
                 "</a><b><duration_ms>6</duration_ms>" + kGpu + "</b></command>",
             "<command id='9'><b><duration_ms>6</duration_ms>" + kGpu +
                 "</b><a><duration_ms>5</duration_ms>" + kBig + "</a></command>",
             {}}),
    [](const auto& test) { return std::string(test.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Different, Comparison,
    testing::Values(
        Pair{"FloorAndDuration",
             Boost(kBig),
             "<command id='16' name='touch'><boost><duration_ms>900</duration_ms>"
             "<big_cpu0_min_freq>2112000</big_cpu0_min_freq></boost></command>",
             {"touch (16): big floor 1651 -> 2112 MHz, 500 -> 900 ms"}},
        Pair{"AddedAndGone",
             Boost(kBig),
             Boost(kGpu),
             {"touch (16): big floor 1651 MHz (gone), GPU ceiling 545 MHz (new)"}},
        Pair{"Scenes",
             Boost(kBig),
             Scene("<big_cpu0_max_freq>1344000</big_cpu0_max_freq>"
                   "<gpu_max_freq>545000000</gpu_max_freq>"),
             {"touch (16): gone; big floor 1651 MHz, 500 ms",
              "12288: new; big ceiling 1344 MHz, GPU ceiling 545 MHz, while its event lasts"}},
        Pair{"UntilReleased",
             Boost(kBig),
             "<command id='16' name='touch'><boost>" + kBig + "</boost></command>",
             {"touch (16): 500 ms -> until released"}},
        Pair{"NeverRuns",
             Boost(kBig),
             Boost(kBig, " skip='1'"),
             {"touch (16): big floor 1651 MHz (gone), 500 ms -> never runs"}},
        Pair{"AnotherId",
             Boost(kBig),
             "<command id='17' name='touch'><boost><duration_ms>500</duration_ms>" + kBig +
                 "</boost></command>",
             {"touch (17): id 16 -> 17"}},
        Pair{"Refused",
             Boost(""),
             Boost("<hmq>1</hmq>"),
             {"touch (16): now refused by the plug-in, 500 ms (gone)"}},
        Pair{"Breakthrough",
             Boost("<boost_limit_level>19087362</boost_limit_level>"),
             Boost("<boost_limit_level>19087364</boost_limit_level>"
                   "<boost_count_limit>3</boost_count_limit><boost_period>9000</boost_period>"),
             {"touch (16): breaks through 3 times in 9000 ms (new), breaks through thermal levels "
              "up to 2 -> up to 4, under thermal level 3 frequency level 3 (new), under thermal "
              "level 4 frequency level 4 (new)"}},
        Pair{"OneElementOfAChain",
             "<command id='9'><a><duration_ms>5</duration_ms>" + kBig +
                 "</a><b><duration_ms>6</duration_ms>" + kGpu + "</b></command>",
             "<command id='9'><a><duration_ms>5</duration_ms>" + kBig +
                 "</a><b><duration_ms>6</duration_ms><min_online_cpu_cluster_big>2"
                 "</min_online_cpu_cluster_big></b></command>",
             {"9: element 2: GPU ceiling 545 MHz (gone), big online at least 2 cores (new)"}},
        Pair{"DeviceInItsSteps",
             Boost(kBig),
             Boost("<big_cpu0_min_freq>1700000</big_cpu0_min_freq>"),
             {"touch (16): big floor 1651.2 -> 1766.4 MHz"},
             "sm8450"},
        Pair{"Description",
             "<command id='2'><freq_level_info3><big_cpu0_max_freq>1651200</big_cpu0_max_freq>"
             "</freq_level_info3></command>",
             "<command id='3'><freq_level_info3><big_cpu0_max_freq>2112000</big_cpu0_max_freq>"
             "</freq_level_info3></command><command id='4'><qcom_cpu_info><big_cpu_num>4-7"
             "</big_cpu_num></qcom_cpu_info></command>",
             {"clusters: big CPUs 4-6 -> 4-7",
              "frequency level 3: big ceiling 1651.2 -> 2112 MHz"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(ComparisonJson, HasEveryDifferenceWithItsParts) {
    const nlohmann::json json = ComparisonJson(
        CompareScenes(FileOf(Boost(kBig), "a.xml"), FileOf(Boost(kGpu), "b.xml"), nullptr));
    EXPECT_EQ(json.at("device"), nlohmann::json());
    EXPECT_EQ(json.at("same"), 0);
    const nlohmann::json& difference = json.at("differences").at(0);
    EXPECT_EQ(difference.at("kind"), "changed");
    EXPECT_EQ(difference.at("id"), 16);
    EXPECT_EQ(difference.at("changes").at(0).at("what"), "big floor");
    EXPECT_EQ(difference.at("changes").at(0).at("before"), "1651 MHz");
    EXPECT_EQ(difference.at("changes").at(0).at("after"), nlohmann::json());
}

}  // namespace
}  // namespace lab
