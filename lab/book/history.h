// A run as a model that pictures of it are drawn from: locks with their holders, frequencies over
// time, requests, log lines. Built from the stream of events and from the book of them, so that it
// is the same whether the events come from the lab's phone or from the log of a real one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "lab/book/book.h"
#include "lab/hal/opcode_drives.h"
#include "lab/names/frequency_ranges.h"
#include "lab/phone/device_profile.h"
#include "lab/phone/events.h"

namespace lab {

class History {
  public:
    // "No request": what happened by itself, or before the first one.
    static constexpr size_t kNobody = static_cast<size_t>(-1);
    // In place of a request: who holds a lock is not named by the log.
    static constexpr size_t kSomebody = static_cast<size_t>(-2);

    struct Request {
        Time begin{};
        Time end{};
        std::string text;     // "on touch (4098)"
        std::string result;   // in words, perhaps of several lines; empty when there is none
        int line = 0;         // of the scenario; 0: not from one
        std::string client;   // "thermal"; may be empty
        std::string command;  // "touch"; may be empty
    };

    // How a lock looked between its taking or a renewal and the next one.
    struct Term {
        Time since{};
        std::optional<Time> until;  // when it is to run out; none: until released
        std::vector<int> list;      // opcode, value, ...
        size_t request = kNobody;   // index of the request that took or renewed it
    };
    // Who a lock belongs to from `since` until the next holding or the lock's end.
    struct Holding {
        Time since{};
        size_t request = kNobody;  // with which the holder asks for it; or kSomebody
    };
    enum class LockEnd { kHeld, kReleased, kExpired };
    struct Lock {
        int handle = 0;
        std::vector<Term> terms;        // one at least
        std::vector<Holding> holdings;  // one at least, by time; the first one begins with the lock
        Time end{};                     // when it ended; the end of the run while it is held
        LockEnd how = LockEnd::kHeld;
        size_t endRequest = kNobody;  // during which it ended

        Time Since() const { return terms.front().since; }
    };
    struct Refusal {
        Time at{};
        int returned = 0;
        std::vector<int> list;
        size_t request = kNobody;
    };

    struct Line {
        Time at{};
        int priority = 0;  // Android's: 3 debug, 4 info, 6 error
        // Kept by the history, once however often they are logged.
        std::string_view tag;
        std::string_view text;  // without its newline
        size_t request = kNobody;
    };

    // Begin or end of one of the plug-in's trace sections, in order. Ends follow their begins, and
    // every one has its end.
    struct SectionMark {
        Time at{};
        std::optional<std::string_view> begins;  // the name; none: the innermost one ends
    };

    // A write of the plug-in's own: what the HAL writes follows from the locks.
    struct Write {
        Time at{};
        std::string path;
        std::string before;
        std::string after;
        int error = 0;
        size_t request = kNobody;
    };

    // From arming the limit breakthrough until it is over or disarmed.
    struct Breakthrough {
        Time since{};
        Time end{};
        int64_t ms = 0;  // as armed
        size_t request = kNobody;
    };

    // The control state that holds from `at` on.
    struct Control {
        Time at{};
        ControlState state;
    };

    // A value that holds from `at` on.
    struct Point {
        Time at{};
        int64_t khz = 0;
    };
    // The frequency of a CPU cluster, the GPU or a bus' monitor. `current` is empty when nobody
    // told it.
    struct Track : FrequencyRange {
        std::vector<Point> floor;
        std::vector<Point> ceiling;
        std::vector<Point> current;
    };
    // What a lock's opcode means for a track.
    struct Bearing {
        size_t track = 0;
        bool isFloor = false;
        bool lifts = false;  // sets the ceiling itself, above what others ask
        int64_t khz = 0;
    };

    // Frequencies begin with what their nodes read now. Looks at `book` in Observe.
    History(const DeviceProfile& device, const Book& book);
    History(History&&) = default;

    // Takes the events in order, from the first one on, each when the book has observed it.
    void Observe(const Event& event);

    // Ends what is under way at `end` (not before the last event): call once, after the last event.
    void Finish(Time end);

    Time End() const { return mEnd; }
    const std::vector<Request>& Requests() const { return mRequests; }
    const std::vector<Lock>& Locks() const { return mLocks; }  // as BookedLock::number
    const std::vector<Refusal>& Refusals() const { return mRefusals; }
    const std::vector<Line>& Lines() const { return mLines; }
    const std::vector<SectionMark>& Sections() const { return mSections; }
    const std::vector<Write>& Writes() const { return mWrites; }
    const std::vector<Breakthrough>& Breakthroughs() const { return mBreakthroughs; }
    const std::vector<Track>& Tracks() const { return mTracks; }
    const std::vector<Control>& Controls() const { return mControls; }  // empty: never set
    const DeviceProfile& Device() const { return mDevice; }

    // Who is behind a request, as filters name it: "command:touch", "client:thermal", "other:the
    // start"; "other:the plug-in" for nobody's.
    std::string WhoOf(size_t request) const;

    // Who the lock belongs to at `at`.
    static const Holding& HoldingAt(const Lock& lock, Time at);

    // What a pair of a lock's list bears on; nothing when it limits no track.
    std::optional<Bearing> BearingOf(int opcode, int value) const;

    // For each track whether a picture shows it: a bus only where something limits it.
    std::vector<bool> ShownTracks() const;

  private:
    enum class Series { kFloor, kCeiling, kCurrent };
    struct Place {
        size_t track = 0;
        Series series = Series::kFloor;
    };

    void Take(const LogLine& line);
    void Take(const TraceSection& section);
    void Take(const LockAcquire& acquire);
    void Take(const LockRelease& release);
    void Take(const LockExpire& expire);
    void EndLock(LockEnd how);
    void Take(const NodeAccess& access);
    void Take(const TimerEvent& timer);
    void Take(const JankRecord& record);
    void Take(const RequestBegin& begin);
    void Take(const RequestEnd& end);

    void AddLine(int priority, std::string tag, std::string text);
    std::string_view Kept(std::string text);
    const std::vector<Drive>& Drives(int opcode) const;
    void AddHolding(const BookedLock& booked);
    void EndBreakthrough();
    void SetPoint(const std::string& path, const std::string& value);
    std::vector<Point>& SeriesAt(const Place& place);

    const DeviceProfile mDevice;
    const Book& mBook;
    std::unordered_map<std::string, Place> mPlaces;               // by node, under all its names
    mutable std::unordered_map<int, std::vector<Drive>> mDrives;  // by opcode, once looked up
    Time mNow{};
    Time mEnd{};
    size_t mRequest = kNobody;  // under way
    size_t mOpenSections = 0;
    bool mIsBreakthrough = false;  // the last one is under way

    std::vector<Request> mRequests;
    std::vector<Lock> mLocks;
    std::vector<Refusal> mRefusals;
    std::vector<Line> mLines;
    std::unordered_set<std::string> mTexts;  // of lines and sections
    std::vector<SectionMark> mSections;
    std::vector<Write> mWrites;
    std::vector<Breakthrough> mBreakthroughs;
    std::vector<Track> mTracks;
    std::vector<Control> mControls;
};

// The name in what filters name: "touch" of "command:touch".
std::string NameOfWho(const std::string& who);

}  // namespace lab
