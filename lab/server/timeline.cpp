#include "lab/server/timeline.h"

#include <fmt/format.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

#include "lab/names/node_names.h"
#include "lab/names/tag_names.h"
#include "lab/names/text.h"

namespace lab {
namespace {

// Columns: names of resources, or whole paths.
constexpr int kNameWidth = 32;
constexpr int kWidestName = 60;

// A capture may tell of a lock without its number.
std::string LockName(int handle) {
    return handle < 0 ? "lock ?" : fmt::format("lock {}", handle);
}

// When a capture's lock was taken that it begins to tell of at `told`.
std::string EarlierText(Time told) {
    return told == Time(0) ? "taken before the capture begins"
                           : "taken earlier, where no line tells";
}

// "40" and "40.00" are the same value, "85\t95" and "85 95" are too.
bool IsSameValue(const std::string& a, const std::string& b) {
    if (NodeText(a) == NodeText(b)) return true;
    char* endA = nullptr;
    char* endB = nullptr;
    const double valueA = std::strtod(a.c_str(), &endA);
    const double valueB = std::strtod(b.c_str(), &endB);
    return endA != a.c_str() && endB != b.c_str() && *endA == '\0' && *endB == '\0' &&
           valueA == valueB;
}

// True when the kernel made another value of the one written. An empty write takes a request back,
// a negative one lowers a count.
bool IsClamped(const NodeAccess& access) {
    if (access.requested.empty() || access.requested[0] == '-') return false;
    return !IsSameValue(access.requested, access.after);
}

}  // namespace

std::string Timeline::PairText(int opcode, int value, Layout layout) {
    const Resource resource = ResourceOf(opcode, layout);
    return resource.name + " " + BoundText(resource.bound, value, resource.unit);
}

void Timeline::Observe(const Event& event) {
    mNow = event.at;
    std::visit([this](const auto& what) { Show(what); }, event.what);
}

void Timeline::Show(const RequestBegin& begin) {
    mInRequest = true;
    mBegan = mNow;
    mRequest = begin.text;
    mFacts.clear();
}

void Timeline::Show(const RequestEnd& end) {
    mInRequest = false;
    const bool isPlain = end.result.empty() || end.result == "0";
    const bool isOneLine = end.result.find('\n') == std::string::npos;
    std::string header =
        fmt::format("{:>{}}  ", mOptions.moments.Text(mBegan), mOptions.moments.Width());
    header += mOptions.paint(Colour::kBold, mRequest);
    if (!isPlain && isOneLine) {
        const Colour colour = end.result[0] == '-' ? Colour::kRed : Colour::kCyan;
        header += mOptions.paint(colour, "  -> " + end.result);
    }
    mOut << header << "\n";
    mLoneTime.clear();
    for (const Fact& fact : mFacts) WriteFact(fact, "");
    mFacts.clear();
    if (isOneLine) return;
    std::istringstream lines(end.result);
    const std::string indent(static_cast<size_t>(mOptions.moments.Width()) + 4, ' ');
    for (std::string line; std::getline(lines, line);) mOut << indent << line << "\n";
}

void Timeline::Show(const LogLine& line) {
    const bool isError = line.priority >= kAndroidError;
    if (!isError && !mOptions.verbose) return;
    std::string text = WithoutNewline(line.text);
    if (line.tag) text = "[" + *line.tag + "] " + text;
    const char* label = isError ? "log E" : line.priority == 4 ? "log I" : "log D";
    const bool isTrouble = isError && !IsUsualLine(text);
    Add({isTrouble ? '!' : '.', label, text, "", "", isTrouble ? Colour::kRed : Colour::kDim,
         true});
}

void Timeline::Show(const TraceSection& section) {
    if (!mOptions.verbose) return;
    Add({'.', "trace", section.begin ? "begin " + section.name : "end", "", "", Colour::kDim,
         true});
}

void Timeline::Show(const LockAcquire& acquire) {
    if (!acquire.IsGranted()) {
        Fact fact{'!',          "lock", "", "", fmt::format("refused with {}", acquire.returned),
                  Colour::kRed, true};
        if (acquire.requestedHandle > 0) {
            fact.remark += fmt::format(", lock {} not renewed", acquire.requestedHandle);
        }
        ShowPairs(acquire, fact);
        return;
    }
    const BookedLock* lock = mBook.FindLock(acquire.returned);
    const bool isRenewal = lock && lock->terms > 1;
    Fact fact{isRenewal ? '~' : '+', LockName(acquire.returned), "", "", "", Colour::kGreen, false};
    fact.remark = acquire.durationMs > 0 ? fmt::format("for {} ms", acquire.durationMs)
                                         : std::string("until released");
    if (acquire.sceneMs) {
        fact.remark +=
            fmt::format("{}; the scene file has {}", acquire.isOnDemand ? " on demand" : "",
                        *acquire.sceneMs > 0 ? fmt::format("{} ms", *acquire.sceneMs) : "no time");
        if (!acquire.isOnDemand) fact.remark += ", what it holds is doubtful";
    }
    if (acquire.isEarlier) {
        fact.remark = EarlierText(mNow);
        if (acquire.isDoubtful) fact.remark += "; its time may be over";
    }
    if (isRenewal) fact.remark = "renewed " + fact.remark;
    ShowPairs(acquire, fact);
}

void Timeline::ShowPairs(const LockAcquire& acquire, Fact first) {
    if (acquire.list.empty()) {
        first.name = acquire.earlierTag < 0 ? "not told by the log"
                                            : TagLabel(acquire.earlierTag, mLayout) + ", not told";
        Add(first);
        return;
    }
    for (size_t i = 0; i + 1 < acquire.list.size(); i += 2) {
        const Resource resource = ResourceOf(acquire.list[i], mLayout);
        Fact fact = i == 0 ? first : Fact{};
        if (i != 0 && first.wholeLine) {
            fact.colour = first.colour;
            fact.wholeLine = true;
        }
        fact.name = resource.name;
        fact.value = BoundText(resource.bound, acquire.list[i + 1], resource.unit);
        if (acquire.IsGranted()) {
            const std::string contest =
                ContestText(acquire.returned, acquire.list[i], acquire.list[i + 1]);
            if (!contest.empty()) fact.remark += (fact.remark.empty() ? "" : "; ") + contest;
        }
        Add(fact);
    }
}

// Who else holds the resource, and who wins.
std::string Timeline::ContestText(int handle, int opcode, int value) const {
    const Book::Contest contest = mBook.ContestOf(handle, opcode, value);
    const std::string rival = LockName(contest.rival);
    const std::string held = WithUnit(contest.value, ResourceOf(contest.opcode, mLayout).unit);
    switch (contest.how) {
        case Book::Contest::How::kNone:
            break;
        case Book::Contest::How::kSame:
            return fmt::format("as {} does", rival);
        case Book::Contest::How::kWins:
            return fmt::format("wins over {}'s {}", rival, held);
        case Book::Contest::How::kLoses:
            return fmt::format("{} wins with {}", rival, held);
        case Book::Contest::How::kLifts:
            return fmt::format("lifts {}'s {}", rival, held);
        case Book::Contest::How::kIsLifted:
            return fmt::format("{} lifts it to {}", rival, held);
    }
    return "";
}

void Timeline::Show(const LockRelease& release) {
    if (!release.wasHeld) {
        Add({'.', LockName(release.handle), "", "released, but not held any more", "", Colour::kDim,
             true});
        return;
    }
    ShowEnd(release.handle, "released");
}

void Timeline::Show(const LockExpire& expire) {
    ShowEnd(expire.handle, "expired");
}

void Timeline::ShowEnd(int handle, const std::string& how) {
    Fact fact{'-', LockName(handle), "", how, "", Colour::kYellow, false};
    const BookedLock* lock = mBook.EndedLock();
    if (!lock) return Add(fact);
    if (lock->list.size() >= 2) fact.name = ResourceOf(lock->list[0], mLayout).name;
    if (lock->list.size() > 2) fact.name += fmt::format(" and {} more", lock->list.size() / 2 - 1);
    fact.remark = lock->isEarlier ? EarlierText(lock->since)
                                  : fmt::format("after {} ms", WholeMs(mNow - lock->since));
    Add(fact);
    ShowHeirs(*lock);
}

// Which of the other locks now decides a resource that an ended one decided before.
void Timeline::ShowHeirs(const BookedLock& ended) {
    for (size_t i = 0; i + 1 < ended.list.size(); i += 2) {
        const std::optional<PerfHal::Claim> heir = mBook.HeirOf(ended.list[i], ended.list[i + 1]);
        if (!heir) continue;
        const Resource resource = ResourceOf(heir->opcode, mLayout);
        Add({' ', LockName(heir->handle), resource.name,
             BoundText(resource.bound, heir->value, resource.unit), "holds it now", Colour::kPlain,
             false});
    }
}

void Timeline::Show(const NodeAccess& access) {
    const std::string name = mOptions.verbose ? access.path : ShortNode(access.path);
    const std::string unit = NodeUnit(access.path);
    if (access.kind == NodeAccess::Kind::kArrange) {
        ShowFollowing(access);  // the step's own line tells the rest
        return;
    }
    if (access.kind == NodeAccess::Kind::kRead) {
        if (!mOptions.verbose) return;
        Add({'.', "read", name,
             access.error ? std::strerror(access.error) : NodeText(access.before, unit), "",
             Colour::kDim, true});
        return;
    }
    const char* who = access.byHal ? "by the HAL" : "by the plug-in";
    if (access.error != 0) {
        const std::string written =
            access.requested.empty() ? "" : NodeText(access.requested) + " ";
        Add({'!', "node", name, "write " + written + "refused",
             fmt::format("{}, {}", std::strerror(access.error), who), Colour::kRed, true});
        return;
    }
    const bool isChanged = access.before != access.after || access.isBeforeUnknown;
    if (!isChanged && access.byHal && !mOptions.verbose) return;
    // What the HAL writes stands below its lock and needs no name.
    Fact fact{'=', "node", name, "", access.byHal ? "" : who, Colour::kCyan, false};
    fact.value =
        isChanged
            ? NodeText((access.isBeforeUnknown ? "?" : access.before) + " -> " + access.after, unit)
            : NodeText(access.after, unit) + ", as before";
    if (IsClamped(access)) {
        fact.remark += fmt::format("{}kernel makes {} of {}", fact.remark.empty() ? "" : "; ",
                                   NodeText(access.after), NodeText(access.requested));
    }
    Add(fact);
    ShowFollowing(access);
}

// What a write changed beside its node: a ceiling that rises frees the floor beneath it, one that
// falls takes it down.
void Timeline::ShowFollowing(const NodeAccess& access) {
    for (const NodeValue& node : access.alsoChanged) {
        // The present frequency follows every limit.
        if (node.path.ends_with("cur_freq") && !mOptions.verbose) continue;
        // The kernel keeps a cluster's nodes under its policy; the reader knows the CPU's.
        const std::string other = OtherEnd(access.path);
        const bool isOther = !other.empty() && node.path.ends_with(other.substr(other.rfind('/')));
        const std::string path = isOther ? other : node.path;
        const char* why = !isOther                                         ? "follows"
                          : path.find("min", path.rfind('/')) != path.npos ? "as its ceiling allows"
                                                                           : "as its floor allows";
        Add({' ', "node", mOptions.verbose ? path : ShortNode(path),
             NodeText(node.value, NodeUnit(path)), why, Colour::kPlain, false});
    }
}

void Timeline::Show(const TimerEvent& timer) {
    using Kind = TimerEvent::Kind;
    Fact fact{'@', "timer", "limit breakthrough", "", "", Colour::kYellow, false};
    if (timer.kind == Kind::kCreate || timer.kind == Kind::kDelete) {
        if (!mOptions.verbose) return;
        fact.name = timer.kind == Kind::kCreate ? "created" : "deleted";
    }
    if (timer.kind == Kind::kArm) fact.value = fmt::format("armed for {} ms", timer.ms);
    if (timer.kind == Kind::kDisarm) fact.value = "disarmed";
    if (timer.kind == Kind::kFire) fact.value = "over";
    Add(fact);
}

void Timeline::Show(const JankRecord& record) {
    if (!mOptions.verbose) return;
    Add({'.', "jank", fmt::format("{} {}", record.id, WithoutNewline(record.text)), "", "",
         Colour::kDim, true});
}

void Timeline::Add(const Fact& fact) {
    if (mInRequest) {
        mFacts.push_back(fact);
        return;
    }
    const std::string time = mOptions.moments.Text(mNow);
    WriteFact(fact, time == mLoneTime ? "" : time);
    mLoneTime = time;
}

void Timeline::WriteFact(const Fact& fact, const std::string& time) {
    std::string body = fact.label;
    if (!fact.name.empty() || !fact.value.empty() || !fact.remark.empty()) {
        body = fmt::format("{:<9} {:<{}} {:<28} {}", fact.label, fact.name,
                           mOptions.verbose ? kWidestName : kNameWidth, fact.value, fact.remark);
    }
    body.resize(body.find_last_not_of(' ') + 1);
    const std::string sign(1, fact.sign);
    mOut << fmt::format("{:>{}}    ", time, mOptions.moments.Width())
         << (fact.wholeLine ? mOptions.paint(fact.colour, sign + " " + body)
                            : mOptions.paint(fact.colour, sign) + " " + body)
         << "\n";
}

}  // namespace lab
