// The events of a run as text that a performance engineer reads: one line per fact, in columns,
// indented under the request that it belongs to.
//
//     0.100  on touch (4098)
//              + lock 1    big_cpu0_min_freq             >= 1324 MHz           for 500 ms
//              = node      cpu4 scaling_min_freq         633600 -> 1324000 kHz
//     0.600    - lock 1    big_cpu0_min_freq             expired               after 500 ms
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "lab/book/book.h"
#include "lab/names/moments.h"
#include "lab/names/paint.h"
#include "lab/names/resource_names.h"
#include "lab/phone/events.h"

namespace lab {

class Timeline {
  public:
    struct Options {
        bool verbose = false;  // info and debug lines, trace sections, node reads too
        Paint paint{false};
        Moments moments{};  // how times are written
    };

    // `book` has observed each event before the timeline does.
    Timeline(std::ostream& out, const Book& book, const Options& options)
        : mOut(out), mBook(book), mLayout(book.ClusterLayout()), mOptions(options) {}

    // Writes what `event` tells; a request is written when it ends, with all that belongs to it.
    void Observe(const Event& event);

    // "big_cpu0_min_freq >= 1766 MHz" for one pair of a lock's list.
    static std::string PairText(int opcode, int value, Layout layout);

  private:
    struct Fact {
        char sign = ' ';
        std::string label;
        std::string name;
        std::string value;
        std::string remark;
        Colour colour = Colour::kPlain;
        bool wholeLine = false;  // colours the line, not the sign alone
    };

    void Show(const LogLine& line);
    void Show(const TraceSection& section);
    void Show(const LockAcquire& acquire);
    void Show(const LockRelease& release);
    void Show(const LockExpire& expire);
    void Show(const NodeAccess& access);
    void Show(const TimerEvent& timer);
    void Show(const JankRecord& record);
    void Show(const RequestBegin& begin);
    void Show(const RequestEnd& end);

    void ShowPairs(const LockAcquire& acquire, Fact first);
    void ShowEnd(int handle, const std::string& how);
    std::string ContestText(int handle, int opcode, int value) const;
    void ShowFollowing(const NodeAccess& access);
    void ShowHeirs(const BookedLock& ended);
    void Add(const Fact& fact);
    void WriteFact(const Fact& fact, const std::string& time);

    std::ostream& mOut;
    const Book& mBook;
    const Layout mLayout;
    const Options mOptions;
    Time mNow{};
    bool mInRequest = false;
    Time mBegan{};
    std::string mRequest;
    std::vector<Fact> mFacts;  // of the request under way
    std::string mLoneTime;     // of the fact written last, when it belongs to no request
};

}  // namespace lab
