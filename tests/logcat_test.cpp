// What a phone's log tells: requests, locks, node writes; and the way back to a scenario.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "lab/logcat/log_scenario.h"
#include "lab/server/scenario_writer.h"
#include "tests/support/lab_run.h"

namespace lab {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The scenario that `record` makes of it.
YamlNode Recorded(const CaptureFile& capture, const std::string& device,
                  std::vector<LogProblem>& leftOut) {
    LogSession session(capture.Options(device));
    return ScenarioOf(session, capture.Options(device), leftOut);
}

bool IsEffect(const Event& event) {
    if (const auto* access = std::get_if<NodeAccess>(&event.what)) {
        return access->kind == NodeAccess::Kind::kWrite;
    }
    return std::holds_alternative<LockAcquire>(event.what) ||
           std::holds_alternative<LockRelease>(event.what) ||
           std::holds_alternative<LockExpire>(event.what);
}

std::vector<std::string> Requests(const ToldLog& told) {
    std::vector<std::string> texts;
    for (const LogRequest& request : told.requests) {
        if (request.isRequest) texts.push_back(request.text);
    }
    return texts;
}

// What stood in a node before it is first written a capture does not tell.
std::vector<Event> WithoutFirstValues(std::vector<Event> events) {
    std::set<std::string> written;
    for (Event& event : events) {
        auto* access = std::get_if<NodeAccess>(&event.what);
        if (!access || access->kind != NodeAccess::Kind::kWrite || access->error != 0) continue;
        if (written.insert(access->path).second) access->isBeforeUnknown = true;
    }
    return events;
}

// Long ones have nothing that the others lack, and would take long under a sanitizer.
constexpr size_t kMostSteps = 1000;

// What the shipped scenarios do not do: chains that repeat, state bits, on-demand durations,
// messages, quiet and kept commands, thermal levels, groups of everything.
constexpr char kRarities[] = R"(debug: on
steps:
- {at: 10, do: app_start_cold}
- {at: 10, do: app_start_cold}
- {at: 20, on: app_start_cold}
- {at: 30, off: app_start_cold}
- {at: 30, do: app_install, payload: [5]}
- {at: 30, do: app_install, payload: [5, 6]}
- {at: 40, do: voice_call}
- {at: 50, state: 2}
- {at: 50, do: voice_call}
- {at: 55, on: call_limit}
- {at: 58, off: call_limit}
- {at: 60, state: 0}
- {at: 60, do: voice_call}
- {at: 70, on_demand: {touch: 777}}
- {at: 70, on: touch}
- {at: 75, on_demand: {touch: 0}}
- {at: 75, on: touch}
- {at: 76, off: touch}
- {at: 80, do: process_start, message: "a|targetPid=4711"}
- {at: 80, do: process_start, message: "nothing"}
- {at: 90, on: frame_pacing}
- {at: 90, on: launch}
- {at: 90, do: launch}
- {at: 95, do: launch_first_frame}
- {at: 95, off: launch_first_frame}
- {at: 100, control: 5}
- {at: 100, do: app_start_cold}
- {at: 110, control: 7, client: power}
- {at: 110, limit: {client: thermal, tags: {big_max: 1440000, little_max: 1075200}}}
- {at: 120, on: launch}
- {at: 120, do: game_fight}
- {at: 130, do: launch_first_frame}
- {at: 210, limit: {client: power, tags: {ipa_switch_temp: 5}}}
- at: 220
  limit: {client: eapa, tags: {sched_boost: 1, uclamp_fg_min: 10, big_min: 1113600, big_max: 998400}}
- at: 230
  limit: {client: camera, tags: {control_type: 6, big_max: 1440000, gpu_min: 285000000}}
- at: 240
  group: {client: camera, duration_ms: 0, tags: {big_max: 1440000, little_cores_min: 2}}
- {at: 240, group: {client: power, duration_ms: 300, tags: {big_max: 1440000, big_min: 633600}}}
- {at: 250, group: {client: camera, duration_ms: -1}}
- {at: 250, group: {client: power, duration_ms: -1}}
- {at: 260, hal: {refuse: 1, result: -1}}
- {at: 260, limit: {client: power, tags: {big_max: 1651200}}}
- {at: 270, limit: {client: power, tags: {big_max: 1651200}}}
- {at: 280, control: 4}
- {at: 290, do: app_start_cold}
- {at: 290, do: app_start_cold}
- {at: 290, on: game_steady}
- {at: 295, off: touch}
- {at: 300, control: 0}
- {at: 301, control: 1}
- {at: 302, do: video_playback}
- {at: 303, do: video_4k}
- {at: 304, get: [big_max, big_min]}
- {at: 304, ceilings: {command: power_save, release: true}}
- {at: 5000, on: power_save}
- {at: 9000, off: power_save}
)";

