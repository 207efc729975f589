// POSIX timers that run on the phone's clock.
#pragma once

#include <csignal>
#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>

#include "lab/phone/clock.h"

namespace lab {

class Recorder;

// Every operation answers as its POSIX namesake: 0, or -1 with errno. Notification is by thread
// (SIGEV_THREAD: a fresh thread, which has ended before the clock goes on) or none at all, and
// times are relative; anything else is EINVAL. Any thread may call; callbacks run without a lock.
class PosixTimers {
  public:
    PosixTimers(Clock& clock, Recorder& recorder) : mClock(clock), mRecorder(recorder) {}

    // True for an id that any PosixTimers ever gave out.
    static bool IsOurs(timer_t id);

    int Create(clockid_t clock, const sigevent* notification, timer_t* id);
    int Set(timer_t id, int flags, const itimerspec* value, itimerspec* former);
    int Get(timer_t id, itimerspec* remaining);
    int Delete(timer_t id);

  private:
    struct Timer {
        sigevent notification{};
        std::optional<Clock::Id> expiry;  // none: disarmed
        Time interval{};
    };

    Timer* Find(timer_t id);
    void Arm(timer_t id, Timer& timer, Time when);
    void Fire(timer_t id);
    itimerspec Remaining(const Timer& timer) const;

    Clock& mClock;
    Recorder& mRecorder;
    std::mutex mMutex;
    std::map<timer_t, Timer> mTimers;
};

// For TimerEvent: the time in ms, part of a ms counting as one.
int64_t ToMs(const timespec& time);

}  // namespace lab
