#include "bench/requests.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <span>

#include "tarquel/on_demand_boost_server.h"

namespace bench {

namespace {

constexpr int kBoostCmd = 4353;
constexpr int kFirstSceneCmd = 12288;
constexpr int kSceneCmds = 1281;  // 12288 to 13568

constexpr int kPower = 1;
constexpr int kThermal = 2;

// Control types (tag 57): the performance policy owns the limits, or thermal level 2 does.
constexpr int kTagControlType = 57;
constexpr int kPerformanceMode = 0;
constexpr int kThermalLevel2 = 6;

constexpr std::array<int, 4> kCeilingTags{1, 4, 7, 10};
constexpr std::array<int, 4> kCeilings{1500000, 1600000, 1700000, 150000000};

constexpr std::array<const char*, 4> kCeilingNodes{
    "/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq",
    "/sys/devices/system/cpu/cpu4/cpufreq/scaling_max_freq",
    "/sys/devices/system/cpu/cpu7/cpufreq/scaling_max_freq",
    "/sys/class/kgsl/kgsl-3d0/devfreq/max_freq",
};

void WriteNode(const char* path, const char* text) {
    const int fd = open(path, O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (fd < 0 || write(fd, text, std::strlen(text)) < 0) std::abort();
    close(fd);
}

void ReadNode(const char* path) {
    std::array<char, 64> text;
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0 || read(fd, text.data(), text.size()) < 1) std::abort();
    close(fd);
}

// The calls of the HAL as the plug-in must make them: one at a time.
class BareHal {
  public:
    explicit BareHal(const QuietPhone& phone) : mPhone(phone) {}

    int Acquire(int durationMs, std::span<int> list) {
        std::lock_guard lock(mMutex);
        return mPhone.acquire(0, durationMs, list.data(), static_cast<int>(list.size()));
    }
    int Release(int handle) {
        std::lock_guard lock(mMutex);
        return mPhone.release(handle);
    }
    int AskAndAcquire(int cmdId, int durationMs, std::span<int> list) {
        OnDemandBoostServer::getInstance().GetDuration(cmdId, durationMs, nullptr);
        return Acquire(durationMs, list);
    }

  private:
    const QuietPhone& mPhone;
    std::mutex mMutex;
};

class Catalogue {
  public:
    Catalogue(Plugin& plugin, const QuietPhone& phone)
        : mPlugin(plugin), mHal(std::make_shared<BareHal>(phone)) {}

    std::vector<Request> Make() {
        for (const bool debug : {false, true}) AddActions(debug);
        for (const bool thermal : {false, true}) AddLimits(thermal);
        AddThermalClient();
        AddGroup();
        for (const int seen : {1, 100, kSceneCmds}) AddScene(seen, false);
        for (const int live : {100, kSceneCmds}) AddScene(live, true);
        AddQuery();
        return std::move(mRequests);
    }

  private:
    // A list of `pairs` opcodes and values.
    static std::vector<int> Pairs(int pairs) {
        std::vector<int> list;
        for (int i = 0; i < pairs; ++i) list.insert(list.end(), {0x40800000 + (i << 14), 1500 + i});
        return list;
    }

    Request& Add(std::string name, Target target, std::function<void()> run,
                 std::function<void()> floor) {
        mRequests.push_back(
            {std::move(name), target, [] {}, std::move(run), [] {}, std::move(floor), false});
        return mRequests.back();
    }

    void SetDebug(Request& request) {
        request.enter = [&plugin = mPlugin] { plugin.Adapter().SetDebug(true); };
        request.leave = [&plugin = mPlugin] { plugin.Adapter().SetDebug(false); };
    }

    void AddActions(bool debug) {
        const std::string suffix = debug ? "_debug" : "";
        for (const int pairs : {1, 8, 32}) {
            const std::string name =
                "BM_Platform_DoAction/" + std::to_string(pairs) + "_pairs" + suffix;
            const bool isJudged = pairs == 8 && !debug;
            Request& request = AddAction(name, {0, isJudged ? 100.0 : 0}, pairs, 1);
            if (debug) SetDebug(request);
            request.isThreaded = isJudged;
        }
        Request& chain = AddAction("BM_Platform_DoAction/chain_of_4" + suffix, {}, 8, 4);
        if (debug) SetDebug(chain);

        const std::shared_ptr<Action> action(mPlugin.MakeAction(kBoostCmd, 100, Pairs(8)));
        const auto run = [&plugin = mPlugin, action] {
            constexpr int kOn = 0;
            constexpr int kOff = -1;
            plugin.Adapter().DoAction(*action, 1, &kOn);
            plugin.Adapter().DoAction(*action, 1, &kOff);
        };
        const auto floor = [hal = mHal, list = Pairs(8)]() mutable {
            hal->Release(hal->AskAndAcquire(kBoostCmd, 100, list));
        };
        Request& event = Add("BM_Platform_DoAction/event_on_off" + suffix, {}, run, floor);
        if (debug) SetDebug(event);
    }

