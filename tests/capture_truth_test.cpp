// What is told of a damaged capture is true of the run that it is of: the right lock, or none.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "lab/yaml/yaml_tree.h"
#include "tests/support/lab_run.h"

namespace lab {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line + "\n");
    return lines;
}

// The handles that a run holds when `time` is over.
std::set<int> HeldAt(const LabRun& run, Time time) {
    std::set<int> held;
    for (const Event& event : run.events) {
        if (event.at > time) break;
        if (const auto* acquire = std::get_if<LockAcquire>(&event.what)) {
            if (acquire->returned >= 1) held.insert(acquire->returned);
        } else if (const auto* release = std::get_if<LockRelease>(&event.what)) {
            held.erase(release->handle);
        } else if (const auto* expire = std::get_if<LockExpire>(&event.what)) {
            held.erase(expire->handle);
        }
    }
    return held;
}

std::set<std::string> ClientsOf(const LabRun& run) {
    std::set<std::string> clients;
    for (const Event& event : run.events) {
        const auto* begin = std::get_if<RequestBegin>(&event.what);
        if (begin && !begin->client.empty()) clients.insert(begin->client);
    }
    return clients;
}

Time TimeOf(const std::string& line) {
    const auto number = [&](size_t at, size_t count) { return std::stoll(line.substr(at, count)); };
    return std::chrono::milliseconds(
        ((number(6, 2) * 60 + number(9, 2)) * 60 + number(12, 2)) * 1000 + number(15, 3));
}

const char* const kStories[] = {"shared_limits", "thermal_breakthrough", "camera_thermal",
                                "first_seconds", "groups_and_queries"};

LabRun Play(const std::string& scenario) {
    return PlayScenario(LoadYamlFile(FindScenarioFile(scenario)), "sm8450", true);
}

// Begun late, a capture names no lock from before that the run did not hold then.
TEST(CaptureTruth, OfOneThatBeginsLateNamesLocksThatWereHeld) {
    size_t named = 0;
    for (const char* scenario : kStories) {
        const LabRun run = Play(scenario);
        const std::vector<std::string> lines = LinesOf(run.log);
        for (size_t first = 30; first < lines.size(); first += 17) {
            SCOPED_TRACE(fmt::format("{} from line {}", scenario, first));
            std::string text;
            for (size_t i = first; i < lines.size(); ++i) text += lines[i];
            const CaptureFile capture(text);
            LogSession session(capture.Options("sm8450"));
            const ToldLog told = PlayLog(session);
            EXPECT_FALSE(session.Earlier().IsWhole());
            // A lock that was taken at the time of the first line may have been taken above it.
            std::set<int> held = HeldAt(run, TimeOf(lines[first]));
            held.merge(HeldAt(run, TimeOf(lines[first]) - Time(1)));
            for (const EarlierLock& lock : session.LocksBefore()) {
                if (lock.handle < 0) continue;
                EXPECT_THAT(held, Contains(lock.handle)) << "shown by line " << lock.line;
                ++named;
            }
            for (const LogRequest& request : told.requests) {
                if (request.client.empty()) continue;
                EXPECT_THAT(ClientsOf(run), Contains(request.client)) << request.text;
            }
            const std::set<int> atEnd = HeldAt(run, TimeOf(lines.back()));
            for (const auto& [lock, doubt] : told.held) {
                if (!doubt.empty()) continue;
                EXPECT_THAT(atEnd, Contains(lock.handle));
            }
        }
    }
    EXPECT_GT(named, 50u);
}

// Without one line in twenty, it is sure of no lock at its end that the run does not hold, and
// names no client but the run's.
TEST(CaptureTruth, OfOneWithoutSomeLinesIsSureOfWhatIsHeldAlone) {
    std::mt19937 random(7);
    size_t doubts = 0;
    std::vector<std::string> wrong;
    for (const char* scenario : kStories) {
        const LabRun run = Play(scenario);
        const std::vector<std::string> lines = LinesOf(run.log);
        const std::set<std::string> clients = ClientsOf(run);
        for (int round = 0; round < 10; ++round) {
            SCOPED_TRACE(fmt::format("{}, round {}", scenario, round));
            std::string text;
            for (const std::string& line : lines) {
                if (random() % 20 != 0) text += line;
            }
            const CaptureFile capture(text);
            LogSession session(capture.Options("sm8450"));
            const ToldLog told = PlayLog(session);
            const std::set<int> held = HeldAt(run, session.Log().end);
            for (const auto& [lock, doubt] : told.held) {
                if (!doubt.empty()) {
                    ++doubts;
                } else if (held.count(lock.handle) == 0) {
                    wrong.push_back(lock.request->text);
                }
            }
            for (const LogRequest& request : told.requests) {
                if (request.client.empty()) continue;
                EXPECT_THAT(clients, Contains(request.client)) << request.text;
            }
        }
    }
    EXPECT_GT(doubts, 10u);
    // The end of an event has one line: without it and a later one nobody can tell.
    EXPECT_LE(wrong.size(), 1u) << testing::PrintToString(wrong);
}

