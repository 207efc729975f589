// Breakthroughs that end while something else is going on, on the machine's clock and timers: the
// next breakthrough, slow hardware, the end of the process.
#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

#include "lab/phone/real_timers.h"
#include "tests/support/plugin_test.h"

using testing::IsEmpty;

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kPower = 1;
constexpr int kTemp = 2;
constexpr int kBoostOpcode = 0x41030000;
const std::string kPrimeMax = "/sys/devices/system/cpu/cpu7/cpufreq/scaling_max_freq";

class ExpiryTest : public PluginTest {
  protected:
    void SetUp() override {
        lab::Phone::Options options;
        options.realtime = true;
        Boot("sm8450", options);
        mLong = MakeAction(4353, 2000, {kBoostOpcode, 1}, 4);
        EnterThermal();
    }

    // No breakthrough, and ceilings that reach their nodes.
    void EnterThermal() { Limit(kTemp, {{57, 9}, {57, 6}, {7, 2054400}}); }

    std::unique_ptr<QcomAction> Boost(int durationMs) {
        return MakeAction(4353, durationMs, {kBoostOpcode, 1}, 4);
    }

    int64_t PrimeCeiling() { return GetPhone().GetKernel().RequestsOn(kPrimeMax)->program; }

    // Nothing happens any more: what did can be looked at.
    void ComeToRest() {
        lab::WaitForTimerCallbacks();
        GetPhone().GetClock().Stop();
    }

    // The places of events in the order of all, the first from a place on; -1 for one that never
    // came.
    template <typename Is>
    long PlaceOf(const Is& is, size_t from = 0) {
        const auto& events = GetPhone().Events().Events();
        for (size_t i = from; i < events.size(); ++i) {
            if (is(events[i].what)) return static_cast<long>(i);
        }
        return -1;
    }
    long PlaceOfWrite(const std::string& path, const std::string& value) {
        return PlaceOf([&](const lab::What& what) {
            const auto* access = std::get_if<lab::NodeAccess>(&what);
            return access != nullptr && access->path == path && access->requested == value;
        });
    }
    long PlaceOfLock(int opcode) {
        return PlaceOf([opcode](const lab::What& what) {
            const auto* acquire = std::get_if<lab::LockAcquire>(&what);
            return acquire != nullptr && acquire->list[0] == opcode;
        });
    }

    std::unique_ptr<QcomAction> mLong;
};

void SpinUntil(steady_clock::time_point end) {
    while (steady_clock::now() < end) continue;
}

TEST_F(ExpiryTest, LateOneLeavesTheNextBreakthroughAlone) {
    constexpr int kTries = 400;
    std::minstd_rand random(1);
    const auto first = Boost(1);
    std::vector<int> cutShort;
    for (int i = 0; i < kTries; ++i) {
        const auto armed = steady_clock::now();
        Do(*first);
        // Before, while and after the expiry is on its way to its thread.
        SpinUntil(armed + milliseconds(1) + microseconds(random() % 200));
        Do(*mLong);
        lab::WaitForTimerCallbacks();
        Limit(kTemp, {{7, 1843200}});
        if (PrimeCeiling() != 2054400) cutShort.push_back(i);
        EnterThermal();
    }
    EXPECT_THAT(cutShort, IsEmpty()) << "of " << kTries;
}

TEST_F(ExpiryTest, WaitsForNoRequestThatTheHalKeeps) {
    GetPhone().GetFaults().SetHalDelay(400);
    Forget();
    const auto boost = Boost(20);
    std::thread limit([this] { Limit(kPower, {{1, 1171200}}); });
    std::thread touch([&] { Do(*boost); });
    limit.join();
    touch.join();
    ComeToRest();
    const long restored = PlaceOfWrite(kPrimeMax, "2054400");
    EXPECT_GE(restored, 0);
    EXPECT_LT(restored, PlaceOfLock(0x40804100));
    EXPECT_LT(restored, PlaceOfLock(kBoostOpcode));
    EXPECT_EQ(PrimeCeiling(), 2054400);
}

