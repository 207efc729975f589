// The platform that the plug-in finds: files, properties, log, timers, the HAL library; the clock
// and the reading of device profiles.
#include "lab/phone/phone.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "lab/yaml/yaml_tree.h"
#include "tarquel/jank_log.h"
#include "tarquel/on_demand_boost_server.h"
#include "tarquel/properties.h"
#include "tarquel/securec.h"

extern "C" {
int __android_log_print(int priority, const char* tag, const char* format, ...);
uint64_t atrace_get_enabled_tags();
}

namespace lab {
namespace {

using std::chrono::milliseconds;

const std::string kMaxFreq = "/sys/devices/system/cpu/cpu6/cpufreq/scaling_max_freq";
const std::string kWaltPl = "/sys/devices/system/cpu/cpu6/cpufreq/walt/pl";
const std::string kCpuinfo = "/sys/devices/system/cpu/cpu6/cpufreq/cpuinfo_max_freq";
constexpr const char* kHal = "libqti-perfd-client.so";

class PhoneTest : public ::testing::Test {
  protected:
    Phone mPhone{LoadDeviceProfile("sm4450")};
};

TEST_F(PhoneTest, StreamsReachTheKernelWhenTheyAreFlushed) {
    FILE* stream = fopen(kMaxFreq.c_str(), "w");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fprintf(stream, "%d", 1344000), 7);
    EXPECT_EQ(mPhone.GetKernel().Value(kMaxFreq), "2208000");
    EXPECT_EQ(fclose(stream), 0);
    stream = fopen(kMaxFreq.c_str(), "r");
    ASSERT_NE(stream, nullptr);
    int value = 0;
    EXPECT_EQ(fscanf_s(stream, "%d", &value), 1);
    fclose(stream);
    EXPECT_EQ(value, 1344000);

    // A refusal shows when the text arrives, as on a phone.
    stream = fopen(kWaltPl.c_str(), "w");
    ASSERT_NE(stream, nullptr);
    EXPECT_GT(fprintf(stream, "%d", 2), 0);
    EXPECT_EQ(fclose(stream), EOF);
    EXPECT_EQ(errno, EINVAL);