std::string Join(const std::vector<LogProblem>& problems) {
    std::string text;
    for (const LogProblem& problem : problems) {
        text += fmt::format("{}: {}\n", problem.line, problem.message);
    }
    return text;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != text.npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

constexpr char kAsked[] = R"(debug: on
steps:
- {at: 100, on: game_steady}
- {at: 200, do: game_fight}
- {at: 300, on_demand: {game_fight: 777}}
- {at: 3000, do: game_fight}
- {at: 5000, limit: {client: thermal, tags: {big_max: 1440000}}}
- {at: 6000, get: [big_max]}
)";

struct Contradiction {
    const char* name;
    std::vector<std::pair<std::string, std::string>> log;     // what is replaced in it
    std::vector<std::pair<std::string, std::string>> scenes;  // and in the scene file
    std::string device;
    std::string problem;
};

void PrintTo(const Contradiction& row, std::ostream* out) {
    *out << row.name;
}

class ContradictedFile : public testing::TestWithParam<Contradiction> {};

TEST_P(ContradictedFile, IsTold) {
    const Contradiction& row = GetParam();
    std::string log = PlayScenario(LoadYamlText(kAsked, "a.yaml"), "sm8450", true).log;
    for (const auto& [from, to] : row.log) log = Replaced(log, from, to);
    std::ifstream shipped(FindSceneFile("sm8450"));
    std::stringstream scenes;
    scenes << shipped.rdbuf();
    std::string text = scenes.str();
    for (const auto& [from, to] : row.scenes) text = Replaced(text, from, to);
    const std::string file = testing::TempDir() + "other-" + std::to_string(getpid()) + ".xml";
    std::ofstream(file) << text;
    const CaptureFile capture(log);
    LogSession::Options options = capture.Options(row.device);
    options.scenes = file;
    LogSession session(options);
    PlayLog(session);
    const std::string problems = Join(session.Problems());
    std::remove(file.c_str());
    if (row.problem.empty()) {
        EXPECT_EQ(problems, "");
        EXPECT_FALSE(session.IsDeviceGuessed());
    } else {
        EXPECT_THAT(problems, HasSubstr(row.problem));
    }
}

const std::string kFight = "<command id=\"9220\" name=\"game_fight\">\n    <boost>\n      ";
const std::string kNoStep = "cpu4 scaling_max_freq reads 1440001 here, which is no step of ";

INSTANTIATE_TEST_SUITE_P(
    Rows, ContradictedFile,
    testing::Values(
        Contradiction{"None", {}, {}, "", ""},
        Contradiction{"Duration",
                      {},
                      {{kFight + "<duration_ms>2000<", kFight + "<duration_ms>9000<"}},
                      "",
                      "locks game_fight (9220) for 2000 ms, other-"},
        Contradiction{"UntilReleased",
                      {},
                      {{kFight + "<duration_ms>2000<", kFight + "<duration_ms>0<"}},
                      "",
                      " says until released"},
        Contradiction{"Pairs",
                      {{"tagLen = 6, duration = 2000", "tagLen = 7, duration = 2000"}},
                      {},
                      "",
                      "command 9220 holds 7 pairs here, which no element of it has in other-"},
        Contradiction{"SceneValue",
                      {{"setConfigs = 1324800", "setConfigs = 1440000"}},
                      {},
                      "",
                      "game_steady (12301) asks for big_min = 1440000 here, in other-"},
        Contradiction{"Frequency",
                      {{"config = 1440000", "config = 1440001"}},
                      {},
                      "sm8450",
                      kNoStep + "sm8450's big cluster"},
        Contradiction{"FrequencyOfNoShippedDevice",
                      {{"config = 1440000", "config = 1440001"}},
                      {},
                      "",
                      kNoStep + "sm8450's big cluster"},
        Contradiction{"Cpu", {{"/cpu4/", "/cpu9/"}}, {}, "sm8450", "limits cpu9, which sm8450 has"},
        Contradiction{
            "Device", {}, {}, "sm4450", "reads 1440000 here, which is no step of sm4450"}),
    [](const auto& test) { return std::string(test.param.name); });

