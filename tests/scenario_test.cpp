#include "lab/server/scenario.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "lab/check/scenario_check.h"
#include "lab/server/library.h"
#include "lab/server/runner.h"
#include "lab/server/timeline.h"

namespace lab {
namespace {

std::string Shipped(const std::string& file) {
    return DataFolder() + "/" + file;
}

struct Mistake {
    const char* name;
    const char* yaml;  // the steps
    const char* what;
};

void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.name;
}

class ScenarioMistake : public testing::TestWithParam<Mistake> {};

TEST_P(ScenarioMistake, IsNamedWhereItStands) {
    static const SceneFile scenes = SceneFile::Load(Shipped("scenes/sm4450.xml"));
    const YamlNode root = LoadYamlText("steps:\n" + std::string(GetParam().yaml) + "\n", "my.yaml");
    try {
        ReadScenarioHead(root);
        ReadScenarioSteps(root, scenes);
        FAIL() << "accepted";
    } catch (const InputError& error) {
        const std::string what = error.what();
        EXPECT_EQ(what.substr(0, std::string(GetParam().what).size()), GetParam().what) << what;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Steps, ScenarioMistake,
    testing::Values(
        Mistake{"Step", "- {limt: 3}",
                "my.yaml:2:4: there is no step 'limt' (did you mean 'limit'?)"},
        Mistake{"NoMap", "- touch", "my.yaml:2:3: a step is a map"},
        Mistake{"NothingBehindAField", "- limit:\n\n- {do: touch}",
                "my.yaml:2:3: expected a limit"},
        Mistake{"Nothing", "- {after: 5}", "my.yaml:2:3: this step does nothing"},
        Mistake{"TwoSteps", "- {do: touch, off: touch}",
                "my.yaml:2:15: this step has 'do' and 'off'"},
        Mistake{"Beside", "- {off: touch, payload: [1]}", "my.yaml:2:16: "},
        Mistake{"Command", "- {do: app_start_clod}",
                "my.yaml:2:8: there is no command 'app_start_clod' in "},
        Mistake{"Description", "- {do: cpu_info}", "my.yaml:2:8: command cpu_info (1) describes"},
        Mistake{"Interactive", "- {do: interactive_touch}", "my.yaml:2:8: "},
        Mistake{"NotInteractive", "- {inter: touch}", "my.yaml:2:11: "},
        Mistake{"TagOfAnotherLayout", "- {get: [prime_max]}",
                "my.yaml:2:10: there is no tag 'prime_max' with two clusters"},
        Mistake{"Client", "- {limit: {client: termal, tags: {big_max: 1}}}",
                "my.yaml:2:20: there is no client 'termal'"},
        Mistake{"NoTags", "- {limit: {client: power, tags: {}}}", "my.yaml:2:33: expected a map"},
        Mistake{"GroupWithoutTags", "- {group: {client: power, duration_ms: 0}}",
                "my.yaml:2:11: this group has no tags"},
        Mistake{"Control", "- {control: 11}", "my.yaml:2:13: a control type must be"},
        Mistake{"AtAndAfter", "- {at: 1, after: 1, do: touch}", "my.yaml:2:18: "},
        Mistake{"Back", "- {at: 100, do: touch}\n- {wait: 10}\n- {at: 109, do: touch}",
                "my.yaml:4:8: 109 ms is over: the step before is at 110 ms"},
        Mistake{"BackAfterRepeat",
                "- {repeat: 3, steps: [{after: 10, do: touch}]}\n- {at: 29, dump: }",
                "my.yaml:3:8: 29 ms is over: the step before is at 30 ms"},
        Mistake{"AtInRepeat", "- {repeat: 3, steps: [{at: 1, do: touch}]}", "my.yaml:2:28: "},
        Mistake{"Forever", "- {repeat: 100000000, steps: [{wait: 1000000}]}", "my.yaml:2:12: "},
        Mistake{"Node", "- {node: {sys: 1}}", "my.yaml:2:11: a node's path begins with '/'"},
        Mistake{"Cpus", "- {cpus: {offline: 6-4}}", "my.yaml:2:20: expected a CPU or a range"},
        Mistake{"Device", "- {device: sm845, do: touch}",
                "my.yaml:2:12: there is no shipped device 'sm845' (did you mean 'sm8450'?)"},
        Mistake{"DeviceOfRepeat", "- {device: sm8450, repeat: 1, steps: []}", "my.yaml:2:12: "},
        Mistake{"TagOfTheDevice", "- {device: sm4450, get: [prime_max]}", "my.yaml:2:26: "},
        Mistake{"NothingExpected", "- {expect: {}}", "my.yaml:2:12: expect something"},
        Mistake{"Resource", "- {expect: {lock: {resource: big_mim}}}",
                "my.yaml:2:30: there is no resource 'big_mim'"},
        Mistake{"ValueOfNothing", "- {expect: {lock: {value: 3}}}", "my.yaml:2:27: "},
        Mistake{"TwoOwners", "- {expect: {lock: {client: power, command: touch}}}",
                "my.yaml:2:28: "},
        Mistake{"Priority", "- {expect: {log: {priority: fatal}}}", "my.yaml:2:29: "},
        Mistake{"LogOfNothing", "- {expect: {no_log: {}}}", "my.yaml:2:21: "},
        Mistake{"Refusal", "- {hal: {refuse: 1, result: 3}}", "my.yaml:2:29: "}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(StepText, ShowsAFrequencyInAMistakenUnit) {
    const SceneFile scenes = SceneFile::Load(Shipped("scenes/sm8450.xml"));
    const YamlNode root = LoadYamlText(
        "steps:\n- {limit: {client: power, tags: {gpu_max: 545, gpu_min: 220000000, big_max: 2, "
        "big_min: 1113600, little_max: 0}}}\n",
        "my.yaml");
    EXPECT_EQ(ReadScenarioSteps(root, scenes).front().text,
              "limit by power: gpu_max <= 545 Hz, gpu_min >= 220 MHz, big_max <= 2 kHz, "
              "big_min >= 1113.6 MHz, little_max lifted");
}

// What check says of a scene file's value in another unit is said of a scenario's.
TEST(UnitSlips, AreNamedForTheTagsThatTakeFrequencies) {
    const SceneFile scenes = SceneFile::Load(Shipped("scenes/sm4450.xml"));
    const YamlNode root = LoadYamlText(
        "steps:\n"
        "- {limit: {client: thermal, tags: {gpu_max: 545, big_max: 1651, little_min: 691200}}}\n"
        "- {group: {client: camera, duration_ms: 500, tags: {last_min: 1804800000}}}\n"
        "- repeat: 3\n"
        "  steps:\n"
        "  - {after: 10, limit: {client: thermal, tags: {ddr_bw_min: 2092, gpu_max: 0}}}\n"
        "  - {sched_level: {level: 1, tags: {big_max: 90, big_cores_max: 1, sched_boost: 1}}}\n"
        "- {device: sm8450, limit: {client: thermal, tags: {big_max: 1651}}}\n",
        "my.yaml");
    const DeviceProfile device = LoadDeviceProfile("sm4450");
    EXPECT_EQ(
        FindUnitSlips(ReadScenarioSteps(root, scenes), "my.yaml", device, scenes.ClusterLayout()),
        (std::vector<std::string>{
            "my.yaml:2: gpu_max = 545 Hz is below the bottom of sm4450's GPU, 340000000; "
            "this tag takes Hz; did you mean 500000000?",
            "my.yaml:2: big_max = 1651 kHz is below the bottom of sm4450's big cluster, "
            "691200; this tag takes kHz; did you mean 1651200?",
            "my.yaml:3: big_min = 1804800000 kHz is above the top of sm4450's big cluster, "
            "2208000; this tag takes kHz; did you mean 1900800?",
            "my.yaml:6: ddr_bw_min = 2092 kHz is below the bottom of sm4450's DDR bus, "
            "547000; this tag takes kHz; did you mean 2092000?"}));
}

// A timeline and the book that it reads, without a run.
struct TimelineText : testing::Test {
    void Observe(const Event& event) {
        book.Observe(event);
        timeline.Observe(event);
    }

    const DeviceProfile device = LoadDeviceProfile("sm8450");
    const SceneFile scenes = SceneFile::Load(Shipped("scenes/sm8450.xml"));
    Phone phone{device};
    Book book{device, scenes, phone.GetKernel()};
    std::ostringstream out;
    Timeline timeline{out, book, {}};
};

TEST_F(TimelineText, WritesTheNumbersOfANodeInOneColumn) {
    const std::string node = "/proc/sys/walt/sched_upmigrate";
    const auto kWrite = NodeAccess::Kind::kWrite;
    Observe({Time(0), NodeAccess{kWrite, node, "85 95", "95\t95", "85\t95", 0, true}});
    Observe({Time(0), NodeAccess{kWrite, node, "", "95\t95", "95\t95", 13, false}});
    EXPECT_NE(out.str().find("95 95 -> 85 95 %\n"), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("write refused"), std::string::npos) << out.str();
}

TEST_F(TimelineText, AlignsFactsUnderTheirRequestAndTellsWhoWins) {
    const auto at = [](int ms) { return Time(std::chrono::milliseconds(ms)); };
    const std::string minimum = "/sys/devices/system/cpu/cpu4/cpufreq/scaling_min_freq";
    const Event events[] = {
        {at(1), RequestBegin{"do a (1)", 3}},
        {at(1), LogLine{4, std::nullopt, "not shown\n"}},
        {at(1), LockAcquire{0, 500, {0x40800000, 1324, 0x40C00000, 1}, 1}},
        {at(1),
         NodeAccess{NodeAccess::Kind::kWrite, minimum, "1324800", "633600", "1324800", 0, true}},
        {at(1), RequestEnd{"0"}},
        {at(20), RequestBegin{"do b (2)", 4}},
        {at(20), LockAcquire{0, 0, {0x40800000, 1766}, 2}},
        {at(20), LockAcquire{0, 0, {0x40800000, 1000}, 0}},
        {at(20), LogLine{6, std::nullopt, "tarquel: no\n"}},
        {at(20), LogLine{6, std::nullopt, "tarquel: tag 4 is not registerd! \n"}},
        {at(20), NodeAccess{NodeAccess::Kind::kWrite, minimum, "x", "1", "1", 22, false}},
        {at(20), RequestEnd{"-1"}},
        {at(501), LockExpire{1}},
        {at(600), LockRelease{2, 0, true}},
        {at(600), LockRelease{2, -1, false}},
    };
    for (const Event& event : events) Observe(event);
    EXPECT_EQ(out.str(),
              "     0.001  do a (1)\n"
              "              + lock 1    big_cpu0_min_freq                >= 1324 MHz              "
              "    for 500 ms\n"
              "                          sched_boost                      = level 1\n"
              "              = node      cpu4 scaling_min_freq            633600 -> 1324800 kHz\n"
              "     0.020  do b (2)  -> -1\n"
              "              + lock 2    big_cpu0_min_freq                >= 1766 MHz              "
              "    until released; wins over lock 1's 1324 MHz\n"
              "              ! lock      big_cpu0_min_freq                >= 1000 MHz              "
              "    refused with 0\n"
              "              ! log E     tarquel: no\n"
              "              . log E     tarquel: tag 4 is not registerd!\n"
              "              ! node      cpu4 scaling_min_freq            write x refused          "
              "    Invalid argument, by the plug-in\n"
              "     0.501    - lock 1    big_cpu0_min_freq and 1 more     expired                  "
              "    after 500 ms\n"
              "     0.600    - lock 2    big_cpu0_min_freq                released                 "
              "    after 580 ms\n"
              "              . lock 2                                     released, but not held "
              "any more\n");
}

// A scenario played on a phone with the built plug-in.
struct Played {
    std::vector<std::string> findings;
    size_t locks = 0;
    size_t requests = 0;
};

Played Play(const YamlNode& root, const std::string& deviceName) {
    const ScenarioHead head = ReadScenarioHead(root);
    const DeviceProfile device = LoadDeviceProfile(deviceName);
    SceneFile scenes = SceneFile::Load(Shipped("scenes/" + device.name + ".xml"));
    const std::vector<Step> steps = ReadScenarioSteps(root, scenes);
    Phone phone(device);
    Book book(device, scenes, phone.GetKernel());
    Library library("");
    Server server(phone, library, scenes);
    size_t requests = 0;
    Runner runner({phone, server, book, device, scenes}, [&](const Event& event) {
        if (std::holds_alternative<RequestBegin>(event.what)) ++requests;
    });
    runner.Start(head);
    runner.Play(steps);
    runner.Finish();
    EXPECT_TRUE(server.Problems().empty());
    std::vector<std::string> findings;
    for (RunFinding& finding : book.Findings()) findings.push_back(std::move(finding.text));
    return {std::move(findings), phone.Hal().Held().size(), requests};
}

struct Run {
    const char* name;
    const char* device;
    const char* yaml;
    size_t findings;
    size_t locks;
    const char* part;  // of the first finding
};

void PrintTo(const Run& run, std::ostream* out) {
    *out << run.name;
}

class EndOfRun : public testing::TestWithParam<Run> {};

TEST_P(EndOfRun, TellsWhatNoRequestInForceAsksFor) {
    const Played played = Play(LoadYamlText(GetParam().yaml, "my.yaml"), GetParam().device);
    EXPECT_EQ(played.locks, GetParam().locks);
    ASSERT_EQ(played.findings.size(), GetParam().findings)
        << testing::PrintToString(played.findings);
    if (GetParam().findings == 0) return;
    EXPECT_NE(played.findings[0].find(GetParam().part), std::string::npos) << played.findings[0];
}

INSTANTIATE_TEST_SUITE_P(
    Book, EndOfRun,
    testing::Values(
        Run{"HeldByAnEventInForce", "sm8450", "steps:\n- {on: launch}", 0, 1, ""},
        // In the cold nothing is released either: the event's end passes the plug-in by.
        Run{"EventEndedInTheCold", "sm8450",
            "steps:\n- {on: launch}\n- {control: 4}\n- {off: launch}", 1, 1,
            "\"on launch (5378)\" (line 2), which took it, is over"},
        // A refused renewal makes the plug-in forget the lock that it has.
        Run{"RenewalRefused", "sm8450",
            "steps:\n- {on: launch}\n- {hal: {refuse: 1}}\n- {on: launch}\n- {off: launch}", 1, 1,
            "which took it, is over"},
        Run{"RefusalNotArranged", "sm8450",
            "steps:\n- {hal: {refuse: 0}}\n- {do: touch}\n- {expect: {locks: 0}}", 1, 1,
            "my.yaml:4: locks held: expected 0, found 1, at 0.000 s"},
        Run{"ExpectedAsItIs", "sm8450",
            "steps:\n- {on: launch}\n- {limit: {client: thermal, tags: {big_max: 1651200}}}\n"
            "- {limit: {client: 9, tags: {big_max: 1}}}\n"
            "- {expect: {result: -1, locks: 2, nodes: {/proc/sys/walt/sched_boost: 0}, lock: [\n"
            "   {command: launch, resource: big_cpu0_min_freq, value: 2112}, {client: thermal}],\n"
            "  no_lock: [{command: touch}, {client: thermal, resource: gpu_max}],\n"
            "  no_log: {priority: error, contains: endless}}}\n"
            "- {limit: {client: thermal, tags: {big_max: 0}}}\n- {off: launch}",
            0, 0, ""},
        Run{"LockNotHeld", "sm8450",
            "steps:\n- {do: touch}\n- {expect: {lock: [{command: touch},\n"
            "   {command: scroll, resource: big_min, value: 1113}]}}",
            1, 1,
            "my.yaml:4: a lock on big_min = 1113 by scroll (4100): expected to be held, found lock "
            "1 on big_cpu0_min_freq = 1113 by \"do touch (4098)\" (line 2)"},
        Run{"LockHeld", "sm8450",
            "steps:\n- {do: touch}\n- {expect: {no_lock: {resource: 0x40800000}}}", 1, 1,
            "my.yaml:3: a lock on 0x40800000: expected not to be held, found lock 1"},
        Run{"LogForgottenOnceExpected", "sm8450",
            "steps:\n- {hal: {refuse: 1}}\n- {do: touch}\n"
            "- {expect: {log: {priority: E, contains: \"PerfLockAcq failed\"}}}\n"
            "- {expect: {no_log: \"PerfLockAcq failed\"}}\n- {hal: {refuse: 1}}\n- {do: touch}\n"
            "- {expect: {no_log: {priority: error}}}",
            1, 0,
            "my.yaml:8: log line E: expected none, found E tarquel: PerfLockAcq failed! cmdId = "
            "4098"},
        Run{"LogMissing", "sm8450", "steps:\n- {expect: {log: {text: \"tarquel: no\"}}}", 1, 0,
            "my.yaml:2: log line 'tarquel: no': expected one, found "},
        Run{"OtherDevicesStepsAreSkipped", "sm8450",
            "steps:\n- {device: sm4450, do: touch}\n- {expect: {locks: 0}}\n"
            "- {device: sm8450, expect: {tags: {prime_max: 1}}}",
            1, 0, "my.yaml:4: prime_max: expected 1, found 2995200"},
        // Its end is skipped for want of the state bit that its beginning had.
        Run{"SceneEndSkipped", "sm8450",
            "state: 2\nsteps:\n- {on: call_limit}\n- {state: 0}\n- {off: call_limit}", 2, 2,
            "keeps big_max <= 1555 MHz while requests in force allow 2496 MHz"},
        Run{"BreakthroughLiftsTheLimitForItsTime", "sm8450",
            "steps:\n- {control: 6}\n- {limit: {client: thermal, tags: {big_max: 1651200}}}\n"
            "- {do: game_fight}\n- {expect: {tags: {big_max: 2227200, big_min: 2112000}}}\n"
            "- {after: 2100, expect: {tags: {big_max: 1651200, big_min: 633600}}}",
            0, 1, ""},
        Run{"LowestOfSeveral", "sm8450",
            "steps:\n- {on: power_save}\n- {limit: {client: power, tags: {big_max: 1440000}}}\n"
            "- {off: power_save}\n- {limit: {client: power, tags: {big_max: 0}}}",
            0, 1, ""},  // the GPU's ceiling keeps a lock at its default
        Run{"GroupReplacedAndCancelled", "sm4450",
            "steps:\n- {group: {client: camera, duration_ms: 0, tags: {uclamp_fg_min: 10}}}\n"
            "- {group: {client: camera, duration_ms: 0, tags: {uclamp_fg_min: 20}}}\n"
            "- {group: {client: camera, duration_ms: -1}}",
            0, 0, ""},
        Run{"UntimedCommandReplaced", "sm8450",
            "steps:\n- {do: video_playback}\n- {wait: 10}\n- {do: video_4k}", 0, 1, ""},
        // With two clusters the write-back puts 0 into the last ceiling once thermal has lifted it.
        Run{"NodeStays", "sm4450",
            "steps:\n- {control: 6}\n- {limit: {client: thermal, tags: {big_max: 1344000}}}\n"
            "- {limit: {client: thermal, tags: {big_max: 0}}}\n"
            "- {limit: {client: thermal, tags: {little_max: 1478400}}}\n"
            "- {limit: {client: thermal, tags: {little_max: 0}}}",
            1, 0, "cpu6 scaling_max_freq stays at 691200 instead of 2208000 kHz"},
        Run{"ResultNotAsExpected", "sm8450",
            "steps:\n- {limit: {client: 9, tags: {big_max: 1}}, returns: 0}", 1, 0,
            "returned -1, the scenario expects 0"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(ShippedScenarios, EndWithoutFindingsOnBothDevices) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(Shipped("scenarios"))) {
        const bool isLong = entry.path().stem() == "full_day";
#ifdef TARQUEL_EMULATED
        if (isLong) continue;  // a minute of emulation, for requests that the others make too
#endif
        for (const char* device : {"sm8450", "sm4450"}) {
            SCOPED_TRACE(entry.path().string() + " on " + device);
            const Played played = Play(LoadYamlFile(entry.path().string()), device);
            EXPECT_TRUE(played.findings.empty()) << testing::PrintToString(played.findings);
            if (isLong) {
                EXPECT_GE(played.requests, 20000u);
            }
            ++count;
        }
    }
    EXPECT_GE(count, 20u);
}

}  // namespace
}  // namespace lab
