// The same answer everywhere: at any moment of any run, every view names the same holder of a lock,
// the same value and the same owner.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <sstream>

#include "lab/ask/why.h"
#include "lab/names/text.h"
#include "lab/pictures/pictures.h"
#include "lab/program/run_result.h"
#include "lab/server/inputs.h"
#include "lab/server/library.h"
#include "lab/server/runner.h"
#include "lab/server/timeline.h"

namespace lab {
namespace {

using Json = nlohmann::json;

// What a view says of a lock: "thermal: big_cpu0_max_freq <= 1651 MHz".
using Answer = std::map<int, std::string>;

// Whole milliseconds are when things happen: between two of them is a moment.
constexpr Time kBetween = std::chrono::microseconds(500);
constexpr int kMoments = 3;
constexpr int kSeeds = 24;
constexpr int kMostCompared = 100;

// The owner as lanes and filters name him: without a command's number, and with or without a group.
std::string NameOf(const std::string& owner) {
    return std::regex_replace(owner, std::regex("'s group$| \\(\\d+\\)$"), "");
}

// The lock that a line of the timeline calls the winner must not be the one that `why` has lose
// against the other.
void CompareTimeline(const Event& event, const LockAcquire& acquire, const Book& book,
                     const DeviceProfile& device) {
    std::stringstream out;
    Timeline(out, book, {}).Observe(event);
    static const std::regex kContest("(wins over )?(lifts )?lock (\\d+)('s| wins with| lifts it)");
    size_t pair = 0;
    for (std::string line; std::getline(out, line); ++pair) {
        // The lock's own name stands at the first line's beginning.
        const std::string remark = line.substr(std::min<size_t>(40, line.size()));
        std::smatch found;
        if (!std::regex_search(remark, found, kContest)) continue;
        const bool isWin = found[1].matched || found[2].matched;
        const int rival = std::stoi(found[3]);
        const int opcode = acquire.list.at(2 * pair);
        const NodeTarget target = FindNode(std::to_string(opcode), device, book.GetKernel(), {});
        bool rivalWins = false;
        bool ownWins = false;
        for (const Holder& holder : WeighHolders(target, book, "")) {
            const auto is = [&](int handle) {
                return (holder.held + " ").starts_with(fmt::format("lock {} ", handle));
            };
            // A word that the plug-in wrote to the node itself wins without its lock.
            if (!holder.wins || holder.verdict.starts_with("by that write alone")) continue;
            if (is(rival)) rivalWins = true;
            if (is(acquire.returned) && holder.ask.opcode == opcode) ownWins = true;
        }
        EXPECT_FALSE(isWin ? rivalWins && !ownWins : ownWins && !rivalWins) << target.path << "\n"
                                                                            << out.str();
    }
}

// A run of a scenario, up to a moment or to its end, and what its views say. The phone is gone
// afterwards, for there can be one at a time.
struct PlayedRun {
    PlayedRun(const YamlNode& root, std::optional<Time> until) {
        const ScenarioHead head = ReadScenarioHead(root);
        const DeviceProfile device = DeviceOfScenario({}, head);
        SceneFile scenes = SceneFile::Load(ScenesOfScenario({}, head, device));
        Phone phone(device);
        Book book(device, scenes, phone.GetKernel());
        history.emplace(device, book);
        int compared = 0;
        Library library("");
        Server server(phone, library, scenes);
        Runner runner({phone, server, book, device, scenes}, [&](const Event& event) {
            history->Observe(event);
            const auto* acquire = std::get_if<LockAcquire>(&event.what);
            const bool isTaken = acquire && acquire->IsGranted();
            if (isTaken && ++compared <= kMostCompared)
                CompareTimeline(event, *acquire, book, device);
        });
        const std::vector<Step> steps = ReadScenarioSteps(root, scenes);
        runner.Start(head);
        until ? runner.PlayUntil(steps, *until) : runner.Play(steps);
        runner.Finish();
        now = phone.GetClock().Now();
        history->Finish(now);
        for (const auto& [handle, lock] : book.Locks()) locks.push_back(lock);
        for (const RunResult::HeldLock& lock : HeldLocks(book, now)) {
            held[lock.handle] = NameOf(lock.owner) + ":";
            for (const RunResult::Pair& pair : lock.pairs) held[lock.handle] += " " + pair.text;
        }
        if (until) return;
        PictureHead pictured;
        pictured.layout = book.ClusterLayout();
        std::ostringstream data;
        WriteReportData(*history, pictured, data);
        report = Json::parse(data.str());
        std::ostringstream events;
        WriteTrace(*history, pictured, events);
        trace = Json::parse(events.str())["traceEvents"];
    }

