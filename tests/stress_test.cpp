// The server's threads, the breakthrough timer and a loader all at once, on the machine's clock and
// timers. Meant to be run under the thread sanitizer as well; ends within seconds.
#include <gmock/gmock.h>

#include <chrono>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "lab/phone/real_timers.h"
#include "tests/support/plugin_test.h"

using testing::IsEmpty;
using testing::SizeIs;

namespace {

using std::chrono::milliseconds;

constexpr int kOn = 0;
constexpr int kOff = -1;
constexpr int kThreads = 5;
constexpr int kMostRounds = 3000;
constexpr milliseconds kLongest{1500};

constexpr int kPower = 1;
constexpr int kTemp = 2;
constexpr int kEapa = 3;
constexpr int kCamera = 4;
constexpr int kCounted = 4360;  // the command with a count limit

// A list of its own for each command, to tell from a lock who asked for it.
constexpr int kEventOpcode = 0x40C00000;
constexpr int kRegularOpcode = 0x41010000;
constexpr int kCommonOpcode = 0x41020000;
constexpr int kTimedOpcode = 0x41030000;
constexpr int kGroupOpcode = 0x44400000;  // tag 69

// Ceilings of the three clusters: their opcodes, nodes and values to ask for.
struct Ceiling {
    int tag;
    int opcode;
    const char* node;
    std::vector<int> khz;
};
const std::vector<Ceiling> kCeilings = {
    {1, 0x40804100, "/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq", {1171200, 1478400}},
    {4, 0x40804000, "/sys/devices/system/cpu/cpu4/cpufreq/scaling_max_freq", {1440000, 1651200}},
    {7, 0x40804200, "/sys/devices/system/cpu/cpu7/cpufreq/scaling_max_freq", {1843200, 2054400}}};

// Performance switch and thermal level as the control types set them; no others are ever in force.
const std::set<std::pair<int, int>> kStates = {{1, 0}, {0, -1}, {1, 1}, {0, 2}, {0, 3}, {0, 4}};

class StressTest : public PluginTest {
  protected:
    void SetUp() override {
        lab::Phone::Options options;
        options.realtime = true;
        Boot("sm8450", options);
        for (const Ceiling& ceiling : kCeilings) mBootKhz.push_back(Node(ceiling.node));
        mEvent = MakeAction(4099, 40, {kEventOpcode, 1}, 4);
        mRegular = MakeAction(5378, 0, {kRegularOpcode, 1});
        mRegularEnd = MakeAction(5379, 3, {kTimedOpcode, 1}, 4);
        mCommon = MakeAction(4354, 0, {kCommonOpcode, 1});
        mTimed = MakeAction(4353, 2, {kTimedOpcode, 1}, 4);
        mScene = MakeAction(12288, 0, {4, 1555200, 7, 1728000});
        mInter = MakeAction(4400, 0, {});
        mInter->tagLen = 1;
        mInter->interList = {"go_hispeed_load_l", "85"};
    }

    // What one of the server's threads does in one round.
    void Request(std::minstd_rand& random);
    void Ask(std::minstd_rand& random);
    void Complete();
    void CallExported(int number);
    void Load();

    // Ends every event, scene, group and limit, as a server does that comes to rest.
    void EndAll();

    template <typename Function>
    Function Member(const char* symbol) const {
        return Exported<Function>(symbol);
    }

