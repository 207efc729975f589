// What the phone saw: one record for everything that crosses the seam between the plug-in and the
// platform, in the order in which it happened. The timeline, the checks and the tests read these.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "lab/phone/clock.h"

namespace lab {

inline constexpr int kAndroidError = 6;  // the log priority of what went wrong

// As logcat prints a priority, 'E' for 6; '?' for none.
char PriorityLetter(int priority);

// A line of the Android log.
struct LogLine {
    int priority = 0;                // Android's: 3 debug, 4 info, 6 error
    std::optional<std::string> tag;  // empty when the tag was a null pointer
    std::string text;                // as logged, with its newline if it has one
};

// Begin or end of an atrace section.
struct TraceSection {
    bool begin = false;
    std::string name;  // empty for an end
};

// A call of perf_lock_acq.
struct LockAcquire {
    int requestedHandle = 0;  // 0 for a new lock, else the lock to renew
    int durationMs = 0;       // 0: until released
    std::vector<int> list;    // opcode, value, opcode, value, ...
    int returned = 0;         // the handle; below 1 when refused
    // A capture's lock that was taken before the capture begins, or in lines that are missing in
    // it: when and for how long nothing tells; nor what it holds where its list is empty. A handle
    // below 0 stands for one whose number nothing tells.
    bool isEarlier = false;
    int earlierTag = -1;  // of an earlier lock without a list: the tag that it is for
    // It may be that it was not held any more; of a lock that is not earlier: what it holds may be
    // something else, for the log contradicts the scene file.
    bool isDoubtful = false;
    // A capture's lock of a command: what it holds is the scene file's word, not the log's; and for
    // how many ms the file has it where the log says otherwise, which on demand it may.
    bool isListAssumed = false;
    std::optional<int> sceneMs = std::nullopt;
    bool isOnDemand = false;

    bool IsGranted() const { return returned >= 1 || isEarlier; }
};

// A call of perf_lock_rel.
struct LockRelease {
    int handle = 0;
    int returned = 0;
    bool wasHeld = false;  // false: nobody held that handle
};

// A timed lock ran out.
struct LockExpire {
    int handle = 0;
};

// A node and what a read of it gives.
struct NodeValue {
    std::string path;
    std::string value;
};

// A read or write of a node through the phone's kernel.
struct NodeAccess {
    enum class Kind {
        kRead,
        kWrite,
        kArrange,  // the scenario set it, past every rule; `after` is empty where it took it away
    } kind = Kind::kRead;
    std::string path;       // as the plug-in named it
    std::string requested;  // text written; empty for a read, and where the HAL withdraws a request
    std::string before;     // value before a write, value for a read
    std::string after;      // what a read gives afterwards
    int error = 0;          // errno of a refused access, else 0
    bool byHal = false;     // the perf HAL did it, on behalf of a lock
    // What a write has changed beside its own node: a ceiling that rises frees the floor that it
    // held down, a CPU that comes back finds the limits that were asked meanwhile, and the
    // frequency follows. Under the names that the kernel keeps them by.
    std::vector<NodeValue> alsoChanged = {};
    // A capture's first sight of the node: what stood there before a write nothing tells, and
    // `before` is empty.
    bool isBeforeUnknown = false;
};

// What happened to the plug-in's POSIX timer.
struct TimerEvent {
    enum class Kind { kCreate, kArm, kDisarm, kFire, kDelete } kind = Kind::kCreate;
    int64_t ms = 0;  // for kArm
    int clock = 0;   // for kCreate: the machine's clock that it runs on, such as CLOCK_MONOTONIC
};

// A record of the jank log.
struct JankRecord {
    int priority = 0;
    int id = 0;
    std::string text;
};

struct RequestFacts;  // lab/book/request_facts.h

// A request that the server sends, and its end. Events between the two belong to it.
struct RequestBegin {
    std::string text;
    int line = 0;              // of the scenario file; 0 when it is not from one
    std::string client = {};   // "thermal"; empty for a request that no client makes
    std::string command = {};  // "touch", or its number; empty for one that names none
    // What it asks for, which is told when it is answered; null where nobody tells.
    std::shared_ptr<const RequestFacts> facts = nullptr;
};
struct RequestEnd {
    std::string result;
};

using What = std::variant<LogLine, TraceSection, LockAcquire, LockRelease, LockExpire, NodeAccess,
                          TimerEvent, JankRecord, RequestBegin, RequestEnd>;

struct Event {
    Time at{};
    What what;
};

// Keeps the events in order. Any thread may add; reading is for when no one adds.
class Recorder {
  public:
    explicit Recorder(const Clock& clock) : mClock(clock) {}

    void Add(What what);

    // Says what the newest request asks for, now that it is answered.
    void Explain(std::shared_ptr<const RequestFacts> facts);

    const std::vector<Event>& Events() const { return mEvents; }
    void Clear();

    // The events of one kind, in order.
    template <typename T>
    std::vector<T> All() const {
        std::vector<T> found;
        for (const Event& event : mEvents) {
            if (const T* what = std::get_if<T>(&event.what)) found.push_back(*what);
        }
        return found;
    }

  private:
    const Clock& mClock;
    std::mutex mMutex;
    std::vector<Event> mEvents;
};

}  // namespace lab
