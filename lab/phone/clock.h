// The phone's time: virtual, so that a day of requests replays in seconds and every run gives the
// same result, or the machine's own.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace lab {

// Time since the phone started.
using Time = std::chrono::nanoseconds;

class Clock {
  public:
    using Id = uint64_t;

    virtual ~Clock() = default;

    virtual Time Now() const = 0;

    // Runs `fire` once when the clock reaches `when` (at once when that is past). Callbacks due at
    // one time run in the order in which they were scheduled; none runs inside Schedule.
    virtual Id Schedule(Time when, std::function<void()> fire) = 0;

    // Forgets a callback that has not run yet. Returns false when it already ran or never was.
    virtual bool Cancel(Id id) = 0;

    // Lets time pass until `when`, running what falls due on the way.
    virtual void AdvanceTo(Time when) = 0;

    // When the next callback is due; nothing where none is, and on the machine's own time.
    virtual std::optional<Time> NextDue() const { return std::nullopt; }

    virtual bool IsVirtual() const = 0;

    // Forgets every callback; when this returns, none runs any more. Not from within a callback.
    virtual void Stop() = 0;
};

std::unique_ptr<Clock> MakeVirtualClock();
std::unique_ptr<Clock> MakeRealClock();

}  // namespace lab