    const auto accesses = mPhone.Events().All<NodeAccess>();
    ASSERT_EQ(accesses.size(), 3u);
    EXPECT_EQ(accesses[0].after, "1344000");
    EXPECT_EQ(accesses[1].kind, NodeAccess::Kind::kRead);
    EXPECT_EQ(accesses[1].before, "1344000");
    EXPECT_EQ(accesses[2].error, EINVAL);
}

TEST_F(PhoneTest, DescriptorsReachTheKernelAtOnce) {
    const int fd = open(kMaxFreq.c_str(), O_WRONLY | O_TRUNC);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(write(fd, "1344000", 7), 7);
    EXPECT_EQ(mPhone.GetKernel().Value(kMaxFreq), "1344000");
    EXPECT_EQ(write(fd, "fast", 4), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(close(fd), 0);
    // The number is an ordinary file's again.
    const int other = open("/dev/null", O_WRONLY);
    EXPECT_EQ(write(other, "fast", 4), 4);
    close(other);
}

// The kernel passes over where a text is written in sysfs, and over a text behind the beginning in
// /proc/sys.
TEST_F(PhoneTest, SecondWriteOnADescriptorCountsWhereTheKernelCountsIt) {
    const std::string ticks = "/proc/sys/walt/sched_ravg_window_nr_ticks";
    const int node = open(kMaxFreq.c_str(), O_WRONLY);
    EXPECT_EQ(write(node, "1344000", 7), 7);
    EXPECT_EQ(write(node, "1190400", 7), 7);
    EXPECT_EQ(mPhone.GetKernel().Value(kMaxFreq), "1190400");
    EXPECT_EQ(pwrite(node, "960000", 6, 3), 6);
    EXPECT_EQ(mPhone.GetKernel().Value(kMaxFreq), "960000");
    EXPECT_EQ(pwrite(node, "960000", 6, -1), -1);
    EXPECT_EQ(errno, EINVAL);
    close(node);
    const int sysctl = open(ticks.c_str(), O_WRONLY);
    EXPECT_EQ(write(sysctl, "5 8", 3), 2) << "up to what it has no place for";
    EXPECT_EQ(write(sysctl, "8", 1), 1);
    EXPECT_EQ(mPhone.GetKernel().Value(ticks), "5");
    EXPECT_EQ(pwrite64(sysctl, "8", 1, 0), 1);
    EXPECT_EQ(mPhone.GetKernel().Value(ticks), "8");
    close(sysctl);
}

TEST_F(PhoneTest, NodesAreNotCreated) {
    const struct {
        std::string path;
        int flags;
        int error;
    } cases[] = {
        {kMaxFreq + "2", O_WRONLY, ENOENT},
        {kMaxFreq + "2", O_WRONLY | O_CREAT, EACCES},  // sysfs has nothing that would create it
        {"/sys/devices/system/cpu/cpu9/cpufreq/scaling_max_freq", O_WRONLY | O_CREAT, ENOENT},
        {"/proc/sys/walt/none", O_WRONLY | O_CREAT, ENOENT},
        {kMaxFreq, O_WRONLY | O_CREAT | O_EXCL, EEXIST},
        {kCpuinfo, O_WRONLY | O_CREAT, EACCES},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(open(c.path.c_str(), c.flags, 0666), -1) << c.path;
        EXPECT_EQ(errno, c.error) << c.path;
    }
    EXPECT_EQ(fopen((kMaxFreq + "2").c_str(), "w"), nullptr);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(mPhone.Events().All<NodeAccess>().size(), 7u);
}

TEST_F(PhoneTest, RefusedOpeningsAreRecorded) {
    EXPECT_EQ(fopen(kCpuinfo.c_str(), "w"), nullptr);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(open(kCpuinfo.c_str(), O_RDWR), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(fopen("/proc/sys/walt/none", "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);

    const auto accesses = mPhone.Events().All<NodeAccess>();
    ASSERT_EQ(accesses.size(), 3u);
    EXPECT_EQ(accesses[0].error, EACCES);
    EXPECT_EQ(accesses[2].error, ENOENT);
}

TEST_F(PhoneTest, PlatformAnswersFromThePhone) {
    char value[tarquel::kPropertyValueMax];
    EXPECT_EQ(property_get("ro.vendor.extension_library", value, ""), 22);
    EXPECT_STREQ(value, kHal);
    EXPECT_EQ(property_get("ro.logsystem.usertype", value, "none"), 4);
    mPhone.SetProperty("long", std::string(200, 'x'));
    EXPECT_EQ(property_get("long", value, ""), 91);
    EXPECT_EQ(atrace_get_enabled_tags(), 1u);
    mPhone.SetTraceEnabled(false);
    EXPECT_EQ(atrace_get_enabled_tags(), 0u);
    mPhone.SetOnDemandDuration(4100, 250);
    EXPECT_EQ(OnDemandBoostServer::getInstance().GetDuration(4100, 80, nullptr), 250);
    EXPECT_EQ(OnDemandBoostServer::getInstance().GetDuration(4101, 80, nullptr), 0);

    __android_log_print(4, nullptr, "a %d\n", 1);
    __zqlog_jank_print(3, 361, "#EB:%d", 1);
    const auto lines = mPhone.Events().All<LogLine>();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].priority, 4);
    EXPECT_FALSE(lines[0].tag.has_value());
    EXPECT_EQ(lines[0].text, "a 1\n");
    EXPECT_EQ(mPhone.Events().All<JankRecord>().at(0).text, "#EB:1");
}

TEST(BoundedFormatting, ReportsTruncationAsFailure) {
    char text[8];
    EXPECT_EQ(snprintf_s(text, sizeof(text), 7, "%s", "1234567"), 7);
    EXPECT_EQ(snprintf_s(text, sizeof(text), 7, "%s", "12345678"), -1);
    EXPECT_EQ(snprintf_s(text, sizeof(text), 3, "%s", "1234"), -1);
    EXPECT_STREQ(text, "123");
    EXPECT_EQ(snprintf_s(text, 0, 0, "%s", ""), -1);
    EXPECT_NE(memset_s(text, sizeof(text), 0, sizeof(text) + 1), 0);
}

TEST(HalLibrary, IsFoundByItsNameWhileAPhoneHasIt) {
    {
        Phone phone(LoadDeviceProfile("sm4450"));
        void* const library = dlopen(kHal, RTLD_NOW);
        ASSERT_NE(library, nullptr) << dlerror();
        using Acquire = int(int, int, int*, int);
        auto* const acquire = reinterpret_cast<Acquire*>(dlsym(library, "perf_lock_acq"));
        auto* const release = reinterpret_cast<int (*)(int)>(dlsym(library, "perf_lock_rel"));
        ASSERT_NE(acquire, nullptr);
        ASSERT_NE(release, nullptr);
        int list[] = {0x40804000, 1344};
        EXPECT_EQ(acquire(0, 0, list, 2), 1);
        EXPECT_EQ(phone.GetKernel().Value(kMaxFreq), "1344000");
        EXPECT_EQ(release(1), 0);
        EXPECT_EQ(phone.GetKernel().Value(kMaxFreq), "2208000");
        dlclose(library);
    }
    Phone::Options options;
    options.hal = false;
    Phone phone(LoadDeviceProfile("sm4450"), options);
    EXPECT_EQ(dlopen(kHal, RTLD_NOW | RTLD_NOLOAD), nullptr) << "unloaded with its phone";
}

// A timer as the plug-in makes it; counts its firings.
class Alarm {
  public:
    Alarm() {
        sigevent notification{};
        notification.sigev_notify = SIGEV_THREAD;
        notification.sigev_notify_function = [](sigval value) {
            ++static_cast<Alarm*>(value.sival_ptr)->rings;
        };
        notification.sigev_value.sival_ptr = this;
        EXPECT_EQ(timer_create(CLOCK_MONOTONIC, &notification, &mId), 0);
    }

    int Set(int ms) {
        itimerspec value{};
        value.it_value = {ms / 1000, ms % 1000 * 1'000'000};
        return timer_settime(mId, 0, &value, nullptr);
    }

    int64_t RemainingMs() {
        itimerspec value{};
        EXPECT_EQ(timer_gettime(mId, &value), 0);
        return int64_t{value.it_value.tv_sec} * 1000 + value.it_value.tv_nsec / 1'000'000;
    }

    int Delete() { return timer_delete(mId); }

    void Wait() const {
        while (rings == 0) std::this_thread::yield();
    }

    std::atomic<int> rings{0};

  private:
    timer_t mId{};
};

std::vector<TimerEvent::Kind> TimerKinds(Phone& phone) {
    std::vector<TimerEvent::Kind> kinds;
    for (const TimerEvent& event : phone.Events().All<TimerEvent>()) kinds.push_back(event.kind);
    return kinds;
}

TEST_F(PhoneTest, TimersRunOnTheVirtualClock) {
    using Kind = TimerEvent::Kind;
    Clock& clock = mPhone.GetClock();
    Alarm alarm;
    EXPECT_EQ(alarm.RemainingMs(), 0);
    EXPECT_EQ(alarm.Set(3000), 0);
    clock.AdvanceTo(milliseconds(500));
    EXPECT_EQ(alarm.RemainingMs(), 2500);
    EXPECT_EQ(alarm.Set(1000), 0);  // replaces the first
    clock.AdvanceTo(milliseconds(1499));
    EXPECT_EQ(alarm.rings, 0);
    clock.AdvanceTo(milliseconds(5000));
    EXPECT_EQ(alarm.rings, 1);
    EXPECT_EQ(alarm.Set(1000), 0);
    EXPECT_EQ(alarm.Set(0), 0);
    clock.AdvanceTo(milliseconds(9000));
    EXPECT_EQ(alarm.rings, 1) << "disarmed";
    EXPECT_EQ(alarm.Delete(), 0);
    EXPECT_EQ(alarm.Delete(), -1);
    EXPECT_EQ(errno, EINVAL);

    EXPECT_EQ(TimerKinds(mPhone),
              (std::vector<Kind>{Kind::kCreate, Kind::kArm, Kind::kArm, Kind::kFire, Kind::kArm,
                                 Kind::kDisarm, Kind::kDelete}));
    EXPECT_EQ(mPhone.Events().All<TimerEvent>().at(1).ms, 3000);
}

Phone::Options Realtime() {
    Phone::Options options;
    options.realtime = true;
    return options;
}

TEST(RealtimePhone, UsesTheMachinesTimers) {
    using Kind = TimerEvent::Kind;
    Phone phone(LoadDeviceProfile("sm4450"), Realtime());
    Alarm alarm;
    EXPECT_EQ(alarm.Set(1), 0);
    alarm.Wait();
    EXPECT_EQ(alarm.Delete(), 0);

    EXPECT_EQ(TimerKinds(phone),
              (std::vector<Kind>{Kind::kCreate, Kind::kArm, Kind::kFire, Kind::kDelete}));
}

TEST(RealtimePhone, LocksExpireByTheMachinesClock) {
    Phone phone(LoadDeviceProfile("sm4450"), Realtime());
    const std::vector<int> list = {0x40804000, 1344};
    phone.Hal().Acquire(0, 1, list.data(), 2);
    std::promise<void> later;
    phone.GetClock().Schedule(phone.GetClock().Now() + milliseconds(2),
                              [&later] { later.set_value(); });
    later.get_future().wait();

    EXPECT_TRUE(phone.Hal().Held().empty());
    EXPECT_EQ(phone.GetKernel().Value(kMaxFreq), "2208000");
}

TEST(VirtualClock, RunsWhatFallsDueInOrder) {
    const std::unique_ptr<Clock> clock = MakeVirtualClock();
    std::string order;
    const auto note = [&](char c) { return [&order, c] { order += c; }; };
    clock->Schedule(milliseconds(20), note('c'));
    clock->Schedule(milliseconds(10), note('a'));
    clock->Schedule(milliseconds(10), [&] {
        order += 'b';
        EXPECT_EQ(clock->Now(), milliseconds(10));
        clock->Schedule(milliseconds(5), note('x'));  // past: at once, but not inside Schedule
        EXPECT_EQ(order, "ab");
    });
    const Clock::Id cancelled = clock->Schedule(milliseconds(15), note('!'));
    EXPECT_TRUE(clock->Cancel(cancelled));
    EXPECT_FALSE(clock->Cancel(cancelled));

    clock->AdvanceTo(milliseconds(30));

    EXPECT_EQ(order, "abxc");
    EXPECT_EQ(clock->Now(), milliseconds(30));
}

// Requests from several threads while the clock runs: for ThreadSanitizer.
TEST_F(PhoneTest, ThreadsMayCallAtOnce) {
    const auto work = [this](int opcode) {
        const std::vector<int> list = {opcode, 1344};
        for (int i = 0; i < 50; ++i) {
            const int handle = mPhone.Hal().Acquire(0, i % 2 * 5, list.data(), 2);
            if (FILE* const stream = fopen(kMaxFreq.c_str(), i % 2 == 0 ? "r" : "w")) {
                if (i % 2 == 1) fprintf(stream, "%d", 1900800);
                fclose(stream);
            }
            mPhone.Hal().Release(handle);
        }
    };
    std::thread first(work, 0x40804000);
    std::thread second(work, 0x40800000);
    for (int ms = 0; ms < 500; ++ms) mPhone.GetClock().AdvanceTo(milliseconds(ms));
    first.join();
    second.join();

    EXPECT_TRUE(mPhone.Hal().Held().empty());
    EXPECT_EQ(mPhone.GetKernel().Value(kMaxFreq), "1900800");
}

// A profile with one mistake: the text that replaces a part of a good one, and where the message
// points.
struct Mistake {
    std::string good;
    std::string bad;
    std::string place;
    std::string message;
};

void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.bad;
}

constexpr const char* kProfile = R"(name: x
clusters:
  - name: little
    cpus: 0-3
    khz: [300, 400]
  - name: big
    cpus: 4-5
    khz: [500, 600]
gpu:
  mhz: [800, 700]
  initial_mhz: 700
)";

class ProfileMistakes : public ::testing::TestWithParam<Mistake> {};

TEST_P(ProfileMistakes, AreNamedWhereTheyStand) {
    const std::string file =
        ::testing::TempDir() + "/profile_mistake_" + std::to_string(getpid()) + ".yaml";
    std::string text = kProfile;
    text.replace(text.find(GetParam().good), GetParam().good.size(), GetParam().bad);
    std::ofstream(file) << text;
    try {
        LoadDeviceProfile(file);
        FAIL() << "no InputError";
    } catch (const InputError& error) {
        const std::string what = error.what();
        EXPECT_TRUE(what.starts_with(file + GetParam().place + ": ")) << what;
        EXPECT_NE(what.find(GetParam().message), std::string::npos) << what;
    }
    std::remove(file.c_str());
}

INSTANTIATE_TEST_SUITE_P(
    DeviceProfile, ProfileMistakes,
    ::testing::Values(Mistake{"cpus: 4-5", "cpus: 3-5", ":7:11", "must begin with CPU 4"},
                      Mistake{"cpus: 4-5", "cpus: 5-4", ":7:11", "from 5 to 63"},
                      Mistake{"[300, 400]", "[400, 300]", ":5:16", "ascending"},
                      Mistake{"[800, 700]", "[700, 800]", ":10:14", "descending"},
                      Mistake{"[500, 600]", "[500, fast]", ":8:16", "not 'fast'"},
                      Mistake{"[500, 600]", "600", ":8:10", "must be a list"},
                      Mistake{"initial_mhz: 700", "initial_mhz: 750", ":11:16",
                              "one of the levels"},
                      Mistake{"name: big", "name: little", ":6:11", "'little' already"},
                      Mistake{"name: little", "name: prime", ":6:11", "'big' follows 'prime'"},
                      Mistake{"name: x", "nam: x", ":1:1", "the fields are: name, "},
                      Mistake{"  initial_mhz: 700\n", "", ":10:3", "'initial_mhz' is missing"},
                      Mistake{"gpu:", "name: y\ngpu:", ":9:1", "a second time"},
                      Mistake{"name: x", "name: &x x", ":1:7", "anchors"},
                      Mistake{"name: x", "name: x\n\tdescription: y", ":2:1", "a tab indents"},
                      Mistake{"name: x", "name: [x", ":2:9",
                              "']' while parsing a flow sequence "
                              "that begins in line 1"},
                      Mistake{"name: x", "name: \xC3\xA4\xE4", ":1:9", "UTF-8"},
                      Mistake{"name: x", "name: " + std::string(600, '['), ":1:506", "too deep"},
                      Mistake{"gpu:", "---\ngpu:", ":9:1", "second document"}));

TEST(DeviceProfile, UnknownNamesAndFilesAreRefused) {
    EXPECT_EQ(DeviceProfileNames(), (std::vector<std::string>{"sm4450", "sm8450"}));
    EXPECT_THROW(LoadDeviceProfile("sm0"), InputError);
    EXPECT_THROW(LoadDeviceProfile("./none.yaml"), InputError);
    EXPECT_THROW(LoadYamlFile("/"), InputError);
}

}  // namespace
}  // namespace lab
