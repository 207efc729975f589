// What the fuzzers and the soak rely on: their judge finds what is wrong, requests can be had again
// from a seed, and what they once found stays mended.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/station.h"

namespace fuzz {
namespace {

using lab::LockAcquire;
using lab::LockExpire;
using lab::LockRelease;
using lab::NodeAccess;
using lab::SetLimits;

Deed Ask(lab::Request request) {
    return {0, std::move(request)};
}

struct BrokenRule {
    const char* name;
    std::vector<lab::What> events;
    const char* finding;  // empty: nothing is wrong
};

void PrintTo(const BrokenRule& rule, std::ostream* out) {
    *out << rule.name;
}

class CallRule : public testing::TestWithParam<BrokenRule> {};

TEST_P(CallRule, IsToldWhenItIsBroken) {
    CallRules calls(lab::LoadDeviceProfile("sm8450"));
    for (const lab::What& what : GetParam().events) calls.Observe({{}, what});
    const std::string findings = calls.Findings().empty() ? "" : calls.Findings().front();
    EXPECT_EQ(findings, GetParam().finding);
}

const LockAcquire kTaken{0, 5, {1, 2}, 7};

INSTANTIATE_TEST_SUITE_P(
    Rules, CallRule,
    testing::Values(
        BrokenRule{"None", {kTaken, LockAcquire{7, 5, {1, 2}, 7}, LockRelease{7, 0, true}}, ""},
        BrokenRule{"ExpiredOnce", {kTaken, LockExpire{7}, LockRelease{7, -1, false}}, ""},
        BrokenRule{"Twice",
                   {kTaken, LockRelease{7, 0, true}, LockRelease{7, -1, false}},
                   "lock 7 is released twice"},
        BrokenRule{
            "NobodyTook", {LockRelease{9, -1, false}}, "lock 9 is released, which nobody took"},
        BrokenRule{"RenewedAfterRelease",
                   {kTaken, LockRelease{7, 0, true}, LockAcquire{7, 5, {1, 2}, 8}},
                   "lock 7 is renewed after its release"},
        BrokenRule{"RenewedUntaken",
                   {LockAcquire{7, 5, {1, 2}, 8}},
                   "lock 7 is renewed, which nobody took"},
        BrokenRule{"OddList", {LockAcquire{0, 5, {1, 2, 3}, 7}}, "a lock with a list of 3 ints"},
        BrokenRule{"Duration", {LockAcquire{0, -5, {1, 2}, 7}}, "a lock for -5 ms"},
        BrokenRule{"Node",
                   {NodeAccess{NodeAccess::Kind::kWrite, "/sys/x", "1", "", "", 0, false}},
                   "/sys/x is written, which is no node of any tag"},
        BrokenRule{"HalsNode",
                   {NodeAccess{NodeAccess::Kind::kWrite, "/sys/x", "1", "", "", 0, true}},
                   ""}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(CallRules, KnowsTheLocksThatTheHalsRefusalLost) {
    CallRules calls(lab::LoadDeviceProfile("sm8450"));
    for (const lab::What& what : {lab::What(kTaken), lab::What(LockAcquire{7, 5, {1, 2}, -1})}) {
        calls.Observe({{}, what});
    }
    EXPECT_EQ(calls.Lost(), std::set<int>{7});
    EXPECT_EQ(calls.Totals().refused, 1U);
    calls.Observe({{}, LockExpire{7}});
    EXPECT_TRUE(calls.Lost().empty());
}

TEST(RequestMaker, GivesTheSameRequestsForTheSameSeed) {
    const lab::DeviceProfile device = lab::LoadDeviceProfile("sm8450");
    const lab::SceneFile scenes = lab::SceneFile::Load(lab::DataFolder() + "/scenes/sm8450.xml");
    const RequestMaker maker(device, scenes, {});
    RandomSource first(3);
    RandomSource again(3);
    RandomSource other(4);
    int differences = 0;
    for (int i = 0; i < 200; ++i) {
        const std::string text = Describe(maker.Draw(first));
        EXPECT_EQ(text, Describe(maker.Draw(again)));
        if (text != Describe(maker.Draw(other))) ++differences;
    }
    EXPECT_GT(differences, 150);
}

TEST(Station, FindsLocksThatNobodyAskedFor) {
    Station station("sm8450");
    const int list[2] = {0x40800000, 1000};
    for (int i = 0; i < 2; ++i) lab::Phone::Current()->Hal().Acquire(0, 0, list, 2);
    const std::string report = station.Play({Ask(lab::GetStatus{})});
    EXPECT_NE(report.find("is held, which no event told of"), report.npos) << report;
    EXPECT_NE(report.find("is held for nobody"), report.npos) << report;
    EXPECT_EQ(station.Play({Ask(lab::GetStatus{})}), "") << "the next sequence starts afresh";
}

TEST(Station, FindsAValueThatIsLeftInANode) {
    Station station("sm8450");
    lab::Phone::Current()->GetKernel().Write("/proc/sys/walt/sched_boost", "1");
    const std::string report = station.Play({Ask(lab::GetStatus{})});
    EXPECT_NE(report.find("walt sched_boost stays at 1 instead of 0"), report.npos) << report;
}

// What was found once.
struct Find {
    const char* name;
    const char* device;
    std::vector<Deed> deeds;
};

void PrintTo(const Find& find, std::ostream* out) {
    *out << find.name;
}

class FormerRequests : public testing::TestWithParam<Find> {};

TEST_P(FormerRequests, StayMended) {
    EXPECT_EQ(Station(GetParam().device).Play(GetParam().deeds), "");
}

INSTANTIATE_TEST_SUITE_P(
    Finds, FormerRequests,
    testing::Values(
        // The book took every marker in a group for the one that begins it.
        Find{"GroupNamesItsMarkerAgain",
             "sm4450",
             {Ask(SetLimits{1, {{98, 26980}, {121, 1695}, {98, 0}, {57, 3}}})}},
        // Two tags without an opcode, made known by a group, were one to the book.
        Find{"LocksOfTagsWithoutOpcode",
             "sm8450",
             {Ask(SetLimits{1, {{98, 100}, {1023, 5}, {128, 5}}}),
              Ask(SetLimits{1, {{1023, 5}, {128, 5}}})}},
        // CPU 4's node is CPU 0's: the book looked for the tag under one name alone.
        Find{"TagNamesANeighboursCpu",
             "sm4450",
             {Ask(SetLimits{2, {{57, 7}}}), Ask(SetLimits{2, {{105, 1480}}})}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(FormerFind, YamlWithAStrayCharacterEnds) {
    for (const char* const text : {", a", "a: 1\n, b", "\"a\" , {", "--- ,"}) {
        try {
            lab::LoadYamlText(text, "my.yaml");
            ADD_FAILURE() << "accepted: " << text;
        } catch (const lab::InputError& error) {
            EXPECT_GT(error.line, 0) << error.what();
        }
    }
}

class Sequences : public testing::TestWithParam<const char*> {};

TEST_P(Sequences, OfTheSeedsLeaveNothing) {
    Station station(GetParam());
    size_t played = 0;
    for (const auto& entry : std::filesystem::directory_iterator(FUZZ_SEEDS)) {
        std::ifstream stream(entry.path(), std::ios::binary);
        const std::string text(std::istreambuf_iterator<char>(stream), {});
        BytesSource source(reinterpret_cast<const uint8_t*>(text.data()), text.size());
        EXPECT_EQ(station.Play(source), "") << entry.path();
        ++played;
    }
    EXPECT_GT(played, 5U);
}

// As many bytes as make a short sequence, the same in every run.
TEST_P(Sequences, OfARandomSourceLeaveNothing) {
    Station station(GetParam());
    for (uint64_t seed = 0; seed < 200; ++seed) {
        RandomSource random(seed);
        std::vector<uint8_t> bytes(10 + seed);
        std::generate(bytes.begin(), bytes.end(), [&random] { return random.Byte(); });
        BytesSource source(bytes.data(), bytes.size());
        EXPECT_EQ(station.Play(source), "") << "seed " << seed;
    }
}

INSTANTIATE_TEST_SUITE_P(Devices, Sequences, testing::Values("sm8450", "sm4450"));

}  // namespace
}  // namespace fuzz
