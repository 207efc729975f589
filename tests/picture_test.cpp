// The model of a run, and the trace that is written from it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "lab/book/history.h"
#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/pictures/lanes.h"
#include "lab/pictures/output_file.h"
#include "lab/pictures/pictures.h"
#include "lab/program/progress.h"
#include "lab/server/inputs.h"
#include "lab/server/library.h"
#include "lab/server/runner.h"

namespace lab {
namespace {

using Json = nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

Time At(int64_t ms) {
    return std::chrono::milliseconds(ms);
}

const DeviceProfile& Device() {
    static const DeviceProfile device = LoadDeviceProfile("sm8450");
    return device;
}

// What comes of events: the book, and what pictures draw.
struct Seen {
    Seen(const std::vector<Event>& events, Time end)
        : book(Device(), scenes, phone.GetKernel()), history(Device(), book) {
        for (const Event& event : events) {
            book.Observe(event);
            history.Observe(event);
        }
        history.Finish(end);
    }

    SceneFile scenes = ScenesOfClusters(Device());
    Phone phone{Device()};
    Book book;
    History history;
};

History Observed(const std::vector<Event>& events, Time end) {
    return std::move(Seen(events, end).history);
}

PictureHead Head() {
    PictureHead head;
    head.title = "A run";
    head.device = "sm8450";
    return head;
}

Json TraceOf(const History& history, const PictureHead& head = Head()) {
    std::ostringstream out;
    WriteTrace(history, head, out);
    return Json::parse(out.str());
}

LockAcquire Acquire(int requested, int durationMs, std::vector<int> list, int returned) {
    return {requested, durationMs, std::move(list), returned};
}

// "0:633600 100:1324800"
std::string Text(const std::vector<History::Point>& points) {
    std::string text;
    for (const History::Point& point : points) {
        if (!text.empty()) text += " ";
        text += std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(point.at) /
                               std::chrono::milliseconds(1)) +
                ":" + std::to_string(point.khz);
    }
    return text;
}

TEST(RunHistory, GivesALockFromBeforeTheCaptureToSomebodyUnnamed) {
    LockAcquire earlier = Acquire(0, 0, {0x40800000, 1324}, 7);
    earlier.isEarlier = true;
    const History history = Observed({{At(1), earlier}}, At(9));
    const std::string who = "a requester that the log does not name";
    EXPECT_EQ(LanesOf(history, Layout::kThreeClusters).at(0).who, "other:" + who);
    const Json trace = TraceOf(history);
    EXPECT_TRUE(std::any_of(
        trace["traceEvents"].begin(), trace["traceEvents"].end(),
        [&](const Json& event) { return event["ph"] == "X" && event["args"]["holder"] == who; }));
}

TEST(RunHistory, GivesLocksToTheRequestThatTookOrRenewedThem) {
    const History history = Observed({{At(1), RequestBegin{"on a (1)", 3, "", "a"}},
                                      {At(1), Acquire(0, 500, {0x40800000, 1324}, 1)},
                                      {At(1), RequestEnd{"0"}},
                                      {At(2), Acquire(0, 0, {0x40800000, 900}, 2)},
                                      {At(200), RequestBegin{"limit by power: x", 4, "power"}},
                                      {At(200), Acquire(1, 500, {0x40800000, 1500}, 1)},
                                      {At(200), Acquire(0, 0, {0x40800000, 1}, -1)},
                                      {At(200), RequestEnd{""}},
                                      {At(700), LockExpire{1}},
                                      {At(701), LockRelease{9, -1, false}}},
                                     At(800));
    ASSERT_EQ(history.Locks().size(), 2U);
    const History::Lock& renewed = history.Locks()[0];
    ASSERT_EQ(renewed.terms.size(), 2U);
    EXPECT_EQ(history.WhoOf(renewed.terms[0].request), "command:a");
    EXPECT_EQ(renewed.terms[0].until, At(501));
    EXPECT_EQ(history.WhoOf(renewed.terms[1].request), "client:power");
    EXPECT_EQ(LockEndText(renewed), "expired after 699 ms");
    const History::Lock& lone = history.Locks()[1];
    EXPECT_EQ(history.WhoOf(lone.terms[0].request), "other:the plug-in");
    EXPECT_EQ(TermText(lone.terms[0]), "until released");
    EXPECT_EQ(lone.how, History::LockEnd::kHeld);
    EXPECT_EQ(lone.end, At(800));
    ASSERT_EQ(history.Refusals().size(), 1U);
    EXPECT_EQ(history.Refusals()[0].request, 1U);
}

// "a: 1 4", "a (2): 2": each lane with the handles of its locks.
std::vector<std::string> LaneTexts(const History& history) {
    std::vector<std::string> lanes;
    for (const Lane& lane : LanesOf(history, Layout::kThreeClusters)) {
        std::string text = lane.name + ":";
        for (const LaneSpan& span : lane.spans) {
            text += " " + std::to_string(history.Locks()[span.lock].handle);
        }
        lanes.push_back(text);
    }
    return lanes;
}

TEST(RunHistory, PutsOverlappingLocksOfOneHolderOnLanesBesideEachOther) {
    const History history = Observed({{At(0), RequestBegin{"do a (1)", 3, "", "a"}},
                                      {At(0), Acquire(0, 100, {1, 1}, 1)},
                                      {At(0), Acquire(0, 300, {1, 1}, 2)},
                                      {At(0), RequestEnd{"0"}},
                                      {At(50), Acquire(0, 0, {1, 1}, 3)},
                                      {At(100), LockExpire{1}},
                                      {At(100), RequestBegin{"do a (1)", 4, "", "a"}},
                                      {At(100), Acquire(0, 100, {1, 1}, 4)},
                                      {At(100), RequestEnd{"0"}}},
                                     At(120));
    EXPECT_THAT(LaneTexts(history), ElementsAre("a: 1 4", "a (2): 2", "the plug-in: 3"));
}

TEST(RunHistory, KeepsTheLanesOfTagsAndMovesWhatChangesHands) {
    const int big = *FindTagOpcode(4, Layout::kThreeClusters);
    const int gpu = *FindTagOpcode(10, Layout::kThreeClusters);
    const History history =
        Observed({{At(0), RequestBegin{"limit", 1, "thermal"}},
                  {At(0), Acquire(0, 0, {big, 1651}, 1)},
                  {At(0), Acquire(0, 0, {gpu, 640}, 2)},
                  {At(0), RequestEnd{}},
                  // The big cluster's ceiling is lifted, then both are set anew.
                  {At(10), LockRelease{1, 0, true}},
                  {At(20), RequestBegin{"limit", 2, "thermal"}},
                  {At(20), LockRelease{2, 0, true}},
                  {At(20), Acquire(0, 0, {gpu, 545}, 3)},
                  {At(20), Acquire(0, 0, {big, 1440}, 4)},
                  {At(20), RequestEnd{}},
                  {At(30), RequestBegin{"limit", 3, "power"}},
                  {At(30), Acquire(4, 0, {big, 1440}, 4)},
                  {At(30), RequestEnd{}}},
                 At(40));
    EXPECT_THAT(LaneTexts(history),
                ElementsAre("thermal big_max: 1 4", "thermal gpu_max: 2 3", "power big_max: 4"));
    const History::Lock& passed = history.Locks()[3];
    EXPECT_EQ(history.WhoOf(History::HoldingAt(passed, At(29)).request), "client:thermal");
    EXPECT_EQ(history.WhoOf(History::HoldingAt(passed, At(30)).request), "client:power");
    std::vector<std::string> slices;
    const Json trace = TraceOf(history);
    for (const Json& event : trace["traceEvents"]) {
        if (event["ph"] != "X" || event["args"].value("lock", 0) != 4) continue;
        slices.push_back(event["name"].get<std::string>() + ", " +
                         event["args"]["ended"].get<std::string>());
    }
    EXPECT_THAT(slices, ElementsAre("thermal: big <= 1440 MHz, goes on for power",
                                    "power: big <= 1440 MHz, held at the end of the run"));
}

TEST(RunHistory, ClosesWhatIsOpenAndDropsEndsWithoutABegin) {
    const History history = Observed({{At(0), TraceSection{false, ""}},
                                      {At(1), TraceSection{true, "a"}},
                                      {At(1), TraceSection{true, "b"}},
                                      {At(2), TraceSection{false, ""}},
                                      {At(3), TimerEvent{TimerEvent::Kind::kArm, 2000}},
                                      {At(4), TimerEvent{TimerEvent::Kind::kArm, 500}},
                                      {At(5), LogLine{6, std::nullopt, "a line\n"}}},
                                     At(9));
    ASSERT_EQ(history.Sections().size(), 4U);
    EXPECT_EQ(history.Sections().front().begins, "a");
    EXPECT_EQ(history.Sections().back().at, At(9));
    ASSERT_EQ(history.Breakthroughs().size(), 2U);
    EXPECT_EQ(history.Breakthroughs()[0].end, At(4));
    EXPECT_EQ(history.Breakthroughs()[1].end, At(9));
    EXPECT_EQ(history.Lines().at(0).text, "a line");
}

TEST(RunHistory, TellsWhatAnOpcodeLimits) {
    const History history = Observed({}, At(0));
    const auto floor = history.BearingOf(0x40800000, 2111);
    ASSERT_TRUE(floor);
    EXPECT_EQ(history.Tracks()[floor->track].name, "big");
    EXPECT_TRUE(floor->isFloor);
    EXPECT_EQ(floor->khz, 2112000);
    const auto lifted = history.BearingOf(0x40814000, 2227200);
    ASSERT_TRUE(lifted);
    EXPECT_TRUE(lifted->lifts);
    EXPECT_EQ(lifted->khz, 2227200);
    const auto gpu = history.BearingOf(*FindTagOpcode(9, Layout::kThreeClusters), 492);
    ASSERT_TRUE(gpu);
    EXPECT_EQ(history.Tracks()[gpu->track].name, "gpu");
    EXPECT_EQ(gpu->khz, 492000);
    EXPECT_FALSE(history.BearingOf(0x40C00000, 1));
}

// Plays steps on a phone of its own.
struct Played {
    explicit Played(const std::string& steps)
        : book(Device(), scenes, phone.GetKernel()), history(Device(), book) {
        const YamlNode root = LoadYamlText("steps:\n" + steps, "my.yaml");
        // At the end of a request the kernel and the model must agree.
        const auto observe = [&](const Event& event) {
            history.Observe(event);
            if (std::holds_alternative<RequestEnd>(event.what)) Compare(phone.GetKernel());
        };
        Library library("");
        Server server(phone, library, scenes);
        Runner runner({phone, server, book, Device(), scenes}, observe);
        runner.Start(ReadScenarioHead(root));
        runner.Play(ReadScenarioSteps(root, scenes));
        runner.Finish();
        history.Finish(phone.GetClock().Now());
    }

