// The rule of limits by itself, and that playing every sequence finds what breaks it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fuzz/exhaustion.h"
#include "lab/book/limit_words.h"
#include "lab/server/inputs.h"
#include "lab/yaml/yaml_tree.h"

namespace fuzz {
namespace {

using lab::LimitWord;

constexpr int kFloor = 6;
constexpr int kCeiling = 7;
constexpr int kScene = 12288;
constexpr int kOtherScene = 12289;

struct Said {
    int requester;
    int value;
    bool inUntimedGroup = false;
    bool isUnheard = false;
};

struct Weighing {
    const char* name;
    int tag;
    std::vector<Said> said;
    int winner;  // 0: nobody
    std::vector<int> weighed;
};

void PrintTo(const Weighing& weighing, std::ostream* out) {
    *out << weighing.name;
}

class LimitWords : public testing::TestWithParam<Weighing> {};

TEST_P(LimitWords, AreWeighed) {
    const Weighing& row = GetParam();
    std::vector<LimitWord> words;
    for (const Said& said : row.said) {
        const bool isRemembered =
            lab::IsRememberedWord(row.tag, said.requester, said.value, said.inUntimedGroup);
        const LimitWord word{said.requester, said.value, words.size() + 1, isRemembered};
        (said.isUnheard ? lab::AddUnheardWord : lab::AddLimitWord)(words, word);
        for (size_t i = 0; i < words.size(); ++i) words[i].order = i + 1;
    }
    std::vector<int> weighed;
    for (const size_t i : lab::WeighedWords(words)) weighed.push_back(words[i].requester);
    EXPECT_EQ(weighed, row.weighed);
    const std::optional<size_t> winner = lab::WinningWord(row.tag, words);
    EXPECT_EQ(winner ? words[*winner].requester : 0, row.winner);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LimitWords,
    testing::Values(
        Weighing{"Nobody", kCeiling, {}, 0, {}},
        Weighing{"LowestCeiling", kCeiling, {{1, 30}, {2, 20}, {kScene, 25}}, 2, {1, 2, kScene}},
        Weighing{"OldestOfEquals", kCeiling, {{3, 20}, {1, 20}}, 3, {3, 1}},
        Weighing{"LiftedCeiling", kCeiling, {{1, 30}, {2, 20}, {2, 0}}, 1, {1}},
        Weighing{"CameraAlone", kCeiling, {{1, 20}, {4, 30}}, 4, {4}},
        Weighing{"CameraLiftsForTheMoment", kCeiling, {{1, 20}, {4, 0}}, 0, {}},
        Weighing{"CameraUntilTheNext", kCeiling, {{1, 20}, {4, 10}, {3, 40}}, 1, {1, 3}},
        Weighing{"CamerasGroupStays", kCeiling, {{4, 20, true}, {4, 30}, {1, 25}}, 4, {4, 1}},
        Weighing{"TimedGroupLeavesTheCamera", kCeiling, {{4, 20}, {1, 10, false, true}}, 4, {4}},
        Weighing{"TimedGroupIsRemembered", kCeiling, {{1, 10, false, true}, {3, 20}}, 1, {1, 3}},
        Weighing{"HighestFloorOfScenes",
                 kFloor,
                 {{kScene, 10}, {kOtherScene, 20}},
                 kOtherScene,
                 {kScene, kOtherScene}},
        Weighing{"ClientsFloorAlone", kFloor, {{kScene, 20}, {1, 10}}, 1, {1}},
        Weighing{"LastClientsFloor", kFloor, {{1, 20}, {2, 10}}, 2, {2}},
        Weighing{"EndedSceneTakesTheClientsFloor", kFloor, {{1, 20}, {kScene, 0}}, 0, {}},
        Weighing{"SceneLiftsForTheMoment", kCeiling, {{1, 20}, {kScene, 0}}, 0, {}}),
    [](const auto& row) { return std::string(row.param.name); });

Letter Ask(lab::Request request) {
    return {{0, std::move(request)}, "status:"};
}

// Like the rule, but the highest ceiling wins.
int WeighWrongly(int tag, const std::vector<LimitWord>& words) {
    if (!lab::IsCeilingLimit(tag)) return lab::WinningValue(tag, words);
    int highest = 0;
    for (const size_t i : lab::WeighedWords(words)) highest = std::max(highest, words[i].value);
    return highest;
}

const Alphabet& Named(const std::vector<Alphabet>& alphabets, const std::string& name) {
    return *std::find_if(alphabets.begin(), alphabets.end(),
                         [&name](const Alphabet& alphabet) { return alphabet.name == name; });
}

class Devices : public testing::TestWithParam<const char*> {};

TEST_P(Devices, FollowTheRuleAfterEverySequence) {
    Referee referee(GetParam());
    const std::vector<Alphabet> alphabets = Alphabets(referee.Device(), referee.Scenes());
    EXPECT_EQ(alphabets.size(), AlphabetNames().size());
    for (const Alphabet& alphabet : alphabets) {
        Exhaustion exhaustion(referee, alphabet);
        std::optional<CounterExample> example = exhaustion.PlayEach(2);
        if (!example) example = exhaustion.PlayMerged(2);
        if (!example) example = exhaustion.TryMerges(20, 4, 1);
        EXPECT_FALSE(example) << alphabet.name << "\n" << ScenarioOf(*example, GetParam());
        EXPECT_LT(exhaustion.StateCount(), exhaustion.PlayedCount());
    }
}

// Long ones, too, with the letters of all alphabets.
TEST_P(Devices, FollowTheRuleOnLongWalks) {
    Referee referee(GetParam());
    Alphabet all{"all", {}};
    for (const Alphabet& alphabet : Alphabets(referee.Device(), referee.Scenes())) {
        all.letters.insert(all.letters.end(), alphabet.letters.begin(), alphabet.letters.end());
    }
    RandomSource random(1);
    for (int walk = 0; walk < 100; ++walk) {
        referee.Begin();
        CounterExample example;
        while (example.letters.size() < 40 && example.differences.empty()) {
            example.letters.push_back(random.Pick(all.letters));
            example.differences = referee.Play(example.letters.back().deed);
        }
        ASSERT_TRUE(example.differences.empty()) << ScenarioOf(example, GetParam());
    }
}

TEST_P(Devices, HaveLettersThatAScenarioSpells) {
    const Referee referee(GetParam());
    for (const Alphabet& alphabet : Alphabets(referee.Device(), referee.Scenes())) {
        const std::string text = "steps:\n" + StepsOf(alphabet.letters);
        const lab::YamlNode root = lab::LoadYamlText(text, "letters.yaml");
        const std::vector<lab::Step> steps = lab::ReadScenarioSteps(root, referee.Scenes());
        ASSERT_EQ(steps.size(), alphabet.letters.size());
        for (size_t i = 0; i < steps.size(); ++i) {
            const Deed spelt{steps[i].ms, steps[i].request};
            EXPECT_EQ(Describe(spelt), Describe(alphabet.letters[i].deed));
        }
    }
}

TEST_P(Devices, ShowAWrongRuleInAShortScenario) {
    Referee referee(GetParam(), WeighWrongly);
    const std::vector<Alphabet> alphabets = Alphabets(referee.Device(), referee.Scenes());
    for (const bool isMerged : {false, true}) {
        Exhaustion exhaustion(referee, Named(alphabets, "range"));
        const auto example = isMerged ? exhaustion.PlayMerged(3) : exhaustion.PlayEach(3);
        ASSERT_TRUE(example);
        EXPECT_EQ(example->letters.size(), 2U);
        const std::string text = ScenarioOf(*example, GetParam());
        EXPECT_THAT(text, testing::HasSubstr("expected"));
        const lab::YamlNode root = lab::LoadYamlText(text, "example.yaml");
        EXPECT_EQ(lab::ReadScenarioHead(root).device, GetParam());
        // An expectation of the lock or of a node comes behind the two requests.
        EXPECT_GT(lab::ReadScenarioSteps(root, referee.Scenes()).size(), 2U);
    }
}

INSTANTIATE_TEST_SUITE_P(Both, Devices, testing::Values("sm8450", "sm4450"));

// The HAL refuses a lock behind the rule's back: the library seems not to take it.
TEST(Exhaustion, FindsALockThatIsMissing) {
    Referee referee("sm8450");
    const Alphabet alphabet{
        "refusals",
        {Ask(lab::SetLimits{1, {{kCeiling, 1'958'400}}}), {{0, RefuseLocks{1, -1}}, "status:"}}};
    const auto example = Exhaustion(referee, alphabet).PlayEach(3);
    ASSERT_TRUE(example);
    EXPECT_EQ(example->letters.size(), 2U);
    EXPECT_THAT(ScenarioOf(*example, "sm8450"),
                testing::HasSubstr("# locks: expected 0x40804200 1958, found none"));
}

// That a lock will be refused is no part of any state: the merge is wrong, and only trying tells.
TEST(Exhaustion, TriesWhetherMergesAreRight) {
    Referee referee("sm8450");
    const Alphabet alphabet{
        "refusals",
        {Ask(lab::SetLimits{1, {{kCeiling, 1'958'400}}}), {{0, RefuseLocks{1, -1}}, "status:"}}};
    Exhaustion exhaustion(referee, alphabet);
    EXPECT_FALSE(exhaustion.PlayMerged(1));
    const auto example = exhaustion.TryMerges(10, 4, 1);
    ASSERT_TRUE(example);
    EXPECT_EQ(example->letters.size(), 2U);
}

}  // namespace
}  // namespace fuzz