struct Shipped {
    std::string name;
    std::string device;
    YamlNode flat;
};

// Every shipped scenario of a handy length, on both devices.
std::vector<Shipped> ShippedScenarios() {
    std::vector<Shipped> all;
    for (const auto& entry : std::filesystem::directory_iterator(DataFolder() + "/scenarios")) {
        const YamlNode flat = Flattened(LoadYamlFile(entry.path().string()));
        if (flat.Get("steps").items.size() > kMostSteps) continue;
        for (const char* device : {"sm8450", "sm4450"}) {
            all.push_back({entry.path().string(), device, flat});
        }
    }
    return all;
}

TEST(Recording, OfAScenarioReplaysToTheSameEvents) {
    size_t count = 0;
    for (const Shipped& shipped : ShippedScenarios()) {
        SCOPED_TRACE(shipped.name + " on " + shipped.device);
        std::ostringstream file;
        WriteScenario(file, shipped.flat, {"A copy."});
        const YamlNode original = LoadYamlFile(shipped.name);
        const Layout layout = LayoutOf(LoadDeviceProfile(shipped.device));
        const auto all = [](const Event&) { return true; };
        const auto played = [&](const YamlNode& root) {
            return EventTexts(PlayScenario(root, shipped.device, false).events, layout, all);
        };
        const std::vector<std::string> replayed = played(LoadYamlText(file.str(), "copy.yaml"));
        ASSERT_EQ(replayed, played(original));
        count += replayed.size();
    }
    EXPECT_GT(count, 1000u);
}

TEST(Recording, UnrollsRepeatsAndKeepsTheEnd) {
    const YamlNode root = LoadYamlText(
        "title: \"a: \\\"b\\\"\"\nsteps:\n- {wait: 5}\n- repeat: 2\n  steps:\n"
        "  - {after: 10, on: touch}\n  - {after: 1, off: touch}\n"
        "- {at: 40, status: , returns: 0}\n- {wait: 7}\n",
        "a.yaml");
    std::ostringstream out;
    WriteScenario(out, Flattened(root), {});
    EXPECT_EQ(out.str(),
              "title: \"a: \\\"b\\\"\"\n"
              "steps:\n"
              "  - {at: 15, on: touch}\n"
              "  - {at: 16, off: touch}\n"
              "  - {at: 26, on: touch}\n"
              "  - {at: 27, off: touch}\n"
              "  - {at: 40, status: null, returns: 0}\n"
              "  - {wait: 7}\n");
}

// The interactive governor's nodes are written without a word in the log, and neither a fault is
// told nor that a CPU goes.
bool IsLogged(const Shipped& shipped) {
    for (const YamlNode& step : shipped.flat.Get("steps").items) {
        if (step.Find("inter") || step.Find("faults") || step.Find("cpus")) return false;
    }
    return true;
}

TEST(Capture, OfARunHasItsLocksAndWritesAndReplaysToTheSameLog) {
    size_t count = 0;
    std::vector<Shipped> scenarios = ShippedScenarios();
    for (const char* device : {"sm8450", "sm4450"}) {
        scenarios.push_back({"rarities", device, LoadYamlText(kRarities, "rarities.yaml")});
    }
    for (const Shipped& shipped : scenarios) {
        if (!IsLogged(shipped)) continue;
        SCOPED_TRACE(shipped.name + " on " + shipped.device);
        const LabRun run = PlayScenario(shipped.flat, shipped.device, true);
        const CaptureFile capture(run.log);
        const Layout layout = LayoutOf(LoadDeviceProfile(shipped.device));
        {
            LogSession session(capture.Options(shipped.device));
            const auto isInLog = [&](const Event& event) {
                return IsEffect(event) && event.at <= session.Log().end;
            };
            const std::vector<std::string> told =
                EventTexts(WithoutFirstValues(PlayLog(session).events), layout, isInLog);
            EXPECT_THAT(session.Problems(), IsEmpty());
            ASSERT_EQ(told, EventTexts(WithoutFirstValues(run.events), layout, isInLog));
            count += told.size();
        }
        std::vector<LogProblem> leftOut;
        const YamlNode recorded = Recorded(capture, shipped.device, leftOut);
        EXPECT_THAT(leftOut, IsEmpty());
        ASSERT_EQ(PlayScenario(recorded, shipped.device, false).log, run.log);
    }
    EXPECT_GT(count, 500u);
}

