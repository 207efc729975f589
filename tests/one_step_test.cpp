// What threads of the server must find as one step. The phone's HAL takes its time, so that two
// that could meet do; the fixture tells when they did.
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "tests/support/plugin_test.h"

using testing::SizeIs;

namespace {

constexpr int kOn = 0;
constexpr int kOff = -1;
constexpr int kTemp = 2;

class OneStep : public PluginTest {
  protected:
    void SetUp() override {
        lab::Phone::Options options;
        options.realtime = true;
        Boot("sm8450", options);
    }

    // Runs it on three threads at once, several times each.
    static void Together(const std::function<void()>& run) {
        constexpr int kThreads = 3;
        constexpr int kRounds = 4;
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&run] {
                for (int round = 0; round < kRounds; ++round) run();
            });
        }
        for (std::thread& thread : threads) thread.join();
    }
};

TEST_F(OneStep, EventsAndTheCommonLockAreNeverTakenTwice) {
    const auto event = MakeAction(4099, 0, {0x40C00000, 1});
    const auto common = MakeAction(4354, 0, {0x40C04000, 1});
    GetPhone().GetFaults().SetHalDelay(1);
    Together([&] {
        Do(*event, kOn);
        Do(*common);
    });
    EXPECT_THAT(GetPhone().Hal().Held(), SizeIs(2));
    Together([&] { Do(*event, kOff); });
    EXPECT_THAT(GetPhone().Hal().Held(), SizeIs(1));
    for (const auto& release : GetPhone().Events().All<lab::LockRelease>()) {
        EXPECT_TRUE(release.wasHeld) << release.handle;
    }
}

TEST_F(OneStep, StatusIsNeverOneThatWasNotInForce) {
    constexpr std::chrono::milliseconds kLongest{800};
    constexpr int kTag = 57;
    constexpr int kTypes[] = {5, 6};  // performance mode with level 1, and level 2 without
    Adapter().DoPerfSetConfig(kTemp, 1, &kTag, &kTypes[0]);
    std::atomic<bool> isOver{false};
    std::thread setter([&] {
        for (unsigned round = 0; !isOver; ++round) {
            Adapter().DoPerfSetConfig(kTemp, 1, &kTag, &kTypes[round % 2]);
            if (round % 1024 == 0) Forget();
        }
    });
    const auto end = std::chrono::steady_clock::now() + kLongest;
    std::map<std::string, int> status;
    int torn = 0;
    int& perf = status["mPB_Prior"];
    int& thermal = status["mTB_Prior"];
    while (torn == 0 && std::chrono::steady_clock::now() < end) {
        for (int i = 0; i < 500; ++i) {
            Adapter().GetPerfEventStatus(status);
            if (perf + thermal != 2) ++torn;
        }
    }
    isOver = true;
    setter.join();
    EXPECT_EQ(torn, 0);
}

}  // namespace