    std::vector<std::string> mBootKhz;
    std::unique_ptr<QcomAction> mEvent, mRegular, mRegularEnd, mCommon, mTimed, mScene, mInter;
};

void StressTest::Request(std::minstd_rand& random) {
    const auto pick = [&random](size_t count) { return static_cast<size_t>(random()) % count; };
    switch (pick(12)) {
        case 0:
            Do(*mEvent, kOn);
            break;
        case 1:
            Do(*mEvent, kOff);
            break;
        case 2:
            Do(*mRegular);
            break;
        case 3:
            Do(*mRegularEnd);
            break;
        case 4:
            Do(*mCommon);
            break;
        case 5:
        case 6:
            Do(*mTimed);
            break;
        case 7:
            Do(*mScene, pick(2) == 0 ? kOn : kOff);
            break;
        case 8:
            Limit(kTemp, {{57, std::vector<int>{6, 7, 8, 2, 5, 10, 0}[pick(7)]}});
            break;
        case 9:
            Limit(kCamera, {{98, pick(3) == 0 ? -1 : 0}, {69, 10}});
            break;
        default: {
            const Ceiling& ceiling = kCeilings[pick(3)];
            const int khz = pick(3) == 0 ? 0 : ceiling.khz[pick(2)];
            Limit(std::vector<int>{kPower, kTemp, kEapa}[pick(3)], {{ceiling.tag, khz}});
        }
    }
}

void StressTest::Ask(std::minstd_rand& random) {
    const int number = static_cast<int>(random() % 8);
    std::vector<int> tags = {1, 7, 40, 50, 97, number * 16};
    std::vector<int> values(133);
    std::map<std::string, int> status;
    int type = -1;
    Adapter().SetState(number);
    Adapter().DoPerfGetConfig(static_cast<int>(tags.size()), tags.data(), values.data());
    Adapter().GetPerfEventStatus(status);
    EXPECT_EQ(kStates.count({status["mPB_Prior"], status["mTB_Prior"]}), 1u);
    Adapter().DoSchedLevelAction(1, 1, tags.data(), values.data());
    tags.resize(133);
    EXPECT_EQ(Adapter().GetPerfTagValue(*mScene, 0, tags.data(), values.data()), 2);
    Adapter().DoProbeAffinity(1, number);
    Adapter().GetChipPlatformType(*mScene, type);
    EXPECT_EQ(type, 0);
    Adapter().UpdateBoostCount(kCounted, 1000 + number);
    Adapter().CanThermalBoost(kCounted);
    if (number == 0) Adapter().SetDebug(random() % 2 == 0);
    Complete();
    CallExported(number);
}

void StressTest::Complete() {
    const lab::ActionChain chain = GetLibrary().Copy(*mTimed);
    chain->taskBoost = 1;
    chain->boostLevels = {3, 3, 3, 3};
    Adapter().DoAddTaskBoostInfo(*chain, "a=1|targetPid=77");
    Adapter().DoAddScalingInfo(*chain);
    EXPECT_EQ(chain->perfList.size(), static_cast<size_t>(chain->tagLen) * 2);
}

void StressTest::CallExported(int number) {
    int list[64] = {};
    int duration = 10;
    int len = 2;
    Member<void (*)(PerfAdapter*, const QcomAction&, const int*, int&, int*, int&)>(
        "_ZN15QcomPerfAdapter11SavePerfValERK10QcomActionPKiRiPiS5_")(&Adapter(), *mTimed, nullptr,
                                                                      duration, list, len);
    EXPECT_EQ(list[0], kTimedOpcode);
    Member<int (*)(PerfAdapter*, int)>("_ZN15QcomPerfAdapter19CheckPerfLockHandleEi")(
        &Adapter(), number % 2 - 1);
    Member<void (*)(PerfAdapter*, int, int, int)>("_ZN15QcomPerfAdapter18DoEventCacheHandleEiii")(
        &Adapter(), 9000 + number, 0, 0);
    GetLibrary().DoInterFreqAction(*mInter, &kOn);
    EXPECT_THAT(GetLibrary().DumpFreqList(), testing::HasSubstr("PG set freq is:\n"));
    auto* const plat = Member<TarQuelPlat* (*)()>("GetPlat")();
    EXPECT_EQ(Member<PerfAdapter* (*)(TarQuelPlat*)>("_ZNK12QcomPerfPlat10GetAdapterEv")(plat),
              &Adapter());
    EXPECT_EQ(plat->Initialize(), 0);
}

// A configuration on a thread of its own, as after an update of the scenes.
void StressTest::Load() {
    DescribeClusters();
    Command levels(2);
    levels.Element("freq_level_info3", {{"little_cpu0_max_freq", "1478400"},
                                        {"big_cpu0_max_freq", "1651200"},
                                        {"prime_cpu0_max_freq", "2054400"}});
    Command counted(kCounted);
    counted.Element("boost",
                    {{"duration_ms", "10"}, {"boost_count_limit", "5"}, {"boost_period", "3000"}});
    EXPECT_THAT(Parse({&levels, &counted}), SizeIs(1));
}

void StressTest::EndAll() {
    Limit(kTemp, {{57, 0}});
    Do(*mEvent, kOff);
    Do(*mRegular, kOff);
    Do(*mScene, kOff);
    Limit(kCamera, {{98, -1}, {69, 10}});
    for (const int client : {kPower, kTemp, kEapa}) {
        for (const Ceiling& ceiling : kCeilings) Limit(client, {{ceiling.tag, 0}});
    }
    Advance(60);  // timed locks run out
}

// The locks of each list over the whole run, from what the HAL saw.
struct LockHistory {
    std::map<int, std::set<int>> held;  // first opcode of the list -> handles
    std::map<int, size_t> most;         // first opcode -> the most handles held at a time
    std::map<int, int> releases;        // handle -> how often
    std::map<int, int> opcodeOfHandle;