TEST(Capture, OfADebugBuildHasTheSameLocks) {
    const YamlNode root = LoadYamlText(
        "properties: {ro.logsystem.usertype: \"3\"}\nsteps:\n"
        "- {at: 10, limit: {client: power, tags: {big_max: 1651200, sched_boost: 1}}}\n"
        "- {at: 300, on: game_steady}\n"
        "- {at: 600, limit: {client: thermal, tags: {big_max: 1440000}}}\n"
        "- {at: 900, off: game_steady}\n"
        "- {at: 1200, limit: {client: power, tags: {big_max: 0}}}\n"
        "- {at: 1500, do: video_playback}\n- {at: 1800, do: video_4k}\n",
        "a.yaml");
    const LabRun run = PlayScenario(root, "sm8450", false);
    const CaptureFile capture(run.log);
    LogSession session(capture.Options());
    EXPECT_EQ(session.Story().detail, LogDetail::kVersion);
    EXPECT_THAT(session.DetailAdvice(), HasSubstr("SetDebug"));
    const auto isLock = [](const Event& event) {
        return IsEffect(event) && !std::holds_alternative<NodeAccess>(event.what);
    };
    const ToldLog told = PlayLog(session);
    EXPECT_EQ(EventTexts(told.events, Layout::kThreeClusters, isLock),
              EventTexts(run.events, Layout::kThreeClusters, isLock));
    EXPECT_THAT(Requests(told),
                ElementsAre("limit by power: big_max <= 1651.2 MHz, sched_boost = level 1",
                            "on game_steady (12301)", "limit by thermal: big_max <= 1440 MHz",
                            "off game_steady (12301)", "limit by power: big_max <= 1440 MHz",
                            "do video_playback (8450)", "do video_4k (8452)"));
}

std::string Line(int ms, int pid, int tid, const std::string& text, char priority = 'I') {
    return fmt::format("06-14 12:00:{:02}.{:03} {} {} {} tag: tarquel: {}\n", ms / 1000, ms % 1000,
                       pid, tid, priority, text);
}

std::string Locked(int ms, int pid, int tid, int cmdId, int handle, int pairs, int duration) {
    return Line(ms, pid, tid,
                fmt::format("PerfLockAcq cmdId = {}, oldHandle = 0, updateHandle = {}, tagLen = "
                            "{}, duration = {}",
                            cmdId, handle, pairs, duration)) +
           Line(ms, pid, tid, fmt::format("DoAction ret = 0, cmdId = {}, payloadNum = 0", cmdId));
}

TEST(Capture, OfThreadsThatInterleaveIsTakenApart) {
    const std::string screen = Locked(100, 9, 11, 4097, 501, 5, 1000);
    const std::string key = Locked(100, 9, 12, 4105, 502, 2, 400);
    const size_t half = screen.find('\n') + 1;
    const size_t other = key.find('\n') + 1;
    const CaptureFile capture(screen.substr(0, half) + key.substr(0, other) + screen.substr(half) +
                              key.substr(other));
    LogSession session(capture.Options("sm8450"));
    const ToldLog told = PlayLog(session);
    EXPECT_THAT(session.Problems(), IsEmpty());
    EXPECT_THAT(Requests(told), ElementsAre("do screen_on (4097)", "do key_event (4105)"));
}

