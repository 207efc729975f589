// A phone on the desk: the platform that the plug-in finds around it.
//
// While a Phone is alive, the platform's symbols (log, properties, atrace, bounds-checked C
// functions, POSIX timers, the server's on-demand durations) answer from it, and opening a path
// under /sys, /proc/sys or /dev/cpuctl reaches its kernel instead of the machine's. Only one Phone
// is alive at a time. The symbols are defined by the program that links this room: it must export
// them (CMake's ENABLE_EXPORTS), so that they win over the platform libraries'.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "lab/hal/perf_hal.h"
#include "lab/phone/clock.h"
#include "lab/phone/device_profile.h"
#include "lab/phone/events.h"
#include "lab/phone/faults.h"
#include "lab/phone/kernel.h"

namespace lab {

class PosixTimers;

class Phone {
  public:
    static constexpr char kHalLibrary[] = "libqti-perfd-client.so";

    struct Options {
        bool realtime = false;     // the machine's clock and POSIX timer
        bool hal = true;           // false: the perf-HAL library is not there
        bool traceEnabled = true;  // atrace's tag bit 0
        NodeLayout nodes;          // none: LayOutNodes
    };

    // Boots the phone: lays out the profile's nodes, sets the properties that every phone has
    // ("ro.vendor.extension_library" names the lab's HAL), loads the HAL library, so that the
    // plug-in's dlopen finds it by that name, and starts the clock. Throws std::runtime_error when
    // the library is not where the lab keeps it, and what Kernel throws.
    explicit Phone(const DeviceProfile& profile) : Phone(profile, Options()) {}
    Phone(const DeviceProfile& profile, const Options& options);
    ~Phone();

    Phone(const Phone&) = delete;
    Phone& operator=(const Phone&) = delete;

    // What a program on a phone must not do, and how often the plug-in did it.
    struct Breaches {
        std::atomic<int> inheritableNodes{0};  // nodes that a child process would find open
        std::atomic<int> meetingHalCalls{0};   // calls of the HAL while another was under way
    };
    Breaches& GetBreaches() { return mBreaches; }

    // The phone that is alive, or null.
    static Phone* Current();

    Clock& GetClock() { return *mClock; }
    Recorder& Events() { return mRecorder; }
    Kernel& GetKernel() { return mKernel; }
    PerfHal& Hal() { return mHal; }
    Faults& GetFaults() { return mFaults; }

    // Changes which HAL library a plug-in finds that opens it from now on; one that has opened it
    // keeps what it has. Throws std::runtime_error when the lab's own is not where it belongs.
    void SetHalLibrary(HalLibrary library);

    // The timers that the plug-in gets; null on the real clock, where they are the machine's.
    PosixTimers* VirtualTimers() { return mTimers.get(); }

    void SetProperty(const std::string& name, const std::string& value);
    std::optional<std::string> Property(const std::string& name) const;

    void SetTraceEnabled(bool on) { mTraceEnabled = on; }
    bool IsTraceEnabled() const { return mTraceEnabled; }

    // What OnDemandBoostServer::GetDuration answers for `cmdId`; 0 (the initial state of every
    // command) keeps the configured duration.
    void SetOnDemandDuration(int cmdId, int ms);
    int OnDemandDuration(int cmdId) const;

  private:
    mutable std::mutex mMutex;
    std::unique_ptr<Clock> mClock;
    Recorder mRecorder;
    Kernel mKernel;
    PerfHal mHal;
    Faults mFaults;
    Breaches mBreaches;
    std::unique_ptr<PosixTimers> mTimers;
    void* mHalLibrary = nullptr;
    std::atomic<bool> mTraceEnabled;
    std::map<std::string, std::string> mProperties;
    std::map<int, int> mOnDemandDurations;
};

}  // namespace lab
