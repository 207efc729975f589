// The limit breakthrough: when it starts, what it lifts, and how it ends.
#include <gmock/gmock.h>

#include "tests/support/plugin_test.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr int kTemp = 2;
const std::string kPrimeMaxNode = "/sys/devices/system/cpu/cpu7/cpufreq/scaling_max_freq";

}  // namespace

class BreakthroughTest : public PluginTest {
  protected:
    // A phone under thermal level 2 with a ceiling on the prime cluster.
    void SetUp() override {
        Boot();
        Limit(kTemp, {{57, 6}});
        Limit(kTemp, {{7, 2054400}});
        Adapter().SetDebug(true);
        Forget();
    }

    // Timer events as text: "arm 3000", "disarm", "fire".
    std::vector<std::string> Timer() {
        std::vector<std::string> events;
        for (const auto& event : GetPhone().Events().All<lab::TimerEvent>()) {
            using Kind = lab::TimerEvent::Kind;
            if (event.kind == Kind::kArm) events.push_back("arm " + std::to_string(event.ms));
            if (event.kind == Kind::kDisarm) events.push_back("disarm");
            if (event.kind == Kind::kFire) events.push_back("fire");
        }
        return events;
    }

    // An action that may boost up to a thermal level; pairs of its own it has one.
    int Boost(int durationMs, int limitLevel, int cmdId = 4353) {
        return Do(*MakeAction(cmdId, durationMs, {0x40C00000, 1}, limitLevel));
    }
};

TEST_F(BreakthroughTest, EndsOnTimeAndPutsTheCeilingBack) {
    Boost(1000, 2);
    // While it runs a thermal request takes its lock but leaves the node alone.
    Limit(kTemp, {{7, 1843200}});
    EXPECT_THAT(NodeWrites(), IsEmpty());
    Advance(999);
    EXPECT_THAT(Timer(), ElementsAre("arm 1000"));
    Advance(1);
    EXPECT_THAT(Timer(), ElementsAre("arm 1000", "fire"));
    EXPECT_THAT(NodeWrites(), Contains(kPrimeMaxNode + "=1843200"));
    EXPECT_TRUE(HasLogged(kInfo, "tarquel TimerCallback End Temperature Control Breakthrough"));
    // From now on requests reach the node again.
    Forget();
    Limit(kTemp, {{7, 1728000}});
    EXPECT_THAT(NodeWrites(), ElementsAre(kPrimeMaxNode + "=1728000"));
}

struct StartCase {
    const char* what;
    int limitLevel;
    int durationMs;
    std::vector<int> payload;
    int onDemandMs;
    std::vector<std::string> timer;
};

class BreakthroughStartTest : public BreakthroughTest,
                              public testing::WithParamInterface<StartCase> {};

TEST_P(BreakthroughStartTest, ArmsTheTimer) {
    const StartCase& c = GetParam();
    GetPhone().SetOnDemandDuration(4353, c.onDemandMs);
    const auto action = MakeAction(4353, c.durationMs, {0x40C00000, 1}, c.limitLevel);
    Adapter().DoAction(*action, static_cast<unsigned>(c.payload.size()), c.payload.data());
    EXPECT_EQ(Timer(), c.timer) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Breakthrough, BreakthroughStartTest,
    testing::Values(StartCase{"hotter than the action allows", 1, 1000, {}, 0, {}},
                    StartCase{"just allowed", 2, 1000, {}, 0, {"arm 1000"}},
                    StartCase{"three seconds at most", 4, 9000, {}, 0, {"arm 3000"}},
                    StartCase{"without end: three seconds", 4, 0, {}, 0, {"arm 3000"}},
                    StartCase{"on demand does not count", 4, 1000, {}, 700, {"arm 1000"}},
                    StartCase{"event on: on demand counts", 4, 1000, {0}, 700, {"arm 700"}},
                    StartCase{"event off", 4, 1000, {-1}, 700, {}},
                    StartCase{"another payload", 4, 1000, {0, 1}, 700, {"arm 1000"}}));

TEST_F(BreakthroughTest, ShorterOneNeverCutsALongerOne) {
    Boost(2500, 2);
    Boost(1000, 2);
    Boost(2500, 2);
    EXPECT_THAT(Timer(), ElementsAre("arm 2500"));
    Advance(100);
    Boost(2500, 2);
    EXPECT_THAT(Timer(), ElementsAre("arm 2500", "arm 2500"));
}

TEST_F(BreakthroughTest, EndCommandStartsItAnewAfterPuttingTheCeilingBack) {
    Boost(2500, 2);
    Boost(1000, 2, 5379);
    EXPECT_THAT(Timer(), ElementsAre("arm 2500", "disarm", "arm 1000"));
    EXPECT_TRUE(HasLogged(kInfo, "tarquel SetTimer End Temperature Control Breakthrough"));
    EXPECT_THAT(NodeWrites(), Contains(kPrimeMaxNode + "=2054400"));
}

// An action that claims fewer pairs than none is one without pairs: what precedes the list happens.
TEST_F(BreakthroughTest, ActionWithANegativeCountActsUpToItsMissingPairs) {
    const auto regular = MakeAction(5378, 500, {0x40C00000, 1});
    const auto end = MakeAction(5379, 1000, {0x40C00000, 1}, 2);
    end->tagLen = -1;
    Do(*regular);
    Forget();
    EXPECT_EQ(Do(*end), -1);
    EXPECT_THAT(HalCalls(), ElementsAre("rel 2 -> 0"));
    EXPECT_THAT(Timer(), ElementsAre("disarm", "arm 1000"));
    EXPECT_THAT(Log(kError), IsEmpty());
}

TEST_F(BreakthroughTest, ThermalReleaseEndsItWithoutARestore) {
    Boost(2500, 2);
    Limit(kTemp, {{57, 9}});
    EXPECT_THAT(Timer(), ElementsAre("arm 2500", "disarm"));
    EXPECT_FALSE(HasLogged(kInfo, "tarquel SetTimer End Temperature Control Breakthrough"));
    Advance(5000);
    EXPECT_THAT(Timer(), Not(Contains("fire")));
}

TEST_F(BreakthroughTest, PerformanceModeHasNothingToPutBack) {
    Boost(1000, 2);
    Limit(kTemp, {{57, 5}});
    Forget();
    Advance(1000);
    EXPECT_THAT(Timer(), ElementsAre("fire"));
    EXPECT_THAT(NodeWrites(), IsEmpty());
}