    void Compare(const Kernel& kernel) {
        for (const History::Track& track : history.Tracks()) {
            if (track.name == "gpu" || track.isBus) continue;
            const std::string folder = "/sys/devices/system/cpu/cpu" +
                                       std::to_string(Device().FindCluster(track.name)->firstCpu) +
                                       "/cpufreq/";
            const auto isSame = [&](const char* node, const std::vector<History::Point>& points) {
                EXPECT_EQ(kernel.Value(folder + node), std::to_string(points.back().khz))
                    << track.name << " " << node;
            };
            isSame("scaling_min_freq", track.floor);
            isSame("scaling_max_freq", track.ceiling);
            isSame("scaling_cur_freq", track.current);
        }
    }

    SceneFile scenes = SceneFile::Load(DataFolder() + "/scenes/sm8450.xml");
    Phone phone{Device()};
    Book book;
    History history;
};

constexpr char kBreakthrough[] =
    "- {at: 50, debug: on}\n"
    "- {at: 100, on: game_running}\n"
    "- {at: 200, control: 6}\n"
    "- {at: 300, limit: {client: thermal, tags: {big_max: 1651200}}}\n"
    "- {at: 400, do: game_fight}\n"
    "- {at: 3000, off: game_running}\n"
    "- {at: 3100, node: {/sys/devices/system/cpu/cpu5/cpufreq/scaling_max_freq: 1113600}}\n"
    "- {wait: 100}\n";

TEST(RunHistory, FollowsTheKernelThroughLimitsThatFreeEachOther) {
    const Played played(kBreakthrough);
    const History::Track& big = played.history.Tracks()[1];
    EXPECT_EQ(Text(big.ceiling), "0:2496000 300:1651200 400:2227200 2400:1651200 3100:1113600");
    // The boost's floor shows as soon as its ceiling has made room for it.
    EXPECT_EQ(Text(big.floor), "0:633600 100:1324800 400:2112000 2400:1324800 3000:633600");
    EXPECT_EQ(Text(big.current), Text(big.floor));
    EXPECT_EQ(played.history.Requests()[4].client, "thermal");
    EXPECT_EQ(played.history.Requests()[5].command, "game_fight");
    EXPECT_EQ(played.history.Breakthroughs().size(), 1U);
}

std::string DataOf(const History& history, const PictureHead& head = Head()) {
    std::ostringstream out;
    WriteReportData(history, head, out);
    return out.str();
}

using LaneKey = std::pair<int, int>;  // process, thread

// What a viewer demands of each event.
void CheckFields(const Json& event) {
    const std::string phase = event.at("ph");
    EXPECT_TRUE(event.at("pid").is_number_integer()) << event;
    EXPECT_TRUE(event.at("tid").is_number_integer()) << event;
    EXPECT_TRUE(event.at("ts").is_number()) << event;
    EXPECT_GE(event.at("ts").get<double>(), 0) << event;
    if (phase != "E") {
        EXPECT_FALSE(event.at("name").get<std::string>().empty()) << event;
    }
    if (phase == "X") {
        EXPECT_GE(event.at("dur").get<double>(), 0) << event;
    }
    if (phase == "i") {
        EXPECT_EQ(event.at("s"), "t") << event;
    }
    if (phase == "C") {
        EXPECT_TRUE(event.at("args").begin()->is_number()) << event;
    }
    EXPECT_THAT(phase, testing::AnyOf("M", "X", "B", "E", "i", "C", "s", "f"));
}

// Times never fall within a lane, begins and ends pair, spans of one lane do not overlap, and every
// lane that something is drawn on has a name.
void CheckTrace(const Json& trace) {
    std::map<LaneKey, double> last;
    std::map<LaneKey, double> busyUntil;
    std::map<LaneKey, int> depth;
    std::set<LaneKey> named;
    std::set<int> namedProcesses;
    for (const Json& event : trace.at("traceEvents")) {
        CheckFields(event);
        const std::string phase = event["ph"];
        const LaneKey lane = {event["pid"], event["tid"]};
        if (event.value("name", "") == "process_name") namedProcesses.insert(lane.first);
        if (event.value("name", "") == "thread_name") named.insert(lane);
        if (phase == "M") continue;
        EXPECT_TRUE(namedProcesses.count(lane.first)) << event;
        EXPECT_TRUE(phase == "C" || named.count(lane)) << event;
        const double at = event["ts"];
        EXPECT_GE(at, last[lane]) << event;
        last[lane] = at;
        if (phase == "B") ++depth[lane];
        if (phase == "E") {
            EXPECT_GE(--depth[lane], 0) << event;
        }
        if (phase != "X") continue;
        EXPECT_GE(at, busyUntil[lane]) << event;
        busyUntil[lane] = at + event["dur"].get<double>();
    }
    for (const auto& [lane, open] : depth) EXPECT_EQ(open, 0) << lane.first << "/" << lane.second;
}

TEST(RunTrace, KeepsTheFormatsRulesAndTellsTheRun) {
    const Played played(kBreakthrough);
    const Json trace = TraceOf(played.history);
    CheckTrace(trace);
    std::map<std::string, int> slices;
    std::map<std::string, std::vector<double>> counters;
    std::map<std::string, int> requests;
    std::map<int, std::vector<Json>> flows;
    int sections = 0;
    for (const Json& event : trace["traceEvents"]) {
        const std::string phase = event["ph"];
        if (phase == "X") ++slices[event["name"]];
        if (phase == "C") counters[event["name"]].push_back(*event["args"].begin());
        if (phase == "s" || phase == "f") flows[event["id"]].push_back(event);
        if (phase == "X" && event["pid"] == 1) ++requests[event["name"]];
        if (phase == "B") ++sections;
    }
    EXPECT_EQ(slices["thermal: big <= 1651 MHz"], 1);
    EXPECT_EQ(slices["limit breakthrough, 2000 ms"], 1);
    EXPECT_THAT(counters["big ceiling"], ElementsAre(2496, 1651.2, 2227.2, 1651.2, 1113.6, 1113.6));
    EXPECT_THAT(counters["thermal level"], ElementsAre(2, 2));
    // The GPU, three clusters, and of the buses the one that a lock limits.
    EXPECT_THAT(counters["ddr bwmon floor"], ElementsAre(547, 1555, 2092, 1555, 547, 547));
    EXPECT_EQ(counters.size(), 12U + 2U + 2U);
    EXPECT_EQ(requests["do game_fight (9220)"], 1);
    // Every lock's slice has a flow, from the lane of requests at its own time.
    EXPECT_EQ(flows.size(), played.history.Locks().size());
    for (const auto& [id, ends] : flows) {
        ASSERT_EQ(ends.size(), 2U) << id;
        EXPECT_EQ(ends[0]["ph"], "s");
        EXPECT_EQ(ends[1]["ph"], "f");
        EXPECT_EQ(ends[0]["ts"], ends[1]["ts"]);
    }
    EXPECT_GT(sections, 0);
}

TEST(RunTrace, StaysValidForOddTextsTimesAndRenewals) {
    const History history =
        Observed({{std::chrono::nanoseconds(1), TraceSection{true, ""}},
                  {std::chrono::nanoseconds(1), TraceSection{true, "inner"}},
                  {std::chrono::nanoseconds(1500), RequestBegin{"\"quoted\"\n", 0}},
                  {std::chrono::nanoseconds(1500), Acquire(0, 0, {0x40800000, 1324}, 1)},
                  {std::chrono::nanoseconds(1501), Acquire(1, 10, {0x40800000}, 1)},
                  {std::chrono::nanoseconds(1501), LockExpire{1}},
                  {std::chrono::nanoseconds(1501), Acquire(0, 0, {}, 1)},
                  {std::chrono::nanoseconds(1502), LogLine{3, "tag", "bad \xff bytes"}},
                  {std::chrono::nanoseconds(1503), LogLine{3, std::nullopt, ""}}},
                 At(1));
    const Json trace = TraceOf(history);
    CheckTrace(trace);
    EXPECT_THAT(trace.dump(), HasSubstr("\"ts\":1.501"));
}

TEST(RunTrace, TellsWhatTheClockOfACaptureShowed) {
    const History history = Observed({{At(1500), LogLine{4, "a", "said"}}}, At(2000));
    PictureHead head = Head();
    head.moments = Moments(WallClock{-1, 6, 14, std::chrono::hours(19)}, At(2000));
    const Json trace = TraceOf(history, head);
    EXPECT_EQ(trace["otherData"]["clock_at_start"], "06-14 19:00:00.000");
    EXPECT_THAT(trace.dump(), HasSubstr(R"("clock":"06-14 19:00:01.500")"));
    EXPECT_EQ(Json::parse(DataOf(history, head))["clock"]["dated"], 0);
    EXPECT_FALSE(Json::parse(DataOf(history)).contains("clock"));
    EXPECT_THAT(TraceOf(history).dump(), Not(HasSubstr("clock")));
}

TEST(RunReport, DataCannotEndTheScriptThatHoldsIt) {
    const History history = Observed(
        {{At(1), RequestBegin{"</script><!--", 0}}, {At(1), LogLine{4, "a", "<b>"}}}, At(2));
    const std::string data = DataOf(history);
    EXPECT_EQ(data.find('<'), std::string::npos);
    const Json parsed = Json::parse(data);
    EXPECT_EQ(parsed["ticksPerSecond"], 1000);
    EXPECT_EQ(parsed["texts"][parsed["requests"]["rows"][0][0].get<size_t>()], "</script><!--");
}

TEST(RunReport, ChartsTheBusesThatALockLimitsAndNoOthers) {
    const int ddr = *FindTagOpcode(83, Layout::kThreeClusters);
    const int llcc = *FindTagOpcode(81, Layout::kThreeClusters);
    const History history = Observed(
        {{At(1), Acquire(0, 0, {ddr, 1555000}, 1)}, {At(2), Acquire(0, 0, {llcc, 600000}, -1)}},
        At(5));
    const Json data = Json::parse(DataOf(history));
    EXPECT_EQ(data["tracks"].size(), 5U);
    EXPECT_EQ(data["tracks"][4]["name"], "ddr bwmon");
    // The pair that was refused has a text alone.
    EXPECT_EQ(data["pairs"][0][1], 4);
    EXPECT_EQ(data["pairs"][1].size(), 1U);
}

// "0.001 s, request 1, lock 0"
std::vector<std::string> Moments(const Book& book) {
    std::vector<std::string> moments;
    for (const RunFinding& finding : book.Findings()) {
        std::string text = finding.at ? SecondsText(*finding.at) + " s" : "none";
        if (finding.request > 0) text += ", request " + std::to_string(finding.request);
        if (finding.lock) text += ", lock " + std::to_string(*finding.lock);
        moments.push_back(text);
    }
    return moments;
}

TEST(RunReport, FindingsHaveTheirMoments) {
    const Seen seen({{At(1), RequestBegin{"nothing", 3}},
                     {At(1), Acquire(0, 0, {0x40800000, 1}, -1)},
                     {At(2), RequestEnd{}},
                     {At(3), Acquire(0, 0, {0x40800000, 1}, 7)}},
                    At(5));
    // Refused; taken, though nothing asks for it; never released.
    EXPECT_THAT(Moments(seen.book), ElementsAre("0.001 s, request 1", "0.003 s, request 1, lock 0",
                                                "0.003 s, request 1, lock 0"));
    PictureHead head = Head();
    head.findings = seen.book.Findings();
    std::ostringstream out;
    WriteReportData(seen.history, head, out);
    const Json findings = Json::parse(out.str())["findings"];
    EXPECT_EQ(findings[0][1], 1);
    EXPECT_EQ(findings[0][2], 0);
    EXPECT_EQ(findings[0][3], -1);
    EXPECT_EQ(findings[1][3], 0);

    const Played played(
        "- {at: 10, do: game_touch, returns: 5}\n"
        "- {at: 20, expect: {thermal: 3, performance: 4}}\n");
    EXPECT_THAT(Moments(played.book),
                ElementsAre("0.010 s, request 2", "0.020 s, request 3", "0.020 s, request 3"));
}

TEST(RunReport, TimesBetweenMillisecondsAreKept) {
    const History history =
        Observed({{std::chrono::microseconds(1500), RequestBegin{"a", 0}}}, At(2));
    const Json parsed = Json::parse(DataOf(history));
    EXPECT_EQ(parsed["ticksPerSecond"], 1000000);
    EXPECT_EQ(parsed["requests"]["t"][0], 1500);
}

TEST(PictureFile, RefusesAtOnceAndKeepsAnOldFileUntilItIsFilled) {
    try {
        OutputFile file("/nowhere/a.json");
        FAIL() << "opened";
    } catch (const InputError& error) {
        EXPECT_STREQ(error.what(), "/nowhere/a.json: cannot be written: No such file or directory");
    }
    OutputFile full("/dev/full");
    EXPECT_THROW(full.Fill([](std::ostream& out) { out << "text"; }), InputError);

    const std::string path = testing::TempDir() + "tarquel_picture_test.txt";
    std::filesystem::remove(path);
    { OutputFile unused(path); }
    EXPECT_FALSE(std::filesystem::exists(path));
    std::ofstream(path) << "a long old text";
    { OutputFile unused(path); }
    EXPECT_EQ(std::filesystem::file_size(path), 15U);
    OutputFile(path).Fill([](std::ostream& out) { out << "new"; });
    EXPECT_EQ(std::filesystem::file_size(path), 3U);
    std::filesystem::remove(path);
}

TEST(ProgressBar, NeverPassesItsEnd) {
    EXPECT_EQ(Progress::BarText("day", 5, 20, std::chrono::seconds(3725)),
              "day [######..................]  25 %  5 of 20 requests, 1:02:05");
    EXPECT_THAT(Progress::BarText("day", 21, 20, {}), HasSubstr("100 %  20 of 20"));
}

}  // namespace
}  // namespace lab
