// timer_create and its kin, as the plug-in finds them: with a phone on a virtual clock its timers
// run on that clock; else they are the machine's, and a phone on the real clock records them.
#include <csignal>
#include <ctime>

#include "lab/phone/events.h"
#include "lab/phone/phone.h"
#include "lab/phone/posix_timers.h"
#include "lab/phone/real_function.h"
#include "lab/phone/real_timers.h"

namespace {

using lab::Fail;
using lab::Phone;
using lab::PosixTimers;
using lab::TimerEvent;

void Record(TimerEvent::Kind kind, int64_t ms = 0, clockid_t clock = 0) {
    if (Phone* const phone = Phone::Current()) phone->Events().Add(TimerEvent{kind, ms, clock});
}

// Null without a phone or on the real clock: ids of virtual timers are stale then.
PosixTimers* VirtualTimers() {
    Phone* const phone = Phone::Current();
    return phone == nullptr ? nullptr : phone->VirtualTimers();
}

}  // namespace

extern "C" {

int timer_create(clockid_t clock, sigevent* notification, timer_t* id) noexcept {
    static const auto real = lab::RealFunction<decltype(timer_create)>("timer_create");
    Phone* const phone = Phone::Current();
    if (phone == nullptr) return real(clock, notification, id);
    if (phone->GetFaults().TimerFailsToCreate()) return Fail(EAGAIN);
    if (PosixTimers* const timers = phone->VirtualTimers())
        return timers->Create(clock, notification, id);
    const bool isThread = notification != nullptr && notification->sigev_notify == SIGEV_THREAD;
    const int result =
        isThread ? lab::CreateRealTimer(clock, *notification, id) : real(clock, notification, id);
    if (result == 0) Record(TimerEvent::Kind::kCreate, 0, clock);
    return result;
}

int timer_settime(timer_t id, int flags, const itimerspec* value, itimerspec* former) noexcept {
    static const auto real = lab::RealFunction<decltype(timer_settime)>("timer_settime");
    Phone* const phone = Phone::Current();
    if (phone != nullptr && phone->GetFaults().TimerFailsToSet()) return Fail(EINVAL);
    if (PosixTimers::IsOurs(id)) {
        PosixTimers* const timers = VirtualTimers();
        return timers == nullptr ? Fail(EINVAL) : timers->Set(id, flags, value, former);
    }
    const int result = real(id, flags, value, former);
    if (result == 0) {
        const int64_t ms = lab::ToMs(value->it_value);
        Record(ms == 0 ? TimerEvent::Kind::kDisarm : TimerEvent::Kind::kArm, ms);
    }
    return result;
}

int timer_gettime(timer_t id, itimerspec* remaining) noexcept {
    static const auto real = lab::RealFunction<decltype(timer_gettime)>("timer_gettime");
    if (!PosixTimers::IsOurs(id)) return real(id, remaining);
    PosixTimers* const timers = VirtualTimers();
    return timers == nullptr ? Fail(EINVAL) : timers->Get(id, remaining);
}

int timer_delete(timer_t id) noexcept {
    static const auto real = lab::RealFunction<decltype(timer_delete)>("timer_delete");
    if (PosixTimers::IsOurs(id)) {
        PosixTimers* const timers = VirtualTimers();
        return timers == nullptr ? Fail(EINVAL) : timers->Delete(id);
    }
    const int result = real(id);
    if (result == 0) Record(TimerEvent::Kind::kDelete);
    return result;
}

}  // extern "C"