// A log line of the server's at a time within one minute.
std::string Line(int ms, const std::string& text, const char* tag = "tag") {
    return fmt::format("06-14 12:00:{:02}.{:03} 9 11 I {}: {}\n", ms / 1000, ms % 1000, tag, text);
}

std::string Released(int ms, int tag, int handle) {
    return Line(ms, fmt::format("tarquel: SetConfig tagLen = 1, tag = {}, val = 0, mPerf = 1, "
                                "mThermal = 0, mEnable = 1",
                                tag)) +
           Line(ms, fmt::format("tarquel: DoHandleMapRelease tag = {}, PerfLockRel handle= {}", tag,
                                handle)) +
           Line(ms, "tarquel: default cpu_max_freq is 0xffffffff, no need to modify!");
}

std::string Locked(int ms, int handle) {
    return Line(ms, fmt::format("tarquel: PerfLockAcq cmdId = 4105, oldHandle = 0, updateHandle = "
                                "{}, tagLen = 2, duration = 400",
                                handle)) +
           Line(ms, "tarquel: DoAction ret = 0, cmdId = 4105, payloadNum = 0");
}

struct Unknown {
    const char* name;
    std::string log;
    std::vector<const char*> told;  // in the sentences, one after the other
};

TEST(CaptureTruth, SaysWhatIsUnknown) {
    const Unknown rows[] = {
        {"Whole", Locked(100, 1), {}},
        {"Late", Locked(100, 145), {"its first is number 145: 144 came before), nor what"}},
        {"Held", Locked(100, 145) + Released(900, 4, 77), {"lock 77 of big_max (line 4 shows it)"}},
        {"Dropped",
         Locked(100, 1) + Line(200, "uid=1000(system) tarquel_server expire 12 lines", "chatty"),
         {"The logger dropped 12 lines"}},
        {"Repeated",
         Locked(100, 1) + Line(200, "uid=1000(system) tarquel_server identical 12 lines", "chatty"),
         {}},
        {"SetBack", Locked(50000, 1) + Locked(10000, 2), {"clock was set back by 40.000 s"}},
        {"Silence",
         Replaced(Locked(100, 1), "12:00", "11:00") + Locked(100, 2),
         {"no program logs for 1 h 00 min"}},
    };
    for (const Unknown& row : rows) {
        SCOPED_TRACE(row.name);
        const CaptureFile capture(row.log);
        LogSession session(capture.Options("sm8450"));
        PlayLog(session);
        const std::vector<std::string> unknowns = session.Unknowns();
        ASSERT_EQ(unknowns.size(), row.told.size()) << testing::PrintToString(unknowns);
        for (size_t i = 0; i < unknowns.size(); ++i)
            EXPECT_THAT(unknowns[i], HasSubstr(row.told[i]));
    }
}

TEST(CaptureTruth, DoubtsWhatWasHeldBeforeLinesWereLost) {
    const std::string taken =
        Line(100,
             "tarquel: PerfServiceSetConfig tag = 4, PerfLockAcq handle = 1, val[0] = "
             "0x40804000, val[1] = 1440");
    const CaptureFile capture(
        taken + Line(200, "uid=1000(system) tarquel_server expire 12 lines", "chatty") +
        Released(300, 7, 9));
    LogSession session(capture.Options("sm8450"));
    const ToldLog told = PlayLog(session);
    ASSERT_EQ(told.held.size(), 1u);
    EXPECT_THAT(told.held[0].doubt, HasSubstr("lines are missing at line"));
    // Lock 9 was taken in this capture, for it is not older than its first: where, no line tells.
    std::vector<bool> earlier;
    for (const Event& event : told.events) {
        const auto* acquire = std::get_if<LockAcquire>(&event.what);
        if (acquire) earlier.push_back(acquire->isEarlier);
    }
    EXPECT_THAT(earlier, ElementsAre(false, true));
}

}  // namespace
}  // namespace lab