    Request& AddAction(const std::string& name, Target target, int pairs, int actions) {
        ActionChain chain;
        for (int i = 0; i < actions; ++i) {
            ActionChain action = mPlugin.MakeAction(kBoostCmd, 100, Pairs(pairs));
            action->next = chain.release();
            chain = std::move(action);
        }
        const auto run = [&plugin = mPlugin, first = std::shared_ptr<Action>(std::move(chain))] {
            plugin.Adapter().DoAction(*first, 0, nullptr);
        };
        const auto floor = [hal = mHal, list = Pairs(pairs), actions]() mutable {
            for (int i = 0; i < actions; ++i) hal->AskAndAcquire(kBoostCmd, 100, list);
        };
        return Add(name, target, run, floor);
    }

    // Lifts what the client asked for, so that no request meets what another left behind.
    void EnterAndLift(Request& request, int clientId, int controlType) {
        const auto setControlType = [&plugin = mPlugin](int type) {
            plugin.Adapter().DoPerfSetConfig(kPower, 1, &kTagControlType, &type);
        };
        request.enter = [setControlType, controlType] { setControlType(controlType); };
        request.leave = [&plugin = mPlugin, setControlType, clientId] {
            constexpr std::array<int, kCeilingTags.size()> kNone{};
            plugin.Adapter().DoPerfSetConfig(clientId, static_cast<int>(kNone.size()),
                                             kCeilingTags.data(), kNone.data());
            setControlType(kPerformanceMode);
        };
    }

    // What a limit on `count` ceilings costs at least: each lock replaced, each node written.
    std::function<void()> LimitFloor(int count, bool writesNodes) {
        return [hal = mHal, count, writesNodes] {
            std::array<int, 2> pair{0x40804100, 1500};
            for (int i = 0; i < count; ++i) {
                if (writesNodes) WriteNode(kCeilingNodes[static_cast<size_t>(i)], "1500000");
                hal->Release(1);
                hal->Acquire(0, pair);
            }
        };
    }

    std::function<void()> Limit(int clientId, int count) {
        return [&plugin = mPlugin, clientId, count] {
            plugin.Adapter().DoPerfSetConfig(clientId, count, kCeilingTags.data(),
                                             kCeilings.data());
        };
    }

    void AddLimits(bool thermal) {
        for (const int count : {1, 4}) {
            const std::string name = "BM_Config_DoPerfSetConfig/" + std::to_string(count) +
                                     (count == 1 ? "_tag" : "_tags") +
                                     (thermal ? "_and_nodes" : "_locks_only");
            Request& request = Add(name, {thermal ? 1.15 : 0, 0}, Limit(kPower, count),
                                   LimitFloor(count, thermal));
            EnterAndLift(request, kPower, thermal ? kThermalLevel2 : kPerformanceMode);
        }
    }

    // The thermal client's own limits, derived anew and written back.
    void AddThermalClient() {
        EnterAndLift(Add("BM_Config_DoPerfSetConfig/4_tags_thermal_client", {1.15, 0},
                         Limit(kThermal, 4), LimitFloor(4, true)),
                     kThermal, kThermalLevel2);
    }

    void AddGroup() {
        constexpr int kTags = 16;
        std::vector<int> tags{98};
        std::vector<int> values{1000};
        for (int tag = 81; tags.size() <= kTags; ++tag) {
            if (tag == 86) continue;
            tags.push_back(tag);
            values.push_back(tag);
        }
        const auto run = [&plugin = mPlugin, tags, values] {
            plugin.Adapter().DoPerfSetConfig(kPower, static_cast<int>(tags.size()), tags.data(),
                                             values.data());
        };
        const auto floor = [hal = mHal, list = Pairs(kTags)]() mutable {
            hal->Release(1);
            hal->Acquire(1000, list);
        };
        Add("BM_Config_DoGroupPerfSetConfig/16_tags", {}, run, floor);
    }

