// The phone's time: virtual, so that a day of requests replays in seconds and every run gives the
// same result, or the machine's own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace lab {

// Time since the phone started.
using Time = std::chrono::nanoseconds;

class Clock {
  public:
    // When a callback is due, and its number among all that were scheduled.
    using Id = std::pair<Time, uint64_t>;

    virtual ~Clock() = default;

    virtual Time Now() const = 0;

    // Runs `fire` once when the clock reaches `when` (at once when that is past). Callbacks due at
    // one time run in the order in which they were scheduled; none runs inside Schedule.
    Id Schedule(Time when, std::function<void()> fire);

    // Forgets a callback that has not run yet. Returns false when it already ran or never was.
    bool Cancel(const Id& id);

    // Lets time pass until `when`, running what falls due on the way.
    virtual void AdvanceTo(Time when) = 0;

    // When the next callback is due; nothing where none is, and on the machine's own time.
    virtual std::optional<Time> NextDue() const { return std::nullopt; }

    virtual bool IsVirtual() const = 0;

    // Forgets every callback; when this returns, none runs any more. Not from within a callback.
    virtual void Stop();

  protected:
    // When the first callback is due, and running it without the mutex that `lock` holds; there
    // must be one.
    Time FirstDue() const { return mAgenda.begin()->first.first; }
    void FireFirst(std::unique_lock<std::mutex>& lock);

    mutable std::mutex mMutex;  // guards what follows
    std::map<Id, std::function<void()>> mAgenda;
    std::condition_variable mChanged;  // told when there is another callback

  private:
    uint64_t mScheduled = 0;
};

std::unique_ptr<Clock> MakeVirtualClock();
std::unique_ptr<Clock> MakeRealClock();

}  // namespace lab
