// Locks that were taken before a capture begins, as its lines show them later.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "lab/logcat/log_reader.h"

namespace lab {

// True for a handle that is a lock's; the plug-in prints 0 and -1 where it has none.
constexpr bool IsHeldLock(int handle) {
    return handle != 0 && handle != -1;
}

struct EarlierLock {
    enum class Kind : uint8_t {
        kTag,    // of a tag or a group: `key`
        kEvent,  // of the event of a command, `key`, and its element, `index`
    };

    Kind kind = Kind::kTag;
    int key = 0;
    int index = 0;
    int handle = 0;  // below 0: the log does not tell its number; no two have the same
    int line = 0;    // of the capture, that shows it
    // It was held until then. False: what shows it is there too when its time ran out before.
    bool isCertain = true;
};

// What a client had asked for before the capture begins, as the first line of the tag has it.
struct EarlierAsk {
    int client = 0;
    int tag = 0;
    int value = 0;
    int line = 0;
};

class EarlierLocks {
  public:
    // The lock that `line` shows, which must come before the next line is read; they come in their
    // order.
    std::optional<EarlierLock> Add(const CapturedLine& line);

    // What the lines so far show, in their order.
    const std::vector<EarlierLock>& All() const { return mAll; }
    const std::vector<EarlierAsk>& Asks() const { return mAsks; }

    // The number of the first lock that was granted; 0 before there is one.
    int FirstHandle() const { return mFirstHandle; }

    // True when the lines have the server's start, or the HAL's first lock: nothing comes before.
    bool IsWhole() const { return mIsWhole; }

  private:
    // The request of a thread, as far as its lines have come.
    struct Thread {
        Time last{};
        bool isDebug = false;  // a line that only SetDebug turns on
        int configured = -1;   // the tag that a line has just set
    };

    std::optional<EarlierLock> TagLock(const CapturedLine& line, const Thread& thread);
    std::optional<EarlierLock> EventLock(const CapturedLine& line);
    void AddAsks(const CapturedLine& line);
    EarlierLock Make(EarlierLock::Kind kind, int key, int index, int handle,
                     const CapturedLine& line);
    void Grant(int handle);

    std::set<int> mPids;
    bool mIsOver = false;  // another server has begun, which held nothing
    bool mIsWhole = false;
    bool mHasRequest = false;
    int mFirstHandle = 0;
    int mNameless = -1;  // the number of the last lock without one
    std::map<std::pair<int, int>, Thread> mThreads;
    std::set<int> mTags;                       // whose locks are known
    std::set<std::pair<int, int>> mEvents;     // the same, by command and element
    std::map<int, std::pair<int, int>> mHeld;  // handles of events, not yet seen at work
    std::set<std::pair<int, int>> mAsked;      // client and tag
    std::vector<EarlierLock> mAll;
    std::vector<EarlierAsk> mAsks;
};

}  // namespace lab