    // A scene that starts and ends: a floor and a ceiling of the last cluster, of which the end
    // writes the ceiling's default to its node. `others` scenes, this one among them, came before
    // and ended, or are live.
    void AddScene(int others, bool areLive) {
        const std::vector<int> list{6, 700000, 7, 1800000};
        const std::shared_ptr<Action> scene(mPlugin.MakeAction(kFirstSceneCmd, 0, list));
        const auto send = [&plugin = mPlugin, scene](int cmdId, int event) {
            scene->cmdId = cmdId;
            plugin.Adapter().DoAction(*scene, 1, &event);
        };
        const auto run = [send] {
            send(kFirstSceneCmd, 0);
            send(kFirstSceneCmd, -1);
        };
        const auto floor = [hal = mHal, areLive] {
            std::array<int, 2> pair{0x40800200, 700};
            for (int i = 0; i < 2; ++i) {
                hal->Release(1);
                hal->Acquire(0, pair);
            }
            hal->Acquire(0, pair);
            hal->Release(1);
            if (areLive) {
                hal->Acquire(0, pair);
                hal->Release(1);
            } else {
                WriteNode(kCeilingNodes[2], "2000000");
            }
        };
        Request& request = Add("BM_Freq_DoPerfEventConfig/start_end_" + std::to_string(others) +
                                   (areLive ? "_live" : "_seen"),
                               {}, run, floor);
        const auto sendToOthers = [send, others](int event) {
            for (int i = 0; i < others; ++i) send(kFirstSceneCmd + i, event);
        };
        request.enter = [sendToOthers, areLive] {
            sendToOthers(0);
            if (!areLive) sendToOthers(-1);
        };
        request.leave = [sendToOthers] { sendToOthers(-1); };
    }

    void AddQuery() {
        const auto run = [&plugin = mPlugin] {
            constexpr std::array<int, 8> kTags{0, 1, 2, 3, 4, 6, 7, 10};
            std::array<int, 8> values;
            plugin.Adapter().DoPerfGetConfig(static_cast<int>(kTags.size()), kTags.data(),
                                             values.data());
        };
        const auto floor = [] {
            ReadNode("/sys/devices/system/cpu/cpu0/cpufreq/scaling_min_freq");
            ReadNode("/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq");
            ReadNode("/sys/devices/system/cpu/cpu0/cpufreq/scaling_cur_freq");
            ReadNode("/sys/devices/system/cpu/cpu4/cpufreq/scaling_min_freq");
            ReadNode("/sys/devices/system/cpu/cpu4/cpufreq/scaling_max_freq");
            ReadNode("/sys/devices/system/cpu/cpu7/cpufreq/scaling_min_freq");
            ReadNode("/sys/devices/system/cpu/cpu7/cpufreq/scaling_max_freq");
            ReadNode("/sys/class/kgsl/kgsl-3d0/devfreq/max_freq");
        };
        Add("BM_Config_DoPerfGetConfig/8_tags", {1.15, 0}, run, floor);
    }

    Plugin& mPlugin;
    std::shared_ptr<BareHal> mHal;
    std::vector<Request> mRequests;
};

}  // namespace

std::vector<Request> MakeRequests(Plugin& plugin, const QuietPhone& phone) {
    return Catalogue(plugin, phone).Make();
}

void ReadDefaultNodes() {
    for (const char* const path : {
             "/sys/devices/system/cpu/cpu7/cpufreq/cpuinfo_max_freq",
             "/sys/devices/system/cpu/cpu7/cpufreq/scaling_min_freq",
             "/sys/devices/system/cpu/cpu7/cpufreq/scaling_min_freq",
             "/sys/devices/system/cpu/cpu7/cpufreq/scaling_max_freq",
             "/sys/devices/system/cpu/cpu4/cpufreq/cpuinfo_max_freq",
             "/sys/devices/system/cpu/cpu4/cpufreq/scaling_min_freq",
             "/sys/devices/system/cpu/cpu4/cpufreq/scaling_min_freq",
             "/sys/devices/system/cpu/cpu4/cpufreq/scaling_max_freq",
             "/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq",
             "/sys/devices/system/cpu/cpu0/cpufreq/scaling_min_freq",
             "/sys/devices/system/cpu/cpu0/cpufreq/scaling_min_freq",
             "/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq",
             "/sys/class/kgsl/kgsl-3d0/max_gpuclk",
             "/sys/class/kgsl/kgsl-3d0/devfreq/max_freq",
             "/sys/class/kgsl/kgsl-3d0/min_clock_mhz",
             "/sys/class/kgsl/kgsl-3d0/devfreq/min_freq",
         }) {
        ReadNode(path);
    }
}

}  // namespace bench
