#include "lab/ask/why.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

namespace lab {
namespace {

WhyAnswer Ask(const std::string& yaml, const std::string& node, const std::string& at = "") {
    Replay::Options options;
    if (!at.empty()) options.at = at + "ms";
    return AskWhy(*Replay::OpenScenario(LoadYamlText(yaml, "my.yaml"), options), node);
}

// One asker and the rule by which it counts, loses or ended.
struct Rule {
    const char* name;
    const char* yaml;
    const char* node;
    const char* at;       // ms; "" for the end
    const char* value;    // what the node reads
    const char* who;      // the asker
    const char* outcome;  // "counts", "loses", "over"
    const char* line;     // of its step
    const char* part;     // of the verdict, the notes or the ending
};

void PrintTo(const Rule& rule, std::ostream* out) {
    *out << rule.name;
}

// The words about the asker with that outcome, "" when there is none.
std::string WordsOf(const nlohmann::json& answer, const Rule& rule) {
    const std::string outcome = rule.outcome;
    for (const auto& entry : answer.at(outcome == "over" ? "ended" : "holders")) {
        if (entry.at("who") != rule.who ||
            std::to_string(entry.at("line").get<int>()) != rule.line) {
            continue;
        }
        if (outcome == "over") return entry.at("how");
        if (entry.at("counts") != (outcome == "counts")) continue;
        std::string words = entry.at("verdict");
        for (const auto& note : entry.at("notes")) words += "; " + note.get<std::string>();
        return words + "; " + entry.value("remark", "");
    }
    return "";
}

class WhyRule : public testing::TestWithParam<Rule> {};

TEST_P(WhyRule, IsToldOfTheAskerWhomItBefell) {
    const Rule& rule = GetParam();
    const auto answer = nlohmann::json::parse(WhyJson(Ask(rule.yaml, rule.node, rule.at)));
    EXPECT_EQ(answer.at("value"), rule.value);
    const std::string words = WordsOf(answer, rule);
    EXPECT_NE(words.find(rule.part), std::string::npos) << "'" << words << "' in\n"
                                                        << answer.dump(2);
    EXPECT_FALSE(words.empty()) << answer.dump(2);
}

constexpr char kTwoCeilings[] =
    "steps:\n"
    "- {limit: {client: power, tags: {prime_max: 1651200}}}\n"
    "- {after: 100, limit: {client: eapa, tags: {prime_max: 1497600}}}\n"
    "- {after: 100, limit: {client: eapa, tags: {prime_max: 0}}}\n"
    "- {after: 100, limit: {client: power, tags: {prime_max: 1843200}}}";

constexpr char kGroupAfterLimit[] =
    "steps:\n"
    "- {limit: {client: power, tags: {big_max: 1440000}}}\n"
    "- {after: 10, group: {client: power, duration_ms: 900, tags: {big_max: 1651200}}}";

constexpr char kBreakthrough[] =
    "steps:\n"
    "- {control: 6}\n"
    "- {limit: {client: thermal, tags: {big_max: 1651200}}}\n"
    "- {after: 100, do: game_fight}\n"
    "- {after: 3000, status: }";

constexpr char kTwoLocks[] =
    "steps:\n"
    "- {on: game_running}\n"
    "- {after: 10, do: game_fight}\n"
    "- {after: 10, limit: {client: power, tags: {big_max: 1440000}}}\n"
    "- {after: 5000, off: game_running}";

constexpr char kGroups[] =
    "steps:\n"
    "- {group: {client: camera, duration_ms: 0, tags: {ddr_bw_min: 1017000}}}\n"
    "- {after: 10, group: {client: camera, duration_ms: 0, tags: {ddr_bw_min: 1555000}}}\n"
    "- {after: 10, group: {client: camera, duration_ms: -1}}";

constexpr char kCold[] =
    "steps:\n"
    "- {on: launch}\n"
    "- {control: 4}\n"
    "- {off: launch}\n"
    "- {do: touch}";

constexpr char kStateMask[] =
    "state: 2\n"
    "steps:\n"
    "- {on: call_limit}\n"
    "- {state: 0}\n"
    "- {off: call_limit}\n"
    "- {on: call_limit}";

constexpr char kInteractive[] =
    "steps:\n"
    "- {node: {/sys/devices/system/cpu/cpu0/cpufreq/interactive/go_hispeed_load: 99}}\n"
    "- {node: {/sys/devices/system/cpu/cpu4/cpufreq/interactive/go_hispeed_load: 99}}\n"
    "- {after: 5, inter: interactive_touch}";
constexpr char kInteractiveNode[] =
    "/sys/devices/system/cpu/cpu0/cpufreq/interactive/go_hispeed_load";

constexpr char kWriteBack[] =
    "device: sm4450\n"
    "steps:\n"
    "- {control: 6}\n"
    "- {limit: {client: thermal, tags: {big_max: 1344000}}}\n"
    "- {limit: {client: thermal, tags: {big_max: 0}}}\n"
    "- {limit: {client: thermal, tags: {little_max: 1478400}}}\n"
    "- {limit: {client: thermal, tags: {little_max: 0}}}";

constexpr char kOldWrite[] =
    "steps:\n"
    "- {control: 2}\n"
    "- {limit: {client: power, tags: {big_max: 1651200}}}\n"
    "- {faults: {nodes: {big_max: unwritable}}}\n"
    "- {limit: {client: eapa, tags: {big_max: 1555200}}}\n"
    "- {limit: {client: camera, tags: {big_max: 0}}}";

constexpr char kCoolsWhileBoosted[] =
    "steps:\n"
    "- {control: 7}\n"
    "- {after: 10, do: game_fight}\n"
    "- {after: 10, control: 0}";

INSTANTIATE_TEST_SUITE_P(
    Words, WhyRule,
    testing::Values(
        Rule{"LowestCeilingCounts", kTwoCeilings, "prime_max", "150", "1497600", "eapa", "counts",
             "3", "the lowest ceiling of those that ask"},
        Rule{"HigherCeilingLoses", kTwoCeilings, "prime_max", "150", "1497600", "power", "loses",
             "2", "eapa asks for <= 1497.6 MHz: the lowest ceiling wins"},
        Rule{"ZeroLifts", kTwoCeilings, "prime_max", "", "1843200", "eapa", "over", "3",
             "lifted by the same client (line 4)"},
        Rule{"NextRequestReplaces", kTwoCeilings, "prime_max", "", "1843200", "power", "over", "2",
             "replaced by the same client (line 5)"},
        Rule{"SceneAgainstClient",
             "steps:\n- {on: power_save}\n- {limit: {client: power, tags: {prime_max: 2000000}}}",
             "prime_max", "", "1612800", "power", "loses", "3",
             "power_save (12288) asks for <= 1612.8 MHz"},
        Rule{"UnweighedFloorsReplaceEachOther",
             "steps:\n- {limit: {client: power, tags: {big_min: 1440000}}}\n"
             "- {limit: {client: eapa, tags: {big_min: 1113600}}}",
             "big_min", "", "1113600", "power", "over", "2",
             "replaced by eapa's request (line 3): such requests for one tag are not weighed"},
        Rule{"CeilingAtDefault", "steps:\n- {limit: {client: power, tags: {big_max: 2496000}}}",
             "big_max", "", "2496000", "power", "loses", "2", "needs no lock, limits nothing"},
        Rule{"FloorCutByThePlugin",
             "steps:\n- {limit: {client: power, tags: {big_max: 1440000}}}\n"
             "- {limit: {client: eapa, tags: {big_min: 1766400}}}",
             "big_min", "", "1440000", "eapa", "loses", "3",
             "floor above ceiling: the plug-in cut it to the ceiling in force, 1440 MHz"},
        Rule{"LockRefused",
             "steps:\n- {hal: {refuse: 1}}\n- {limit: {client: power, tags: {big_max: 1440000}}}",
             "big_max", "", "2496000", "power", "loses", "3",
             "the HAL refused the lock that should carry it"},
        Rule{"LockRefusedButWritten",
             "steps:\n- {control: 2}\n- {hal: {refuse: 1}}\n"
             "- {limit: {client: power, tags: {big_max: 1440000}}}",
             "big_max", "", "1440000", "power", "counts", "4",
             "by that write alone: the HAL refused the lock"},
        Rule{"LiftedGroupLeavesOthers",
             "steps:\n- {group: {client: power, duration_ms: 0, tags: {big_max: 1440000}}}\n"
             "- {limit: {client: power, tags: {big_max: 0}}}\n"
             "- {limit: {client: thermal, tags: {big_max: 1555200}}}",
             "big_max", "", "1555200", "thermal", "counts", "4", "nobody else asks"},
        Rule{"GroupsWordLeavesTheTagsLock", kGroupAfterLimit, "big_max", "", "1440000", "power",
             "counts", "2", "its group has another word since"},
        Rule{"GroupsWordIsNotHeardByTheTagsLock", kGroupAfterLimit, "big_max", "", "1440000",
             "power", "loses", "3", "the tag's own lock stays as it is until the next request"},
        Rule{"WriteIsStricterThanEveryLock",
             "steps:\n- {on: power_save}\n"
             "- {group: {client: thermal, duration_ms: 90, tags: {big_max: 1440000}}}\n"
             "- {after: 100, control: 10}",
             "big_max", "", "1440000", "thermal", "counts", "3",
             "by that write alone: it is stricter than every lock"},
        Rule{"RefusedRequest", "steps:\n- {limit: {client: power, tags: {big_max: -5}}}", "big_max",
             "", "2496000", "power", "over", "2", "refused: the plug-in says 'tarquel: invalid"},
        Rule{"SceneEndPassedOver", kStateMask, "big_max", "", "1555200", "call_limit (12294)",
             "counts", "3", "its end (line 5) was passed over: its state_mask 0x2"},
        Rule{"SceneBeginPassedOver", kStateMask, "big_max", "", "1555200", "call_limit (12294)",
             "over", "6", "shares no bit with the state 0x0"},
        Rule{"TimedGroupIsRemembered",
             "steps:\n- {group: {client: power, duration_ms: 300, tags: {big_max: 1440000}}}\n"
             "- {wait: 400}",
             "big_max", "", "2496000", "power", "loses", "2",
             "the plug-in remembers it, but no lock carries it"},
        Rule{"CameraIsNotRemembered",
             "steps:\n- {limit: {client: camera, tags: {big_max: 1440000}}}\n"
             "- {limit: {client: power, tags: {big_max: 1651200}}}",
             "big_max", "", "1651200", "camera", "over", "2",
             "replaced by power's request (line 3)"},
        Rule{"UnweighedOverRemembered",
             "steps:\n- {limit: {client: power, tags: {big_max: 1440000}}}\n"
             "- {limit: {client: camera, tags: {big_max: 1651200}}}",
             "big_max", "", "1651200", "power", "loses", "2",
             "camera's word of <= 1651.2 MHz counts alone until the next request on the tag"},
        Rule{"CutFloorStaysUnderARisenCeiling",
             "steps:\n- {limit: {client: power, tags: {big_min: 1881600}}}\n"
             "- {limit: {client: eapa, tags: {big_max: 1440000}}}\n"
             "- {limit: {client: eapa, tags: {big_max: 0}}}",
             "big_min", "", "1440000", "power", "counts", "2", "a ceiling that has risen since"},
        Rule{"TimedGroupIsNotHeardByTheTag",
             "steps:\n- {limit: {client: camera, tags: {big_max: 2112000}}}\n"
             "- {group: {client: power, duration_ms: 1000, tags: {big_max: 2342400}}}",
             "big_max", "", "2112000", "camera", "counts", "2", "the lowest ceiling"},
        Rule{"GroupOfTheCameraStands",
             "steps:\n- {group: {client: camera, duration_ms: 0, tags: {big_max: 1440000}}}\n"
             "- {limit: {client: camera, tags: {big_max: 2112000}}}\n"
             "- {limit: {client: power, tags: {big_max: 0}}}",
             "big_max", "", "1440000", "camera", "counts", "2", "nobody else asks"},
        Rule{"RefusedWordIsWeighedAgainstScenes",
             "steps:\n- {limit: {client: power, tags: {big_max: 1440000, little_max: -1}}}\n"
             "- {on: game_steady}",
             "big_max", "", "1440000", "power", "counts", "2", "the request was refused"},
        Rule{"UnknownClient", "steps:\n- {limit: {client: 9, tags: {big_max: 1440000}}}", "big_max",
             "", "2496000", "client 9", "over", "2", "refused: the plug-in gives no reason"},
        Rule{"WrittenByTheGovernor", kInteractive, kInteractiveNode, "", "80",
             "the plug-in's write", "counts", "4", "no lock bears on the node"},
        Rule{"OverwrittenByTheGovernor", kInteractive, kInteractiveNode, "", "80",
             "the scenario's node step", "over", "2",
             "overwritten by 'inter interactive_touch (16385)' (line 4)"},
        Rule{"LiftedFloorKeepsItsLock",
             "steps:\n- {limit: {client: power, tags: {big_min: 1113600}}}\n"
             "- {limit: {client: power, tags: {big_min: 0}}}",
             "big_min", "", "633600", "the plug-in's lock", "loses", "3",
             "a lifted limit keeps its lock at the default"},
        Rule{"FloorCutByALaterCeiling",
             "steps:\n- {limit: {client: power, tags: {big_min: 1766400}}}\n"
             "- {limit: {client: power, tags: {big_max: 1113600}}}",
             "big_min", "", "1113600", "power", "loses", "2",
             "the plug-in cut it to the ceiling in force, 1113 MHz"},
        Rule{"NodeTakenAway",
             "steps:\n- {node: {/proc/sys/walt/sched_boost: null}}\n"
             "- {limit: {client: power, tags: {sched_boost: 1}}}",
             "/proc/sys/walt/sched_boost", "", "", "power", "loses", "3",
             "there is no node for the lock to reach"},
        Rule{"LockReleasedByAnother",
             "steps:\n- {limit: {client: power, tags: {big_max: 1440000}}}\n"
             "- {limit: {client: camera, tags: {big_max: 1651200}}}\n"
             "- {limit: {client: camera, tags: {big_max: 0}}}",
             "big_max", "", "2496000", "power", "loses", "2",
             "'limit by camera: big_max lifted' (line 4) lifted the tag's limit: until the next "
             "request"},
        Rule{"OldWriteIsAllThatIsLeft", kOldWrite, "big_max", "", "1651200", "power", "counts", "3",
             "by that write alone: 'limit by camera: big_max lifted' (line 6) lifted the tag's"},
        Rule{"RefusedWrite", kOldWrite, "big_max", "", "1651200", "the plug-in's write", "over",
             "5", "refused by the kernel: Permission denied"},
        Rule{"WriteWithoutLock", kWriteBack, "big_max", "", "691200", "the plug-in's write",
             "counts", "7", "the kernel makes 691200 of 0"}),
    [](const auto& test) { return std::string(test.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Locks, WhyRule,
    testing::Values(
        Rule{"HighestFloorCounts", kTwoLocks, "big_min", "15", "2112000", "game_fight (9220)",
             "counts", "3", "the highest floor of those that ask"},
        Rule{"LowerFloorLoses", kTwoLocks, "big_min", "15", "2112000", "game_running (9219)",
             "loses", "2", "game_fight (9220)'s lock 2 has 2112000 kHz: the highest floor wins"},
        Rule{"HigherCeilingLoses", kTwoLocks, "big_max", "30", "1440000", "game_fight (9220)",
             "loses", "3", "power's lock 3 has 1440000 kHz: the lowest ceiling wins among locks"},
        Rule{"FloorAboveCeiling", kTwoLocks, "big_min", "30", "1440000", "game_fight (9220)",
             "loses", "3", "floor above ceiling: cpu4 scaling_max_freq is at 1440000"},
        Rule{"Expired", kTwoLocks, "big_min", "", "633600", "game_fight (9220)", "over", "3",
             "expired"},
        Rule{"EventEnded", kTwoLocks, "big_min", "", "633600", "game_running (9219)", "over", "2",
             "its event ended (line 5)"},
        Rule{"LiftedInPlace", kBreakthrough, "big_max", "200", "2227200", "thermal", "loses", "3",
             "lifted for its time by game_fight (9220)'s lock"},
        Rule{"LifterCounts", kBreakthrough, "big_max", "200", "2227200", "game_fight (9220)",
             "counts", "4", "in place of all ceilings and writes"},
        Rule{"WrittenSinceTheBoost", kCoolsWhileBoosted, "big_max", "", "2496000",
             "the plug-in's write", "counts", "4", "came later than the lock"},
        Rule{"NodeStepSinceTheLock",
             "steps:\n- {on: touch}\n- {node: {/dev/cpuctl/top-app/cpu.uclamp.min: 50.00}}",
             "top-app cpu.uclamp.min", "", "50.00", "touch (4098)", "loses", "2",
             "a later write of this node replaces the lock's"},
        Rule{"TooHotToBreakThrough",
             "steps:\n- {control: 8}\n"
             "- {limit: {client: thermal, tags: {big_max: 1113600}}}\n- {do: app_start_hot}",
             "big_min", "", "1113600", "app_start_hot (4227)", "loses", "4",
             "its boost_limit_level ends at 2, and level 4 is in force"},
        Rule{"BoostsUsedUp",
             "steps:\n- {control: 6}\n"
             "- {limit: {client: thermal, tags: {big_max: 1651200}}}\n"
             "- repeat: 4\n  steps: [{after: 2100, do: game_fight}]",
             "big_min", "", "1651200", "game_fight (9220)", "loses", "5",
             "lifts no thermal limit: its boosts of this period are used up"},
        Rule{"LimitIsBack", kBreakthrough, "big_max", "", "1651200", "thermal", "counts", "3",
             "the plug-in also wrote it"},
        Rule{"GroupReplaced", kGroups, "ddr_bw_min", "", "547000", "camera's group", "over", "2",
             "replaced by the next group (line 3)"},
        Rule{"GroupCancelled", kGroups, "ddr_bw_min", "", "547000", "camera's group", "over", "3",
             "its group was cancelled (line 4)"},
        Rule{"UntimedCommandsShareOneLock",
             "steps:\n- {do: video_playback}\n- {after: 10, do: video_4k}", "little_min", "",
             "844800", "video_playback (8450)", "over", "2", "replaced by 'do video_4k"},
        Rule{"RefusedByTheHal", "steps:\n- {hal: {refuse: 1}}\n- {do: touch}", "big_min", "",
             "633600", "touch (4098)", "over", "3", "the HAL refused the lock with -1"},
        Rule{"NothingBoostsInTheCold", kCold, "big_min", "", "2112000", "touch (4098)", "over", "5",
             "took no lock: at low temperature nothing boosts (control type of line 3)"},
        Rule{"EndPassedOverInTheCold", kCold, "big_min", "", "2112000", "launch (5378)", "counts",
             "2", "its end (line 4) was passed over"},
        Rule{"NewestLockCounts",
             "steps:\n- {limit: {client: power, tags: {hispeed_freq_cpu0: 844800}}}\n"
             "- {after: 10, do: scroll}",
             "hispeed_freq_cpu0", "20", "1171200", "power", "loses", "2",
             "scroll (4100)'s lock 2 asked later: the newest lock wins here"},
        Rule{"Renewed", "steps:\n- {on: touch}\n- {after: 500, on: touch}", "big_min", "900",
             "1113600", "touch (4098)", "counts", "2", "renewed at 0.500 s (line 3)"},
        Rule{"SameAsAnother",
             "steps:\n- {on: touch}\n- {limit: {client: power, tags: {big_min: 1113600}}}",
             "big_min", "", "1113600", "power", "counts", "3",
             "asks for the same as touch (4098)'s lock 1"},
        Rule{"NeverRuns", "steps:\n- {do: app_update}", "little_min", "", "307200",
             "app_update (4233)", "over", "2", "took no lock: its "},
        Rule{"RoundedDown", "steps:\n- {limit: {client: power, tags: {prime_max: 1344000}}}",
             "prime_max", "", "1286400", "power", "counts", "2",
             "the device has no step of 1344 MHz: rounded down to 1286400 kHz"},
        Rule{"BeyondTheTable", "steps:\n- {limit: {client: power, tags: {prime_max: 100000}}}",
             "prime_max", "", "806400", "power", "counts", "2",
             "100 MHz is beyond the device's table: its end counts, 806400 kHz"},
        Rule{"ClampedByTheKernel",
             "steps:\n- {limit: {client: power, tags: {hispeed_load_cpu4: 150}}}",
             "cpu4 walt/hispeed_load", "", "100", "power", "counts", "2",
             "the kernel makes 100 of 150 %"},
        Rule{"BusFloorAboveCeiling",
             "steps:\n- {limit: {client: power, tags: {ddr_bw_max: 1017000}}}\n"
             "- {limit: {client: eapa, tags: {ddr_bw_min: 2092000}}}",
             "ddr_bw_min", "", "1017000", "eapa", "loses", "3",
             "floor above ceiling: ddr bwmon max_freq is at 1017000"},
        Rule{"KeptBetweenTheEnds",
             "steps:\n- {limit: {client: eapa, tags: {ddr_bw_min: 2092000}}}\n"
             "- {limit: {client: power, tags: {ddr_bw_max: 1017000}}}",
             "ddr_bw_max", "", "2092000", "power", "counts", "3",
             "between the hardware's end and ddr bwmon min_freq at 2092000"}),
    [](const auto& test) { return std::string(test.param.name); });

struct Name {
    const char* given;
    const char* path;  // or a part of the message
};

class NodeNames : public testing::TestWithParam<Name> {};

TEST_P(NodeNames, FindTheNodeOrSayWhatIsNear) {
    try {
        EXPECT_EQ(Ask("steps: []", GetParam().given).story.target.path, GetParam().path);
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find(GetParam().path), std::string::npos)
            << error.what();
    }
}

constexpr char kBigMax[] = "/sys/devices/system/cpu/cpu4/cpufreq/scaling_max_freq";

INSTANTIATE_TEST_SUITE_P(
    Target, NodeNames,
    testing::Values(
        Name{kBigMax, kBigMax},
        Name{"/sys/devices/system/cpu/cpufreq/policy4/scaling_max_freq", kBigMax},
        Name{"cpu5 scaling_max_freq", kBigMax}, Name{"cpu4/cpufreq/scaling_max_freq", kBigMax},
        Name{"big_max", kBigMax}, Name{"4", kBigMax}, Name{"0x40804000", kBigMax},
        Name{"big_cpu0_scaling_max_freq", kBigMax},
        Name{"sched_boost", "/proc/sys/walt/sched_boost"},
        Name{"cpu4 hispeed_load", "/sys/devices/system/cpu/cpu4/cpufreq/walt/hispeed_load"},
        Name{"cpu4 hispeed_laod", "did you mean 'cpu4 hispeed_load'?"},
        Name{"ddr max_freq",
             "'ddr max_freq' names 2 nodes of sm8450; say which: 'ddr bwmon max_freq'"},
        Name{"scaling_max_freq", "names 3 nodes of sm8450; say which: 'cpu0 scaling_max_freq', "},
        Name{"big_mx", "did you mean 'big_max'?"},
        Name{"/sys/devices/system/cpu/cpu4/cpufreq/scaling_max_frq", "did you mean '/sys/devices"},
        Name{"control_type", "tag 57 (control_type) has no node on sm8450"},
        Name{"hmp", "'hmp' (opcode 0x00000032) stands for no node"}));

TEST(Why, LetsTimePassBehindTheLastStepAndStopsWithinRepeats) {
    const std::string yaml =
        "steps:\n- repeat: 1000\n  steps: [{after: 100, on: touch}, {after: 100, off: touch}]";
    const WhyAnswer within = Ask(yaml, "big_min", "350");
    ASSERT_EQ(within.story.holders.size(), 1u);
    EXPECT_EQ(within.story.holders[0].ask.who, "touch (4098)");
    EXPECT_EQ(within.story.holders[0].ask.since, Time(std::chrono::milliseconds(300)));
    EXPECT_EQ(within.ended.size(), 1u);

    const WhyAnswer after = Ask("steps:\n- {do: touch}", "big_min", "60000");
    EXPECT_EQ(after.at, Time(std::chrono::seconds(60)));
    EXPECT_TRUE(after.story.holders.empty());
    ASSERT_EQ(after.remarks.size(), 1u);
    EXPECT_NE(after.remarks[0].find("60.000 s is after the scenario's end at 0.000 s"),
              std::string::npos);
    EXPECT_TRUE(within.remarks.empty());
}

TEST(Why, SaysInOneSentenceWhyTheNodeReadsThat) {
    const auto because = [](const char* yaml, const char* node, const char* at) {
        return Ask(yaml, node, at).story.Because();
    };
    EXPECT_EQ(because(kTwoLocks, "big_min", "15"), "held by game_fight (9220) (>= 2112 MHz)");
    EXPECT_EQ(because(kTwoLocks, "big_min", "30"),
              "a floor asked for is above the ceiling, and reads the ceiling");
    EXPECT_EQ(because(kTwoLocks, "big_min", ""), "as after boot");
    EXPECT_EQ(because(kTwoLocks, "cpu4 scaling_cur_freq", "15"),
              "nobody asks for it: it follows other nodes");
    EXPECT_EQ(because("steps:\n- {node: {/proc/sys/walt/sched_boost: null}}",
                      "/proc/sys/walt/sched_boost", ""),
              "the scenario took the node away");
}

TEST(Why, SaysOnceThatANodeOfSeveralCpusRefusesAWrite) {
    const auto& ended = Ask(kOldWrite, "big_max").ended;
    const auto isOfStep = [](const EndedAsk& end) { return end.ask.request->line == 5; };
    EXPECT_EQ(std::count_if(ended.begin(), ended.end(), isOfStep), 1);
}

TEST(Why, PrintsWhoCountsAndWhoLostWithTheirSteps) {
    std::ostringstream out;
    PrintWhy(out, Ask(kTwoLocks, "big_max", "30"), 10, Paint(false));
    EXPECT_EQ(
        out.str(),
        "cpu4 scaling_max_freq on sm8450 at 0.030 s\n"
        "  /sys/devices/system/cpu/cpu4/cpufreq/scaling_max_freq (one node of cpu4 to cpu6)\n"
        "  my.yaml\n"
        "\n"
        "  reads   1440000 kHz, held by power (<= 1440 MHz)\n"
        "  boot    2496000 kHz\n"
        "\n"
        "Who asks now\n"
        "  counts  power                        <= 1440 MHz    since 0.020 s, until its "
        "client says otherwise\n"
        "          the lowest ceiling of those that ask\n"
        "          lock 3 of the tag; asked by 'limit by power: big_max <= 1440 MHz', line 4\n"
        "  loses   game_fight (9220)            <= 2227 MHz    since 0.010 s, 1980 ms left\n"
        "          power's lock 3 has 1440000 kHz: the lowest ceiling wins among locks\n"
        "          lock 2; asked by 'do game_fight (9220)', line 3\n");
}

}  // namespace
}  // namespace lab
