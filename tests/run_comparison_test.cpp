// What tarquel-lab compare tells of two runs.
#include "lab/ask/run_comparison.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "lab/logcat/log_session.h"
#include "support/lab_program.h"

namespace lab {
namespace {

RunRecord RecordYaml(const std::string& steps) {
    const YamlNode yaml = LoadYamlText("steps:\n" + steps, "my.yaml");
    return RecordRun(*Replay::OpenScenario(yaml, {}), "my.yaml");
}

// "lock do touch (4098): its lock lasts 1000 ms -> 2000 ms x2".
std::vector<std::string> TextsOf(const RunComparison& comparison) {
    std::vector<std::string> texts;
    const auto json = nlohmann::json::parse(RunComparisonJson(comparison));
    for (const auto& entry : json.at("differences")) {
        const auto field = [&](const char* name) { return entry.at(name).get<std::string>(); };
        std::string text = field("kind") + " " + field("request");
        if (!field("what").empty()) {
            text += ": " + field("what") + " " + field("before") + " -> " + field("after");
        }
        if (entry.at("times") != 1) text += " x" + entry.at("times").dump();
        texts.push_back(text);
    }
    return texts;
}

struct TwoRuns {
    const char* name;
    const char* before;
    const char* after;
    std::vector<std::string> told;
};

void PrintTo(const TwoRuns& runs, std::ostream* out) {
    *out << runs.name;
}

class RunsCompared : public testing::TestWithParam<TwoRuns> {};

TEST_P(RunsCompared, TellWhatDiffers) {
    const RunRecord before = RecordYaml(GetParam().before);
    EXPECT_EQ(TextsOf(CompareRuns(before, RecordYaml(GetParam().after))), GetParam().told);
    EXPECT_TRUE(TextsOf(CompareRuns(before, before)).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RunsCompared,
    testing::Values(
        TwoRuns{"OtherTimes",
                "- {at: 100, do: touch}\n- {after: 5000, do: touch}",
                "- {at: 900, do: touch}\n- {after: 9000, do: touch}",
                {}},
        TwoRuns{"OneMore",
                "- {at: 100, do: touch}\n- {after: 5000, do: scroll}\n- {after: 5000, do: fling}",
                "- {at: 100, do: touch}\n- {after: 5000, do: key_event}\n"
                "- {after: 5000, do: scroll}\n- {after: 5000, do: fling}",
                {"new do key_event (4105)"}},
        TwoRuns{"OneGone",
                "- {at: 100, do: touch}\n- {after: 5000, do: touch}\n- {after: 5000, do: fling}",
                "- {at: 100, do: touch}\n- {after: 5000, do: fling}",
                {"gone do touch (4098)"}},
        TwoRuns{"OtherDuration",
                "- {on_demand: {touch: 1000}}\n- {do: touch}\n- {after: 5000, do: touch}",
                "- {on_demand: {touch: 2000}}\n- {do: touch}\n- {after: 5000, do: touch}",
                {"gone on demand: touch (4098) lasts 1000 ms",
                 "new on demand: touch (4098) lasts 2000 ms",
                 "lock do touch (4098): its lock lasts 1000 ms -> 2000 ms x2"}},
        TwoRuns{
            "OtherValuesAtTheSameRequest",
            "- {limit: {client: power, tags: {big_max: 1651200}}}\n- {after: 10, get: [big_max]}",
            "- {limit: {client: power, tags: {big_max: 1324800}}}\n- {after: 10, get: [big_max]}",
            {"gone limit by power: big_max <= 1651.2 MHz",
             "new limit by power: big_max <= 1324.8 MHz",
             "result get big_max: gives big_max 1651.2 MHz -> big_max 1324.8 MHz",
             "value get big_max: cpu4 scaling_max_freq 1651200 -> 1324800"}}),
    [](const auto& test) { return std::string(test.param.name); });

// What a late capture does not tell is no difference of nodes and locks.
TEST(RunsCompared, SayThatACaptureDoesNotTellEverything) {
    std::istringstream whole(ReadFile(FindCapture("hot_game.txt")));
    std::string late;
    for (std::string line; std::getline(whole, line);) {
        if (line.size() > 14 && line.substr(6, 8) >= "19:42:31") late += line + "\n";
    }
    const File file("late.txt", late);
    const auto record = [](const std::string& name) {
        Replay::Options options;
        options.file = name;
        return RecordRun(*Replay::Open(options), name);
    };
    const RunComparison comparison = CompareRuns(record("hot_game.txt"), record(file.Path()));
    EXPECT_FALSE(comparison.isWhole);
    for (const RunDifference& difference : comparison.differences) {
        EXPECT_NE(difference.kind, RunDifference::Kind::kLock) << difference.before;
    }
    std::ostringstream out;
    PrintRunComparison(out, comparison, Paint(false));
    EXPECT_NE(out.str().find("A capture does not tell everything"), std::string::npos);
}

}  // namespace
}  // namespace lab
