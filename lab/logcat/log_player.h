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
    // `observe` gets the events in order: those of a run, with the log's handles. `phone` must be
    // on the virtual clock and outlive the player.
    LogPlayer(Phone& phone, std::function<void(const Event&)> observe)
        : mPhone(phone), mObserve(std::move(observe)) {}

    // Plays a request; they come in the order in which they began.
    void Play(const LogRequest& request);

    // Lets time pass until `end`.
    void Finish(Time end) { AdvanceTo(end); }

    // The line that reads a node otherwise than the held lock makes it; 0: none.
    int DoubtLine(int handle) const;

    // A value that the plug-in has read in the log where the lab's phone has another: a lock that
    // the log does not tell of, another program's doing, or a scene file that is not the phone's.
    struct Surprise {
        int count = 0;  // of all; the others tell of the first
        int line = 0;
        std::string path;
        std::string read;
        std::string expected;
    };
    const Surprise& Surprises() const { return mSurprise; }

    // Nodes that the log writes and the device's profile lacks.
    const std::set<std::string>& MissingNodes() const { return mMissing; }

  private:
    void AdvanceTo(Time at);
    void Perform(const LogRequest& request, const What& what);
    void Acquire(const LogRequest& request, const LockAcquire& acquire);
    void Release(const LockRelease& release);
    void Write(const NodeAccess& access);
    void ReleaseAll();
    void HandOn(const LockAcquire* told = nullptr);
    void End(int& handle);
    void MarkFirstSight(NodeAccess& access);
    void TakeRead(const NodeAccess& access, bool isKnown, std::optional<std::string>& read);

    // A lock of the log, and the lab's that stands for it.
    struct Lock {
        int labHandle = 0;
        int doubtLine = 0;
    };

    Phone& mPhone;
    std::function<void(const Event&)> mObserve;
    std::map<int, Lock> mLocks;      // that are held, by the log's handle
    std::map<int, int> mLogHandles;  // by the lab's, of the same
    int mFirstHandle = 0;            // the first that the log grants
    std::set<std::string> mMissing;
    Surprise mSurprise;
    int mLine = 0;  // of the request being played
    // Nodes that have been seen, with what the plug-in has read there since they were written
    // where that is not what the lab's phone has.
    std::map<std::string, std::optional<std::string>> mRead;
    Time mEffectAt{};  // of the effect being played
};

}  // namespace lab