TEST(Capture, ThatBeginsLateOrHasAnotherSceneFileSaysWhatItCannotKnow) {
    const CaptureFile capture(
        Line(0, 9, 11, "DoHandleMapRelease tag = 7, PerfLockRel handle= 77", 'D') +
        Line(500, 9, 11, "DoEventReleaseHandle --- CmdId = 4098-0") +
        Locked(1000, 9, 11, 4097, 501, 9, 1000) + Locked(1500, 9, 11, 4999, 502, 2, 400) +
        Line(2000, 9, 11, "DoAction ret = 0, cmdId = 4105, payloadNum = 0") +
        Line(3000, 9, 11, "write node ret = 1, node = /sys/none, config = 1"));
    std::vector<LogProblem> leftOut;
    Recorded(capture, "sm8450", leftOut);
    LogSession session(capture.Options("sm8450"));
    const ToldLog told = PlayLog(session);
    std::vector<std::string> problems;
    for (const LogProblem& problem : session.Problems()) problems.push_back(problem.message);
    EXPECT_THAT(problems,
                ElementsAre(HasSubstr("command 4097 holds 9 pairs here, which no element"),
                            HasSubstr("command 4105 is done here, but the lines")));
    EXPECT_THAT(session.UnknownCommands(), HasSubstr("has no command 4999"));
    EXPECT_THAT(Requests(told), Contains("off touch (4098)"));
    EXPECT_THAT(
        EventTexts(told.events, Layout::kThreeClusters,
                   [](const Event& event) { return IsEffect(event); }),
        ElementsAre(HasSubstr(R"("lock","handle":77,"earlier":true,"tag":"prime_max")"),
                    HasSubstr(R"("release","handle":77,"was_held":true)"),
                    HasSubstr(R"("at_ms":500.0,"event":"lock","handle":null,"earlier":true)"),
                    HasSubstr(R"("at_ms":500.0,"event":"release","handle":null)"),
                    R"({"at_ms":1000.0,"event":"lock","handle":501,"duration_ms":1000})",
                    R"({"at_ms":1500.0,"event":"lock","handle":502,"duration_ms":400})",
                    HasSubstr("\"expire\",\"handle\":502"), HasSubstr("\"expire\",\"handle\":501"),
                    HasSubstr("/sys/none")));
    std::vector<std::string> missing;
    for (const LogProblem& problem : leftOut) missing.push_back(problem.message);
    EXPECT_THAT(missing, ElementsAre("left out: a limit of prime_max, before the capture begins",
                                     HasSubstr("left out: "), "left out: command 4999"));
}

// A fault of a node shows in the log, though not what it is: the recorded scenario has one that the
// plug-in cannot tell from it.
constexpr char kFailingNodes[] = R"(debug: on
steps:
- {at: 10, control: 6}
- {at: 200, limit: {client: thermal, tags: {big_max: 1651200}}}
- {at: 400, faults: {nodes: {big_max: unwritable}}}
- {at: 400, limit: {client: thermal, tags: {big_max: 1440000}}}
- {at: 600, get: [big_max, gpu_max]}
- {at: 800, faults: {nodes: {big_max: none, gpu_max: refusing}}}
- {at: 800, limit: {client: thermal, tags: {big_max: 1555200, gpu_max: 545000000}}}
- {at: 1000, faults: {nodes: {gpu_max: short, big_max: missing}}}
- {at: 1000, get: [big_max, gpu_max, little_max]}
- {at: 1200, limit: {client: thermal, tags: {big_max: 0}}}
- {at: 1400, faults: none}
- {at: 1400, get: [big_max, gpu_max]}
- {at: 1600, limit: {client: thermal, tags: {big_max: 1440000, gpu_max: 0}}}
)";

TEST(Capture, OfNodesThatFailTellsSoAndReplaysToTheSameLog) {
    const LabRun run = PlayScenario(LoadYamlText(kFailingNodes, "a.yaml"), "sm8450", true);
    const CaptureFile capture(run.log);
    const auto refused = [](const std::vector<Event>& events) {
        return std::count_if(events.begin(), events.end(), [](const Event& event) {
            const auto* access = std::get_if<NodeAccess>(&event.what);
            return access && access->kind == NodeAccess::Kind::kWrite && access->error != 0;
        });
    };
    {
        LogSession session(capture.Options("sm8450"));
        EXPECT_GE(refused(run.events), 6);
        EXPECT_EQ(refused(PlayLog(session).events), refused(run.events));
        EXPECT_THAT(session.Problems(), IsEmpty());
    }
    std::vector<LogProblem> leftOut;
    const YamlNode recorded = Recorded(capture, "sm8450", leftOut);
    EXPECT_THAT(leftOut, IsEmpty());
    EXPECT_EQ(PlayScenario(recorded, "sm8450", false).log, run.log);
}

TEST(Capture, OfAHalThatFailsSaysThatTheScenarioLacksIt) {
    const LabRun run = PlayScenario(
        LoadYamlText("faults: {hal: absent}\nsteps:\n- {at: 10, do: touch}\n", "a.yaml"), "sm8450",
        true);
    const CaptureFile capture(run.log);
    LogSession session(capture.Options("sm8450"));
    std::vector<LogProblem> leftOut;
    ScenarioOf(session, capture.Options("sm8450"), leftOut);
    ASSERT_FALSE(leftOut.empty());
    EXPECT_THAT(leftOut.front().message, HasSubstr("dlopen() libqti-perfd-client.so failed"));
}