    void Observe(const lab::Event& event) {
        if (const auto* acquire = std::get_if<lab::LockAcquire>(&event.what)) {
            if (acquire->returned < 1) return;
            const int opcode = acquire->list[0];
            opcodeOfHandle[acquire->returned] = opcode;
            held[opcode].insert(acquire->returned);
            most[opcode] = std::max(most[opcode], held[opcode].size());
        } else if (const auto* release = std::get_if<lab::LockRelease>(&event.what)) {
            ++releases[release->handle];
            held[opcodeOfHandle[release->handle]].erase(release->handle);
        } else if (const auto* expire = std::get_if<lab::LockExpire>(&event.what)) {
            held[opcodeOfHandle[expire->handle]].erase(expire->handle);
        }
    }
};

TEST_F(StressTest, ThreadsAndTheTimerLeaveNothingBehind) {
    GetPhone().GetKernel().Force("/sys/devices/system/cpu/cpu0/cpufreq/interactive/go_hispeed_load",
                                 "90");
    Load();
    // All empty texts of the platform share one, made by the first; a sanitizer does not see into
    // that library and takes it for unguarded.
    GetLibrary().DumpFreqList();
    const auto end = std::chrono::steady_clock::now() + kLongest;
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([this, number, end] {
            std::minstd_rand random(static_cast<unsigned>(number) + 1);
            for (int i = 0; i < kMostRounds && std::chrono::steady_clock::now() < end; ++i) {
                Request(random);
                if (i % 8 == number) Ask(random);
            }
        });
    }
    threads.emplace_back([this, end] {
        while (std::chrono::steady_clock::now() < end) {
            Load();
            Advance(5);
        }
    });
    for (std::thread& thread : threads) thread.join();

    // Every breakthrough ends by itself: a thermal request then reaches its node.
    Adapter().SetDebug(false);
    for (const int type : {0, 6}) Limit(kTemp, {{57, type}});
    Do(*mTimed);  // those of the threads may all have been disarmed by their control types
    Advance(60);  // the longest breakthrough lasts 40 ms
    lab::WaitForTimerCallbacks();
    for (const int khz : kCeilings[2].khz) {
        Limit(kTemp, {{7, 0}});
        for (const int client : {kPower, kEapa}) Limit(client, {{7, 0}});
        Do(*mScene, kOff);
        Limit(kTemp, {{7, khz}});
        EXPECT_EQ(GetPhone().GetKernel().RequestsOn(kCeilings[2].node)->program, khz);
    }
    EndAll();
    lab::WaitForTimerCallbacks();

    LockHistory history;
    size_t fires = 0;
    for (const lab::Event& event : GetPhone().Events().Events()) {
        history.Observe(event);
        const auto* timer = std::get_if<lab::TimerEvent>(&event.what);
        if (timer != nullptr && timer->kind == lab::TimerEvent::Kind::kFire) ++fires;
    }
    EXPECT_GE(fires, 1u);

    // Nobody asked for any other lock, no two for one event or tag, and none is given back twice.
    const std::set<int> asked = {kEventOpcode, kRegularOpcode, kCommonOpcode, kTimedOpcode,
                                 kGroupOpcode, 0x40804100,     0x40804000,    0x40804200};
    for (const auto& [opcode, most] : history.most) {
        EXPECT_EQ(asked.count(opcode), 1u) << std::hex << opcode;
        if (opcode != kTimedOpcode) {
            EXPECT_EQ(most, 1u) << std::hex << opcode;
        }
    }
    EXPECT_THAT(history.most, SizeIs(asked.size())) << "something was never reached";
    for (const auto& [handle, times] : history.releases) EXPECT_EQ(times, 1) << handle;

    // The common lock alone has no end of its own.
    const std::vector<lab::PerfHal::Lock> held = GetPhone().Hal().Held();
    ASSERT_THAT(held, SizeIs(1));
    EXPECT_EQ(held[0].list[0], kCommonOpcode);
    for (size_t i = 0; i < kCeilings.size(); ++i) {
        EXPECT_EQ(Node(kCeilings[i].node), mBootKhz[i]) << kCeilings[i].node;
    }
}

TEST_F(StressTest, AdapterMayGoWhileItsTimerIsAboutToFire) {
    std::minstd_rand random(7);
    auto* plat = Member<TarQuelPlat* (*)()>("GetPlat")();
    for (int round = 0; round < 40; ++round) {
        Limit(kTemp, {{57, 6}});
        const auto action = MakeAction(4353, 1, {kTimedOpcode, 1}, 4);
        Do(*action);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 1500));
        plat->~TarQuelPlat();
        plat = Member<TarQuelPlat* (*)()>("GetPlat")();
        Advance(1);
        Initialize();
    }
    lab::WaitForTimerCallbacks();
    // Between the end of one adapter and the beginning of the next nothing is written.
    bool isGone = false;
    std::vector<std::string> late;
    size_t fires = 0;
    for (const lab::Event& event : GetPhone().Events().Events()) {
        using Kind = lab::TimerEvent::Kind;
        if (const auto* timer = std::get_if<lab::TimerEvent>(&event.what)) {
            if (timer->kind == Kind::kDelete) isGone = true;
            if (timer->kind == Kind::kCreate) isGone = false;
            if (timer->kind == Kind::kFire) ++fires;
        }
        const auto* access = std::get_if<lab::NodeAccess>(&event.what);
        const bool isWrite = access != nullptr && access->kind == lab::NodeAccess::Kind::kWrite;
        if (isGone && isWrite && !access->byHal) late.push_back(access->path);
    }
    EXPECT_THAT(late, IsEmpty());
    EXPECT_GE(fires, 1u);
}

}  // namespace
