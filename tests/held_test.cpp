// What is held at a moment, of scenarios and of the logs that phones would have written.
#include "lab/ask/held.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/support/lab_run.h"

namespace lab {
namespace {

using std::chrono::milliseconds;

HeldAnswer HeldAt(const std::string& steps, const std::string& at = "") {
    Replay::Options options;
    options.at = at;
    const YamlNode root = LoadYamlText("steps:\n" + steps, "my.yaml");
    return AskHeld(*Replay::OpenScenario(root, options));
}

// "cpu4 scaling_max_freq: thermal counts, game_fight (9220) loses" of the node called `name`.
std::string StoryOf(const HeldAnswer& answer, const std::string& name) {
    for (const NodeStory& story : answer.nodes) {
        if (ShortNode(story.target.path) != name) continue;
        std::string text = story.value + ":";
        for (const Holder& holder : story.holders) {
            text += " " + holder.ask.who + (holder.wins ? " counts" : " loses");
        }
        return text;
    }
    return "not held";
}

constexpr char kGame[] =
    "- {on: game_running}\n"
    "- {control: 6}\n"
    "- {after: 10, limit: {client: thermal, tags: {big_max: 1651200}}}\n"
    "- {after: 990, do: game_fight}\n"
    "- {after: 4000, limit: {client: thermal, tags: {big_max: 0}}}\n"
    "- {wait: 200000}\n";

TEST(Held, ListsWhatIsNotAtItsDefaultWithWinnersAndLosers) {
    const HeldAnswer boosted = HeldAt(kGame, "2s");
    EXPECT_EQ(StoryOf(boosted, "cpu4 scaling_max_freq"),
              "2227200: game_fight (9220) counts thermal loses game_fight (9220) loses");
    EXPECT_EQ(StoryOf(boosted, "cpu4 scaling_min_freq"),
              "2112000: game_fight (9220) counts game_running (9219) loses");
    const HeldAnswer limited = HeldAt(kGame, "4s");
    EXPECT_EQ(StoryOf(limited, "cpu4 scaling_max_freq"), "1651200: thermal counts");
    EXPECT_EQ(StoryOf(HeldAt(kGame, "6s"), "cpu4 scaling_max_freq"), "not held");
    EXPECT_TRUE(HeldAt("- {do: touch}\n- {wait: 60000}\n").nodes.empty());
}

TEST(Held, FindsAnEventThatNobodyEnds) {
    EXPECT_TRUE(HeldAt(kGame, "100s").findings.empty()) << "not yet minutes";
    const std::vector<std::string> findings = HeldAt(kGame, "130s").findings;
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_NE(findings[0].find("'on game_running (9219)' (line 2) and has not ended"),
              std::string::npos)
        << findings[0];
}

TEST(Held, TellsTheLongestHoldsFirst) {
    const std::vector<LockHold> holds = HeldAt(kGame).holds;
    ASSERT_EQ(holds.size(), 3u) << "a lifted limit's lock at its default is nobody's";
    EXPECT_EQ(holds[0].who, "game_running (9219)");
    EXPECT_TRUE(holds[0].isHeld);
    EXPECT_EQ(holds[1].who, "thermal");
    EXPECT_EQ(holds[1].end - holds[1].since, milliseconds(4990));
    EXPECT_EQ(holds[2].who, "game_fight (9220)");
    EXPECT_EQ(holds[2].end - holds[2].since, milliseconds(2000));
}

// The log of a run, asked like the run itself; a head that is cut off takes names with it and
// leaves no wrong ones.
TEST(Held, AsksACaptureLikeItsRun) {
    const YamlNode root = LoadYamlText(std::string("steps:\n") + kGame, "my.yaml");
    const std::string log = PlayScenario(root, "sm8450", true).log;
    const std::string file = testing::TempDir() + "held_test.txt";
    const auto askAt = [&](const std::string& text, const std::string& at) {
        std::ofstream(file) << text;
        Replay::Options options;
        options.file = file;
        options.at = at;
        return AskHeld(*Replay::Open(options));
    };
    for (const char* at : {"0.500", "2s", "4s"}) {
        const HeldAnswer run = HeldAt(kGame, at);
        const HeldAnswer told = askAt(log, at);
        EXPECT_TRUE(told.isWhole);
        for (const char* node : {"cpu4 scaling_max_freq", "cpu4 scaling_min_freq"}) {
            EXPECT_EQ(StoryOf(told, node), StoryOf(run, node)) << node << " at " << at;
        }
    }
    const size_t late = log.find("\n", log.find("DoPerfSetConfig", log.size() / 2)) + 1;
    const HeldAnswer cut = askAt(late == 0 ? log.substr(log.size() / 2) : log.substr(late), "");
    EXPECT_FALSE(cut.isWhole);
    for (const NodeStory& story : cut.nodes) {
        for (const Holder& holder : story.holders) {
            EXPECT_NE(holder.ask.who, "thermal") << "its words are not in the rest of the log";
        }
    }
}

}  // namespace
}  // namespace lab