    std::optional<History> history;
    Time now{};
    std::vector<BookedLock> locks;
    Answer held;
    Json report;
    Json trace;
};

// The last row of a table whose first number is a time not after `ticks`.
const Json& RowAt(const Json& rows, int64_t ticks) {
    size_t at = rows.size() - 1;
    while (at > 0 && rows[at][0] > ticks) --at;
    return rows[at];
}

// The report's lanes; each lock's holdings must say the same.
Answer OfReport(const Json& data, Time at) {
    Answer answer;
    const int64_t ticks = at.count() / (1'000'000'000 / data["ticksPerSecond"].get<int64_t>());
    const auto text = [&](const Json& index) { return data["texts"][index.get<size_t>()]; };
    for (const Json& lane : data["lanes"]) {
        for (const Json& span : lane["spans"]) {
            const Json& lock = data["locks"][(span.is_array() ? span[0] : span).get<size_t>()];
            const Json& since = span.is_array() ? span[1] : lock[4][0][0];
            const Json& end = span.is_array() ? span[2] : lock[1];
            if (since > ticks || end <= ticks) continue;
            const std::string who = NameOfWho(lane["who"]);
            const Json& term = RowAt(lock[4], ticks);
            const Json& request = lock.size() > 5 ? RowAt(lock[5], ticks)[1] : lock[4][0][3];
            if (request >= 0) {
                const Json& asked = data["requests"]["rows"][request.get<size_t>()];
                const std::string command = text(asked[4]);
                EXPECT_EQ(command.empty() ? text(asked[3]).get<std::string>() : command, who);
            }
            std::string& words = answer[lock[0]];
            EXPECT_EQ(words, "") << "on two lanes";
            words = who + ":";
            for (const Json& pair : data["lists"][term[2].get<size_t>()]) {
                words += " " + text(data["pairs"][pair.get<size_t>()][0]).get<std::string>();
            }
        }
    }
    return answer;
}

Answer OfTrace(const Json& events, Time at) {
    Answer answer;
    const double us = std::chrono::duration<double, std::micro>(at).count();
    for (const Json& event : events) {
        if (event["ph"] != "X" || event.value("cat", "") != "lock") continue;
        const double since = event["ts"];
        if (since > us || since + event["dur"].get<double>() <= us) continue;
        std::string& words = answer[event["args"]["lock"]];
        words = event["args"]["holder"].get<std::string>() + ":";
        for (const Json& ask : event["args"]["asks"]) words += " " + ask.get<std::string>();
    }
    return answer;
}

// `why` on the node of one of the lock's pairs: of those who ask for what it carries one is the
// owner, and the node reads what the chart shows.
void CompareWhy(const YamlNode& root, const History& history, const BookedLock& lock, size_t pair,
                Time at) {
    Replay::Options options;
    options.at = fmt::format("{}ms", WholeMs(at));
    const auto replay = Replay::OpenScenario(root, options);
    const WhyAnswer answer = AskWhy(*replay, std::to_string(lock.list[pair]));
    const NodeStory& story = answer.story;
    std::string said;
    bool isOwner = false;
    for (const Holder& holder : story.holders) {
        said += fmt::format("{} {} {}\n", holder.held, holder.ask.who, holder.ask.ValueText());
        if (!(holder.held + " ").starts_with(fmt::format("lock {} ", lock.handle))) continue;
        isOwner = isOwner || holder.ask.who.starts_with(lock.owner);
    }
    EXPECT_TRUE(isOwner) << lock.handle << " of " << lock.owner << ", why says:\n" << said;
    const auto bearing = history.BearingOf(lock.list[pair], lock.list[pair + 1]);
    if (!bearing || history.Tracks()[bearing->track].isBus) return;
    const History::Track& track = history.Tracks()[bearing->track];
    int64_t khz = 0;
    for (const History::Point& point : bearing->isFloor ? track.floor : track.ceiling) {
        if (point.at <= answer.at) khz = point.khz;
    }
    EXPECT_EQ(std::stoll(story.value) / (track.name == "gpu" ? 1000 : 1), khz) << track.name;
}

void CompareViews(const YamlNode& root, const PlayedRun& whole, Time at, size_t random) {
    SCOPED_TRACE(SecondsText(at) + " s");
    const PlayedRun run(root, at);
    EXPECT_EQ(OfReport(whole.report, at), run.held) << "the report";
    EXPECT_EQ(OfTrace(whole.trace, at), run.held) << "the trace";
    if (run.locks.empty()) return;
    const BookedLock& lock = run.locks[random % run.locks.size()];
    const size_t pair = random / 64 % (lock.list.size() / 2) * 2;
    const bool isDriven =
        !DrivesOf(static_cast<uint32_t>(lock.list[pair]), whole.history->Device()).empty();
    if (isDriven) CompareWhy(root, *whole.history, lock, pair, at);
}

void CompareViews(const YamlNode& root, unsigned seed) {
    std::mt19937 random(seed);
    const PlayedRun whole(root, std::nullopt);
    const std::vector<History::Request>& requests = whole.history->Requests();
    for (int i = 0; i < kMoments; ++i) {
        const Time at = requests[random() % requests.size()].begin + kBetween;
        if (at < whole.now) CompareViews(root, whole, at, random());
    }
}

// Clients and long scenes that ask for the same few tags, among commands, control types and what
// may befall a phone.
std::string RandomScenario(unsigned seed) {
    std::mt19937 random(seed);
    const auto oneOf = [&](std::initializer_list<const char*> words) {
        return std::string(words.begin()[random() % words.size()]);
    };
    std::string steps = fmt::format("device: {}\nsteps:\n", oneOf({"sm8450", "sm4450"}));
    for (int i = 0; i < 40; ++i) {
        const std::string client = oneOf({"power", "thermal", "eapa", "camera"});
        const std::string tags =
            fmt::format("tags: {{big_max: {}, {}: {}, gpu_max: {}}}",
                        oneOf({"0", "1113600", "1440000", "1651200", "5000000"}),
                        oneOf({"big_min", "little_max", "little_min"}),
                        oneOf({"0", "1075200", "1478400"}), oneOf({"0", "421000000", "545000000"}));
        const std::string scene = oneOf({"power_save", "super_power_save", "game_steady",
                                         "game_running", "touch", "video_limit", "launch"});
        const std::string requests[] = {
            fmt::format("limit: {{client: {}, {}}}", client, tags),
            fmt::format("limit: {{client: {}, {}}}", client, tags),
            "on: " + scene,
            "off: " + scene,
            "do: " + oneOf({"game_fight", "game_touch", "app_start_cold"}),
            "control: " + oneOf({"0", "2", "4", "5", "6", "8"}),
            fmt::format("group: {{client: {}, duration_ms: {}, {}}}", client, oneOf({"0", "900"}),
                        tags),
            "group: {client: camera, duration_ms: -1}",
            oneOf({"hal: {refuse: 1, result: -1}", "cpus: {offline: 4-6}", "cpus: {online: 4-6}",
                   "faults: {nodes: {big_max: unwritable}}", "faults: none", "state: 4",
                   "node: {/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq: 1113600}"})};
        steps += fmt::format("- {{after: {}, {}}}\n", random() % 700,
                             requests[random() % std::size(requests)]);
    }
    return steps + "- {wait: 3000}\n";
}

class SameAnswer : public testing::TestWithParam<std::string> {};

TEST_P(SameAnswer, OfEveryShippedScenario) {
    CompareViews(LoadYamlFile(FindScenarioFile(GetParam())), 1);
}

std::vector<std::string> ShippedScenarios() {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(DataFolder() + "/scenarios")) {
        names.push_back(file.path().stem().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

INSTANTIATE_TEST_SUITE_P(Shipped, SameAnswer, testing::ValuesIn(ShippedScenarios()),
                         [](const auto& shipped) { return shipped.param; });

TEST(SameAnswerEverywhere, OfRandomScenarios) {
    for (unsigned seed = 1; seed <= kSeeds; ++seed) {
        const std::string scenario = RandomScenario(seed);
        CompareViews(LoadYamlText(scenario, "random.yaml"), seed);
        ASSERT_FALSE(HasFailure()) << "seed " << seed << "\n" << scenario;
    }
}

// Lines of a capture are left out at random: what is known of a lock's owner is known to all views.
TEST(SameAnswerEverywhere, OfCaptures) {
    const std::string file = testing::TempDir() + "/lines.txt";
    size_t compared = 0;
    for (const char* name : {"hot_game", "first_seconds_long", "debug_build_brief"}) {
        for (unsigned seed = 0; seed < 6; ++seed) {
            std::mt19937 random(seed);
            std::ifstream whole(DataFolder() + "/captures/" + name + ".txt");
            std::ofstream lines(file);
            for (std::string line; std::getline(whole, line);) {
                const bool isDebug = line.find("D tarquel") != line.npos || line.starts_with("D/");
                if (random() % (isDebug ? 2 : 9) > 0) lines << line << "\n";
            }
            lines.close();
            Replay::Options options;
            options.file = file;
            const auto replay = Replay::Open(options);
            History history(replay->Device(), replay->GetBook());
            replay->Play([&](const Event& event) { history.Observe(event); });
            history.Finish(replay->Now());
            for (const auto& [handle, lock] : replay->GetBook().Locks()) {
                const auto& held = History::HoldingAt(history.Locks()[lock.number], replay->Now());
                EXPECT_EQ(NameOfWho(history.WhoOf(held.request)), NameOf(lock.owner))
                    << name << " " << seed << ", lock " << handle;
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 20U);
}

// The scene that asked for the big cluster's ceiling has ended: it is thermal's alone.
TEST(SameAnswerEverywhere, ALimitIsThermalsWhenItsSceneHasEnded) {
    const YamlNode root = LoadYamlFile(FindScenarioFile("game_throttling"));
    const Time at = std::chrono::seconds(2000);
    const std::vector<BookedLock> locks = PlayedRun(root, at).locks;
    const auto big = std::find_if(locks.begin(), locks.end(),
                                  [](const BookedLock& lock) { return lock.tag == 4; });
    ASSERT_NE(big, locks.end());
    EXPECT_EQ(big->owner, "thermal");
    CompareViews(root, PlayedRun(root, std::nullopt), at, static_cast<size_t>(big - locks.begin()));
}

}  // namespace
}  // namespace lab