TEST_F(ExpiryTest, WritesTheCeilingThatARequestWroteBeforeItBegan) {
    GetPhone().GetFaults().SetHalDelay(100);
    Forget();
    const auto boost = Boost(200);
    std::thread limit([this] { Limit(kTemp, {{7, 1843200}}); });  // its node, then the HAL
    SpinUntil(steady_clock::now() + milliseconds(50));
    const auto began = steady_clock::now();
    Do(*boost);
    limit.join();
    SpinUntil(began + milliseconds(250));
    ComeToRest();
    const long fired = PlaceOf([](const lab::What& what) {
        const auto* timer = std::get_if<lab::TimerEvent>(&what);
        return timer != nullptr && timer->kind == lab::TimerEvent::Kind::kFire;
    });
    ASSERT_GE(fired, 0);
    const long writtenThen = PlaceOf(
        [](const lab::What& what) {
            const auto* access = std::get_if<lab::NodeAccess>(&what);
            return access != nullptr && access->path == kPrimeMax && !access->byHal;
        },
        static_cast<size_t>(fired));
    EXPECT_GE(writtenThen, 0);
}

TEST_F(ExpiryTest, TouchThatEndsNoneWaitsForNoNode) {
    const std::string gpu = "/sys/class/kgsl/kgsl-3d0/devfreq/max_freq";
    GetPhone().GetFaults().SetNode(gpu, lab::NodeFault{lab::NodeFault::Kind::kSlow, 400});
    Forget();
    const auto end = MakeAction(5379, 20, {kBoostOpcode, 1}, 4);
    std::thread thermal([this] { Limit(kTemp, {{10, 500000000}}); });
    SpinUntil(steady_clock::now() + milliseconds(20));
    Do(*end);
    thermal.join();
    ComeToRest();
    EXPECT_LT(PlaceOfLock(kBoostOpcode), PlaceOfWrite(gpu, "500000000"));
}

TEST_F(ExpiryTest, PlatformGoesBehindAnExpiryThatIsUnderWay) {
    GetPhone().GetFaults().SetNode(kPrimeMax, lab::NodeFault{lab::NodeFault::Kind::kSlow, 100});
    const auto boost = Boost(5);
    Forget();
    Do(*boost);
    SpinUntil(steady_clock::now() + milliseconds(50));  // its end is at the slow node
    Exported<TarQuelPlat* (*)()>("GetPlat")()->~TarQuelPlat();
    const long goneAt = PlaceOf([](const lab::What& what) {
        const auto* timer = std::get_if<lab::TimerEvent>(&what);
        return timer != nullptr && timer->kind == lab::TimerEvent::Kind::kDelete;
    });
    EXPECT_GE(PlaceOfWrite(kPrimeMax, "2054400"), 0);
    EXPECT_LT(PlaceOfWrite(kPrimeMax, "2054400"), goneAt);
    Initialize();
}

#ifndef TARQUEL_EMULATED
// The program takes its time to end after the plug-in's turn, as a server with much to clean up.
class ExitTest : public ExpiryTest {
  protected:
    void SetUp() override {
        std::atexit([] { SpinUntil(steady_clock::now() + milliseconds(50)); });
        ExpiryTest::SetUp();
    }
};

// A thread is in requests and the timer is about to fire meanwhile.
void ExitInTheMiddle(const std::function<void()>& request) {
    std::thread([&request] {
        for (;;) request();
    }).detach();
    SpinUntil(steady_clock::now() + milliseconds(5));
    std::exit(0);
}

TEST_F(ExitTest, ProgramMayEndUnderRunningThreads) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto boost = Boost(1);
    boost->boostLevels = {3, 3, 3, 3};
    EXPECT_EXIT(ExitInTheMiddle([&] {
                    const lab::ActionChain chain = GetLibrary().Copy(*boost);
                    Adapter().DoAddScalingInfo(*chain);
                    Do(*chain);
                    Adapter().CanThermalBoost(4353);
                    Limit(kTemp, {{7, 1843200}});
                    GetPhone().Events().Clear();
                }),
                testing::ExitedWithCode(0), "");
}
#endif

TEST_F(ExpiryTest, PlatformMayBeAskedForWhileItIsDestroyed) {
    const auto getPlat = Exported<TarQuelPlat* (*)()>("GetPlat");
    std::atomic<bool> isOver{false};
    std::thread asking([&] {
        while (!isOver) EXPECT_NE(getPlat(), nullptr);
    });
    for (int i = 0; i < 200; ++i) {
        TarQuelPlat* const plat = getPlat();
        if (i % 20 == 0) plat->Initialize();
        plat->~TarQuelPlat();
    }
    isOver = true;
    asking.join();
    Initialize();
}

}  // namespace