TEST(Capture, WhoseLinesOfOneTimeAreOutOfOrderSaysSo) {
    const auto taken = [](int handle) {
        return Line(100, 9, 11,
                    fmt::format("PerfServiceSetConfig tag = 10, PerfLockAcq handle = {}, "
                                "val[0] = 0x42810000, val[1] = 545",
                                handle));
    };
    const std::string released =
        Line(100, 9, 11, "DoHandleMapRelease tag = 10, PerfLockRel handle= 3", 'D');
    const auto problems = [](const std::string& log) {
        const CaptureFile capture(log);
        LogSession session(capture.Options("sm8450"));
        PlayLog(session);
        return session.Problems();
    };
    EXPECT_THAT(problems(taken(3) + released + taken(8)), IsEmpty());
    const std::vector<LogProblem> found = problems(taken(3) + taken(8) + released);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].line, 2);
    EXPECT_THAT(found[0].message, HasSubstr("missing or out of order above this one"));
    EXPECT_EQ(found[1].line, 3);
    EXPECT_THAT(found[1].message, HasSubstr("lock 3 of tag 10 is released here, but lock 8"));
}

TEST(Capture, OfAServerThatRestartsForgetsWhatItHeld) {
    const CaptureFile capture(Locked(100, 9, 11, 4097, 501, 5, 5000) +
                              Locked(900, 33, 34, 4097, 501, 5, 1000));
    LogSession session(capture.Options("sm8450"));
    const ToldLog told = PlayLog(session);
    std::vector<std::string> ends;
    for (const Event& event : told.events) {
        if (const auto* release = std::get_if<LockRelease>(&event.what)) {
            ends.push_back(std::to_string(release->handle));
        }
    }
    EXPECT_THAT(ends, ElementsAre("501"));
    EXPECT_THAT(Requests(told), Contains("the policy server begins anew, as process 33"));
}

TEST(Capture, WithErrorsAloneSaysHowToTurnTheRestOn) {
    const LabRun run =
        PlayScenario(LoadYamlFile(FindScenarioFile("shared_limits")), "sm8450", false);
    const CaptureFile capture(run.log);
    LogSession session(capture.Options());
    EXPECT_EQ(session.Story().detail, LogDetail::kErrors);
    EXPECT_THAT(session.DetailAdvice(), HasSubstr("ro.logsystem.usertype"));
    EXPECT_THAT(Requests(PlayLog(session)), IsEmpty());
}

TEST(Capture, ShowsItsDevice) {
    const LabRun run =
        PlayScenario(LoadYamlFile(FindScenarioFile("low_temperature")), "sm4450", true);
    const CaptureFile capture(run.log);
    const LogSession session(capture.Options());
    EXPECT_EQ(session.Device().name, "sm4450");
    EXPECT_FALSE(session.IsDeviceGuessed());
}

TEST(Capture, ThatIsNoneIsRefused) {
    for (const char* text : {"", "\n\n", "hello\nworld\n",
                             "\x7f"
                             "ELF\x01\x02"}) {
        const CaptureFile capture(text);
        EXPECT_THROW(LogSession(capture.Options()), InputError) << text;
    }
    try {
        const CaptureFile wide(std::string("\xFF\xFE-\0-\0\n\0", 8));
        const LogSession session(wide.Options());
        FAIL() << "accepted";
    } catch (const InputError& error) {
        EXPECT_THAT(error.what(), HasSubstr("this text is UTF-16"));
    }
    EXPECT_THROW(LogSession({"/nonexistent", "", "", "", false}), InputError);
    EXPECT_THROW(LogSession({"/", "", "", "", false}), InputError);
}

TEST(ShippedCaptures, AreReadWithoutAWordLost) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(DataFolder() + "/captures")) {
        SCOPED_TRACE(entry.path().string());
        LogSession session({entry.path().string(), "", "", "", false});
        PlayLog(session);
        EXPECT_THAT(session.Problems(), IsEmpty());
        EXPECT_EQ(session.Log().unreadableCount, 0u);
        EXPECT_GT(session.Log().foreignCount, 10u);
        ++count;
    }
    EXPECT_GE(count, 3u);
}

}  // namespace
}  // namespace lab
