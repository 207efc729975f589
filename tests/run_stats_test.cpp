// What tarquel-lab stats counts, against sums done by hand.
#include "lab/ask/run_stats.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "lab/logcat/log_session.h"
#include "support/lab_program.h"

namespace lab {
namespace {

RunStats CountYaml(const std::string& yaml) {
    const Replay::Options options;
    return CountRun(*Replay::OpenScenario(LoadYamlText(yaml, "my.yaml"), options), "my.yaml");
}

RunStats CountFile(const std::string& file) {
    Replay::Options options;
    options.file = file;
    return CountRun(*Replay::Open(options), file);
}

nlohmann::json JsonOf(const RunStats& run) {
    return nlohmann::json::parse(RunStatsJson({run}, nullptr)).at("runs").at(0);
}

// "thermal 1x held 4000 counted 4000 lost power 4000".
std::string WhoText(const nlohmann::json& run, const std::string& who) {
    for (const auto& entry : run.at("requesters")) {
        if (entry.at("who") != who) continue;
        std::string text = who + " " + entry.at("asked").dump() + "x held " +
                           entry.at("held_ms").dump() + " counted " + entry.at("counted_ms").dump();
        for (const auto& lost : entry.at("lost_to")) {
            text += " lost " + lost.at("who").get<std::string>() + " " + lost.at("ms").dump();
        }
        return text;
    }
    return "none";
}

// "1651200 4000 by power 4000; ..." of "big floors".
std::string RangeText(const nlohmann::json& run, const std::string& name, const char* end) {
    std::string text;
    for (const auto& range : run.at("ranges")) {
        if (range.at("name") != name) continue;
        for (const auto& value : range.at(end)) {
            text += value.at("khz").dump() + " " + value.at("ms").dump();
            for (const auto& part : value.at("by")) {
                if (!part.at("who").is_null()) text += " by " + part.at("who").get<std::string>();
            }
            text += "; ";
        }
    }
    return text;
}

// Ten seconds: power from 1 to 9, thermal stricter from 3 to 7.
constexpr char kTwoCeilings[] =
    "steps:\n"
    "- {at: 1000, limit: {client: power, tags: {big_max: 1651200}}}\n"
    "- {at: 3000, limit: {client: thermal, tags: {big_max: 1324800}}}\n"
    "- {at: 7000, limit: {client: thermal, tags: {big_max: 0}}}\n"
    "- {at: 9000, limit: {client: power, tags: {big_max: 0}}}\n"
    "- {at: 10000, status: }";

// Asked at 1 and 2 for two seconds each, and let alone: one lock from 1 to 4.
constexpr char kRenewed[] =
    "steps:\n"
    "- {at: 1000, do: game_fight}\n"
    "- {at: 2000, do: game_fight}\n"
    "- {at: 10000, status: }";

// Two locks that run out while nothing is asked: one counts from 1 to 3, the other before that, and
// what is left of it behind.
constexpr char kOneBehindAnother[] =
    "steps:\n"
    "- {at: 0, on: game_running}\n"
    "- {at: 1000, do: game_fight}\n"
    "- {at: 10000, off: game_running}";

// A floor above thermal's ceiling never counts on its node.
constexpr char kFloorAboveCeiling[] =
    "steps:\n"
    "- {at: 0, limit: {client: thermal, tags: {big_max: 1324800}}}\n"
    "- {at: 1000, limit: {client: eapa, tags: {big_min: 1651200}}}\n"
    "- {at: 5000, status: }";

struct Sum {
    const char* name;
    const char* yaml;
    std::vector<std::string> requesters;
    const char* end;     // of the big cluster
    const char* values;  // kHz ms by whom
};

void PrintTo(const Sum& sum, std::ostream* out) {
    *out << sum.name;
}

class RunStatsOf : public testing::TestWithParam<Sum> {};

TEST_P(RunStatsOf, AScenarioAreTheSumsDoneByHand) {
    const nlohmann::json run = JsonOf(CountYaml(GetParam().yaml));
    for (const std::string& text : GetParam().requesters) {
        const std::string who = text.substr(0, text.find("x held"));
        EXPECT_EQ(WhoText(run, who.substr(0, who.rfind(' '))), text);
    }
    EXPECT_EQ(RangeText(run, "big", GetParam().end), GetParam().values);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RunStatsOf,
    testing::Values(
        // Power counts 10 - 2 x 1 - 4 = 4 s, thermal 7 - 3 = 4 s, nobody 1 + 1 = 2 s.
        Sum{"TwoCeilings",
            kTwoCeilings,
            {"power 1x held 8000 counted 4000 lost thermal 4000",
             "thermal 1x held 4000 counted 4000"},
            "ceilings",
            "1324800 4000 by thermal; 1651200 4000 by power; 2496000 2000; "},
        Sum{"Renewed",
            kRenewed,
            {"game_fight (9220) 2x held 3000 counted 3000"},
            "floors",
            "633600 7000; 2112000 3000 by game_fight (9220); "},
        Sum{"OneBehindAnother",
            kOneBehindAnother,
            {"game_running (9219) 1x held 10000 counted 8000 lost game_fight (9220) 2000",
             "game_fight (9220) 1x held 2000 counted 2000"},
            "floors",
            "1324800 8000 by game_running (9219); 2112000 2000 by game_fight (9220); "},
        Sum{"FloorAboveCeiling",
            kFloorAboveCeiling,
            {"thermal 1x held 5000 counted 5000", "eapa 1x held 4000 counted 0"},
            "floors",
            "633600 1000; 1324800 4000; "}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(RunStats, NameWhoNeverCountsAndWhatThermalCaps) {
    const RunStats cut = CountYaml(kFloorAboveCeiling);
    EXPECT_EQ(cut.NeverWon(), std::vector<std::string>{"eapa"});
    const nlohmann::json capped = JsonOf(CountYaml(kTwoCeilings));
    EXPECT_EQ(capped.at("ranges").at(1).at("capped_by_thermal_ms"), 4000);
    EXPECT_EQ(capped.at("ranges").at(0).at("capped_by_thermal_ms"), 0);
    // The longest: thermal's lock of the tag is power's for the rest, 1 to 3 and 7 to 9.
    EXPECT_EQ(capped.at("holds").at(0).at("who"), "thermal");
    EXPECT_EQ(capped.at("holds").at(0).at("ms"), 4000);
}

// The two are of one run: what is counted must be the same.
TEST(RunStats, OfACaptureAreThoseOfItsRun) {
    const nlohmann::json run = JsonOf(CountFile("thermal_breakthrough"));
    const nlohmann::json capture = JsonOf(CountFile("hot_game.txt"));
    EXPECT_EQ(capture.at("requesters"), run.at("requesters"));
    EXPECT_EQ(RangeText(capture, "gpu", "floors").substr(11),
              RangeText(run, "gpu", "floors").substr(11));
}

// The lock that holds the floors was taken in the lines that are cut off.
TEST(RunStats, OfACaptureThatBeginsLateNameNobodyForWhatItDoesNotTell) {
    std::istringstream whole(ReadFile(FindCapture("hot_game.txt")));
    std::string late;
    for (std::string line; std::getline(whole, line);) {
        if (line.find(" 19:42:") != line.npos && line.substr(6, 8) >= "19:42:24")
            late += line + "\n";
    }
    const File file("late.txt", late);
    const RunStats stats = CountFile(file.Path());
    EXPECT_FALSE(stats.isWhole);
    const nlohmann::json run = JsonOf(stats);
    // Its event's end is in the log, so its lock was held from before: 24.040 to 35.020.
    EXPECT_EQ(WhoText(run, "game_running (9219)"),
              "game_running (9219) 1x held 10980 counted 8980 lost game_fight (9220) 2000");
    EXPECT_NE(WhoText(run, kUnnamed), "none") << run.dump(2);
    EXPECT_TRUE(RangeText(run, "little", "ceilings").starts_with("null ")) << run.dump(2);
    // The log reads thermal's ceiling, of which it does not tell who asked, until it is lifted: the
    // lab's own 2496 MHz count from then to the end only, 35.030 to 35.635.
    const std::string big = RangeText(run, "big", "ceilings");
    EXPECT_NE(big.find("2496000 605; "), std::string::npos) << big;
}

TEST(RunStats, CostWhatTheFloorsDoAgainstTheLowestStep) {
    const File power("power.csv", "cluster,khz,mw\nbig,633600,100\nbig,2112000,1300\n");
    const PowerModel model = PowerModel::Load(power.Path(), LoadDeviceProfile("sm8450"));
    std::vector<RunStats> runs = {CountYaml(kRenewed), CountYaml(kOneBehindAnother)};
    for (RunStats& run : runs) run.costs = FloorCosts(run, model);
    // (1300 - 100) mW x 3 s / 3600 = 1 mWh.
    EXPECT_NEAR(runs[0].costs.at(0).milliwattHours, 1.0, 1e-9);
    // 1324.8 MHz lies 691.2 / 1478.4 of the way, for 8 s, and 1200 mW for 2 s.
    const double expected = (1200 * 691.2 / 1478.4 * 8 + 1200 * 2) / 3600;
    EXPECT_NEAR(runs[1].costs.at(0).milliwattHours, expected, 1e-9);
    std::ostringstream out;
    PrintRunStats(out, runs, &model, 1, Paint(false));
    for (const char* part : {"B  my.yaml on sm8450", "+0.913 mWh", "A model: ", "held B"}) {
        EXPECT_NE(out.str().find(part), std::string::npos) << part << " in\n" << out.str();
    }
}

TEST(RunStats, RefuseAPowerFileThatIsWrong) {
    struct Mistake {
        const char* text;
        const char* told;
    };
    const DeviceProfile device = LoadDeviceProfile("sm8450");
    for (const Mistake& mistake : {
             Mistake{"cluster,mhz,mw\nbgi,633.6,1\n", ":2:1: sm8450 has no cluster 'bgi' (did you"},
             Mistake{"cluster,mhz,mw\nbig,633.6\n", ":2:1: has 2 cells"},
             Mistake{"cluster,mhz,mw\nbig,633.6,-1\n", "'-1' is no number of mW"},
             Mistake{"cluster,mhz,mw\nbig,633.6,1\nbig,633.6,2\n", ":3:1: big at 633600 kHz is"},
             Mistake{"cluster,mhz,mw\nbig,2112,1\n", "no power at its lowest step, 633600 kHz"},
             Mistake{"name,mhz,mw\n", "a power file is a list of"},
             Mistake{"- {cluster: big, mw: 95}\n", ":1:3: needs one of khz and mhz"},
             Mistake{"- {cluster: big, khz: x, mw: 95}\n", "'x' is no number of kHz"},
         }) {
        const File file("power", mistake.text);
        try {
            PowerModel::Load(file.Path(), device);
            ADD_FAILURE() << "taken: " << mistake.text;
        } catch (const InputError& error) {
            EXPECT_NE(std::string(error.what()).find(mistake.told), std::string::npos)
                << error.what();
        }
    }
    const File low("power", "- {cluster: big, khz: 633600, mw: 95}\n");
    EXPECT_THROW(FloorCosts(CountYaml(kRenewed), PowerModel::Load(low.Path(), device)), InputError);
}

}  // namespace
}  // namespace lab
