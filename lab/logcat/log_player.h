// Plays what a log tells on a phone of the lab, so that the nodes and expiries that the log leaves
// out show too.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "lab/logcat/log_story.h"
#include "lab/phone/phone.h"

namespace lab {

class LogPlayer {
  public:
    // A lock that is held, as the log names it.
    struct Held {
        int handle = 0;
        std::vector<int> list;      // empty: not told
        std::optional<Time> until;  // none: until released
        std::string asker;          // the request that took or last renewed it
        int line = 0;               // of the capture, where that request begins
    };

    // `observe` gets the events in order: those of a run, with the log's handles. `phone` must be
    // on the virtual clock and outlive the player.
    LogPlayer(Phone& phone, std::function<void(const Event&)> observe)
        : mPhone(phone), mObserve(std::move(observe)) {}

    // Plays a request; they come in the order in which they began.
    void Play(const LogRequest& request);

    // Lets time pass until `end`.
    void Finish(Time end) { AdvanceTo(end); }

    std::vector<Held> Locks() const;

    // Nodes that the log writes and the device's profile lacks.
    const std::set<std::string>& MissingNodes() const { return mMissing; }

  private:
    struct Owner {
        std::string text;
        int line = 0;
    };

    void AdvanceTo(Time at);
    void Perform(const LogRequest& request, const What& what);
    void Acquire(const LogRequest& request, const LockAcquire& acquire);
    void Release(const LockRelease& release);
    void Write(const NodeAccess& access);
    void ReleaseAll();
    bool IsHeld(int labHandle) const;
    void HandOn(const LockAcquire* told = nullptr);

    Phone& mPhone;
    std::function<void(const Event&)> mObserve;
    std::map<int, int> mLabHandles;  // by the log's
    std::map<int, int> mLogHandles;  // by the lab's
    std::map<int, Owner> mOwners;    // by the lab's
    std::set<int> mUntold;           // the lab's, of locks whose list is not told
    std::set<std::string> mMissing;
    Time mEffectAt{};  // of the effect being played
};

}  // namespace lab
