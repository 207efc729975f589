#include "lab/book/history.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "lab/names/text.h"

namespace lab {

History::History(const DeviceProfile& device, const Book& book) : mDevice(device), mBook(book) {
    constexpr std::pair<Series, const char*> kNodes[] = {{Series::kFloor, "min_freq"},
                                                         {Series::kCeiling, "max_freq"},
                                                         {Series::kCurrent, "cur_freq"}};
    for (const FrequencyRange& range : FrequencyRangesOf(device)) {
        const size_t number = mTracks.size();
        mTracks.push_back({range, {{Time{}, range.lowKhz}}, {{Time{}, range.highKhz}}, {}});
        for (const auto& [series, node] : kNodes) {
            for (const std::string& path : range.nodes) mPlaces[path + node] = {number, series};
            const std::string path = range.nodes.front() + node;
            SetPoint(path, book.GetKernel().Value(path));
        }
    }
}

void History::Observe(const Event& event) {
    mNow = event.at;
    mEnd = std::max(mEnd, event.at);
    std::visit([this](const auto& what) { Take(what); }, event.what);
    for (const int handle : mBook.ChangedHands()) AddHolding(*mBook.FindLock(handle));
}

void History::Finish(Time end) {
    mEnd = mNow = std::max(mEnd, end);
    for (Lock& lock : mLocks) {
        if (lock.how == LockEnd::kHeld) lock.end = mEnd;
    }
    for (; mOpenSections > 0; --mOpenSections) mSections.push_back({mEnd, std::nullopt});
    EndBreakthrough();
}

void History::Take(const LogLine& line) {
    AddLine(line.priority, line.tag.value_or(""), WithoutNewline(line.text));
}

void History::Take(const JankRecord& record) {
    AddLine(record.priority, "jank", std::to_string(record.id) + " " + WithoutNewline(record.text));
}

void History::AddLine(int priority, std::string tag, std::string text) {
    mLines.push_back({mNow, priority, Kept(std::move(tag)), Kept(std::move(text)), mRequest});
}

std::string_view History::Kept(std::string text) {
    return *mTexts.insert(std::move(text)).first;
}

void History::Take(const TraceSection& section) {
    if (section.begin) {
        mSections.push_back({mNow, Kept(section.name)});
        ++mOpenSections;
    } else if (mOpenSections > 0) {
        mSections.push_back({mNow, std::nullopt});
        --mOpenSections;
    }
}

void History::Take(const LockAcquire& acquire) {
    if (!acquire.IsGranted()) {
        mRefusals.push_back({mNow, acquire.returned, acquire.list, mRequest});
        return;
    }
    Term term{mNow, std::nullopt, acquire.list, mRequest};
    if (acquire.durationMs > 0) term.until = mNow + std::chrono::milliseconds(acquire.durationMs);
    const BookedLock& booked = *mBook.FindLock(acquire.returned);
    if (booked.number == mLocks.size()) mLocks.push_back({booked.handle, {}, {}, {}});
    mLocks[booked.number].terms.push_back(std::move(term));
}

// The last holding at a moment is the one that counts.
void History::AddHolding(const BookedLock& booked) {
    std::vector<Holding>& holdings = mLocks[booked.number].holdings;
    // Who made the request need not be who asks for what came of it.
    const size_t request = booked.owner == kUnnamed ? kSomebody
                           : booked.askedBy         ? booked.askedBy->number - 1
                                                    : kNobody;
    if (!holdings.empty() && holdings.back().since == mNow) holdings.pop_back();
    if (holdings.empty() || holdings.back().request != request) holdings.push_back({mNow, request});
}

void History::Take(const LockRelease&) {
    EndLock(LockEnd::kReleased);
}

void History::Take(const LockExpire&) {
    EndLock(LockEnd::kExpired);
}

void History::EndLock(LockEnd how) {
    if (!mBook.EndedLock()) return;
    Lock& lock = mLocks[mBook.EndedLock()->number];
    lock.end = mNow;
    lock.how = how;
    lock.endRequest = mRequest;
}

void History::Take(const NodeAccess& access) {
    if (access.kind == NodeAccess::Kind::kRead) return;
    if (access.kind == NodeAccess::Kind::kWrite && !access.byHal) {
        mWrites.push_back({mNow, access.path, access.isBeforeUnknown ? "?" : access.before,
                           access.after, access.error, mRequest});
    }
    if (access.error != 0) return;
    SetPoint(access.path, access.after);
    for (const NodeValue& node : access.alsoChanged) SetPoint(node.path, node.value);
}

void History::SetPoint(const std::string& path, const std::string& value) {
    const auto place = mPlaces.find(path);
    if (place == mPlaces.end()) return;
    const std::optional<int64_t> number = ParseNumber(value);
    if (!number) return;
    const int64_t khz = *number / mTracks[place->second.track].perKhz;
    std::vector<Point>& series = SeriesAt(place->second);
    if (!series.empty() && series.back().at == mNow) series.pop_back();
    if (!series.empty() && series.back().khz == khz) return;
    series.push_back({mNow, khz});
}

std::vector<History::Point>& History::SeriesAt(const Place& place) {
    Track& track = mTracks[place.track];
    switch (place.series) {
        case Series::kFloor:
            return track.floor;
        case Series::kCeiling:
            return track.ceiling;
        case Series::kCurrent:
            break;
    }
    return track.current;
}

void History::Take(const TimerEvent& timer) {
    if (timer.kind == TimerEvent::Kind::kCreate) return;
    EndBreakthrough();
    if (timer.kind != TimerEvent::Kind::kArm) return;
    mBreakthroughs.push_back({mNow, mNow, timer.ms, mRequest});
    mIsBreakthrough = true;
}

void History::EndBreakthrough() {
    if (mIsBreakthrough) mBreakthroughs.back().end = mNow;
    mIsBreakthrough = false;
}

void History::Take(const RequestBegin& begin) {
    mRequest = mRequests.size();
    mRequests.push_back({mNow, mNow, begin.text, "", begin.line, begin.client, begin.command});
}

void History::Take(const RequestEnd& end) {
    if (mRequest == kNobody) return;
    mRequests[mRequest].end = mNow;
    mRequests[mRequest].result = end.result;
    mRequest = kNobody;
    const ControlState& control = mBook.Conditions().Control();
    const ControlState& former = mControls.empty() ? ControlState{} : mControls.back().state;
    if (control != former) mControls.push_back({mNow, control});
}

std::string History::WhoOf(size_t request) const {
    if (request == kNobody) return "other:the plug-in";
    if (request == kSomebody) return fmt::format("other:{}", kUnnamed);
    const Request& asked = mRequests[request];
    if (!asked.command.empty()) return "command:" + asked.command;
    return asked.client.empty() ? "other:" + asked.text : "client:" + asked.client;
}

const History::Holding& History::HoldingAt(const Lock& lock, Time at) {
    const auto next = std::upper_bound(
        lock.holdings.begin(), lock.holdings.end(), at,
        [](Time moment, const Holding& holding) { return moment < holding.since; });
    return next == lock.holdings.begin() ? lock.holdings.front() : *(next - 1);
}

std::string NameOfWho(const std::string& who) {
    return who.substr(who.find(':') + 1);
}

const std::vector<Drive>& History::Drives(int opcode) const {
    const auto [entry, isNew] = mDrives.try_emplace(opcode);
    if (isNew) entry->second = DrivesOf(static_cast<uint32_t>(opcode), mDevice);
    return entry->second;
}

std::vector<bool> History::ShownTracks() const {
    std::vector<bool> shown;
    for (const Track& track : mTracks) {
        shown.push_back(!track.isBus || track.floor.size() > 1 || track.ceiling.size() > 1);
    }
    for (const Lock& lock : mLocks) {
        for (const Term& term : lock.terms) {
            for (size_t i = 0; i + 1 < term.list.size(); i += 2) {
                for (const Drive& drive : Drives(term.list[i])) {
                    const auto place = mPlaces.find(drive.path);
                    if (place != mPlaces.end()) shown[place->second.track] = true;
                }
            }
        }
    }
    return shown;
}

std::optional<History::Bearing> History::BearingOf(int opcode, int value) const {
    for (const Drive& drive : Drives(opcode)) {
        const auto place = mPlaces.find(drive.path);
        if (place == mPlaces.end()) continue;
        Bearing bearing;
        bearing.track = place->second.track;
        bearing.isFloor = place->second.series == Series::kFloor;
        bearing.lifts = drive.writer == Kernel::Writer::kHalInPlace;
        bearing.khz = ToNodeUnit(drive, value, mDevice) / mTracks[bearing.track].perKhz;
        return bearing;
    }
    return std::nullopt;
}

}  // namespace lab
