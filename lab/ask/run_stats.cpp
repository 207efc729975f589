#include "lab/ask/run_stats.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

#include "lab/ask/node_verdicts.h"
#include "lab/hal/opcode_drives.h"
#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/server/timeline.h"

namespace lab {
namespace {

constexpr int64_t kPerKilo = 1000;
constexpr char kThermal[] = "thermal";
constexpr char kPlugin[] = "the plug-in";
constexpr char kCpus[] = "/sys/devices/system/cpu/cpu";
constexpr char kBuses[] = "/sys/devices/system/cpu/bus_dcvs/";
constexpr char kGpu[] = "/sys/class/kgsl/kgsl-3d0/devfreq/";
constexpr size_t kNone = static_cast<size_t>(-1);

// More of them than anybody reads are not kept through a long run.
constexpr size_t kMostHolds = 1000;

// Time during which at least one of several things is so.
class Span {
  public:
    void Begin(Time now) {
        if (mCount++ == 0) mSince = now;
    }
    void End(Time now) {
        if (--mCount == 0) mTotal += now - mSince;
    }
    Time Total(Time now) const { return mTotal + (mCount > 0 ? now - mSince : Time{}); }

  private:
    int mCount = 0;
    Time mSince{};
    Time mTotal{};
};

using Times = std::map<std::string, Time>;

// Longest first.
std::vector<RunStats::Part> PartsOf(const Times& times) {
    std::vector<RunStats::Part> parts;
    for (const auto& [name, time] : times) {
        if (time > Time{}) parts.push_back({name, time});
    }
    std::stable_sort(parts.begin(), parts.end(),
                     [](const auto& a, const auto& b) { return a.time > b.time; });
    return parts;
}

class Counter {
  public:
    explicit Counter(Replay& replay)
        : mReplay(replay),
          mBook(replay.GetBook()),
          mDevice(replay.Device()),
          mKernel(replay.GetPhone().GetKernel()) {
        for (const std::string& path : mKernel.Paths()) mBoot[path] = mKernel.Value(path);
        for (const CpuCluster& cluster : mDevice.clusters) {
            const std::string cpu = kCpus + std::to_string(cluster.firstCpu) + "/cpufreq/";
            AddRange(cluster.name, cluster.khz.front(), cluster.khz.back(),
                     cpu + "scaling_min_freq", cpu + "scaling_max_freq", 1);
        }
        if (!mDevice.gpuMhz.empty()) {
            const std::string gpu = kGpu;
            AddRange("gpu", mDevice.gpuMhz.back() * kPerKilo, mDevice.gpuMhz.front() * kPerKilo,
                     gpu + "min_freq", gpu + "max_freq", kPerKilo);
        }
        for (const BusMonitor& bus : mDevice.buses) {
            const std::string folder = kBuses + bus.folder + "/";
            const std::string name = ShortNode(folder + "min_freq");
            AddRange(name.substr(0, name.rfind(' ')), bus.khz.front(), bus.khz.back(),
                     folder + "min_freq", folder + "max_freq", 1);
            mRanges.back().isBus = true;
        }
    }

    void Observe(const Event& event) {
        mNow = event.at;
        if (const auto* begin = std::get_if<RequestBegin>(&event.what)) {
            mIsInRequest = true;
            OnRequest(*begin);
        } else if (const auto* acquire = std::get_if<LockAcquire>(&event.what)) {
            if (acquire->IsGranted()) OnAcquire(acquire->returned, *acquire);
        } else if (const auto* access = std::get_if<NodeAccess>(&event.what)) {
            OnAccess(*access);
        } else if (std::holds_alternative<RequestEnd>(event.what)) {
            mIsInRequest = false;
        }
        if (const BookedLock* ended = mBook.EndedLock()) OnEnd(*ended);
        for (const int handle : mBook.ChangedHands()) {
            const BookedLock* lock = mBook.FindLock(handle);
            if (lock) Hold(*lock);
        }
        // What a request does is looked at when it is over: everything in between lasts no time
        // that anybody has.
        if (!mIsInRequest) WeighDirty();
    }

    void Finish(RunStats& stats) {
        mNow = stats.at;
        WeighDirty();
        for (const auto& [handle, lock] : mBook.Locks()) {
            const auto hold = mHolds.find(handle);
            if (hold != mHolds.end()) EndHold(hold->second, true, mReplay.DoubtOf(lock));
        }
        stats.holds = std::move(mEnded);
        std::stable_sort(stats.holds.begin(), stats.holds.end(), IsLonger);
        AddRequesters(stats);
        for (const Range& range : mRanges) AddRange(range, stats);
    }

  private:
    struct Requester {
        size_t asked = 0;
        Span held;
        Span won;
        std::unordered_map<size_t, Span> lostTo;
    };

    // What a node has added to the requesters' times and takes back when it is weighed again.
    struct Share {
        size_t who = 0;
        bool wins = false;
        size_t lostTo = kNone;
    };

    struct Node {
        NodeTarget target;
        std::string boot;
        bool isDirty = false;
        std::vector<Share> shares;
        bool isLimit = false;  // what it reads is counted
        std::optional<int64_t> value;
        std::string winner;
        Time since{};
        bool isSeen = false;  // some line tells of it
        // What a capture reads there where the lab has another value; until it is written.
        std::optional<int64_t> told;
        std::map<std::optional<int64_t>, Times> times;
        Times unseen;  // of the value before it is seen
        std::optional<int64_t> unseenValue;
    };

    struct Range {
        std::string name;
        int64_t lowKhz = 0;
        int64_t highKhz = 0;
        int64_t perKhz = 1;
        bool isBus = false;
        size_t floor = kNone;
        size_t ceiling = kNone;
    };

    struct OpenHold {
        size_t who = 0;
        bool counts = false;  // among the requesters' times
        RunStats::Hold hold;
        std::vector<int> list;
        int tag = -1;
    };

    static bool IsLonger(const RunStats::Hold& a, const RunStats::Hold& b) {
        return a.end - a.since > b.end - b.since;
    }

    size_t IndexOf(const std::string& name) {
        const auto [entry, isNew] = mIndexes.try_emplace(name, mRequesters.size());
        if (isNew) {
            mRequesters.emplace_back();
            mNames.push_back(name);
        }
        return entry->second;
    }

    // Nodes.

    void AddRange(const std::string& name, int64_t low, int64_t high, const std::string& floor,
                  const std::string& ceiling, int64_t perKhz) {
        Range range;
        range.name = name;
        range.lowKhz = low;
        range.highKhz = high;
        range.perKhz = perKhz;
        range.floor = AddLimit(floor);
        range.ceiling = AddLimit(ceiling);
        mRanges.push_back(std::move(range));
    }

    size_t AddLimit(const std::string& path) {
        const size_t node = NodeOf(path);
        if (node == kNone) return kNone;
        mNodes[node].isLimit = true;
        mNodes[node].value = ParseNumber(mNodes[node].boot);
        return node;
    }

    // The node called `path`, known from here on; none when the device has none.
    size_t NodeOf(const std::string& path) {
        const size_t known = KnownNode(path);
        if (known != kNone || !mKernel.Has(path)) return known;
        Node node;
        node.target = FindNode(path, mDevice, mKernel, {});
        const auto boot = mBoot.find(node.target.path);
        if (boot != mBoot.end()) node.boot = boot->second;
        mNodes.push_back(std::move(node));
        mPaths.clear();
        return mNodes.size() - 1;
    }

    size_t KnownNode(const std::string& path) {
        const auto [entry, isNew] = mPaths.try_emplace(path, kNone);
        for (size_t i = 0; isNew && i < mNodes.size(); ++i) {
            const std::string& own = mNodes[i].target.path;
            if (own == path || mKernel.IsSameNode(own, path)) entry->second = i;
        }
        return entry->second;
    }

    const std::vector<size_t>& NodesOfOpcode(int opcode) {
        const auto [entry, isNew] = mByOpcode.try_emplace(opcode);
        if (!isNew) return entry->second;
        for (const Drive& drive : DrivesOf(static_cast<uint32_t>(opcode), mDevice)) {
            const size_t node = NodeOf(drive.path);
            if (node != kNone) entry->second.push_back(node);
        }
        return entry->second;
    }

    const std::vector<size_t>& NodesOfTag(int tag) {
        const auto [entry, isNew] = mByTag.try_emplace(tag);
        if (!isNew) return entry->second;
        for (const std::string& path : TagNodes(tag, mDevice)) {
            const size_t node = NodeOf(path);
            if (node != kNone) entry->second.push_back(node);
        }
        return entry->second;
    }

    void MarkDirty(const std::vector<size_t>& nodes) {
        for (const size_t node : nodes) MarkDirty(node);
    }

    void MarkDirty(size_t node) {
        if (node == kNone || mNodes[node].isDirty) return;
        mNodes[node].isDirty = true;
        mDirty.push_back(node);
    }

    void MarkLock(const std::vector<int>& list, int tag) {
        for (size_t at = 0; at + 1 < list.size(); at += 2) MarkDirty(NodesOfOpcode(list[at]));
        if (tag >= 0) MarkDirty(NodesOfTag(tag));
    }

    void MarkPath(const std::string& path) {
        MarkDirty(KnownNode(path));
        const std::string other = OtherEnd(path);
        if (!other.empty()) MarkDirty(KnownNode(other));
    }

    // Events.

    void OnRequest(const RequestBegin& begin) {
        if (mReplay.IsCapture()) LookForDoubt();
        const RequestFacts* facts = begin.facts.get();
        if (!facts) return;
        if (facts->isRestart) {
            for (size_t i = 0; i < mNodes.size(); ++i) MarkDirty(i);
        }
        for (const TagValue& claim : facts->claims) {
            MarkDirty(NodesOfTag(claim.tag));
            if (const auto opcode = FindTagOpcode(claim.tag, mBook.ClusterLayout())) {
                MarkDirty(NodesOfOpcode(*opcode));
            }
        }
        if (!facts->who.empty() && IsAsk(*facts)) {
            ++mRequesters[IndexOf(facts->isGroup ? facts->who + "'s group" : facts->who)].asked;
        }
    }

    // A limit that is lifted, an event or a group that ends: no ask.
    static bool IsAsk(const RequestFacts& facts) {
        if (facts.cmdId) return facts.event != RequestFacts::Event::kEnds;
        if (facts.isGroup) return facts.asked.front().value >= 0;
        return std::any_of(facts.asked.begin(), facts.asked.end(), [](const TagValue& pair) {
            return pair.tag != kControlTypeTag && pair.value != 0;
        });
    }

    // In a capture it may turn out that nobody knows whether a lock is still held.
    void LookForDoubt() {
        for (const auto& [handle, lock] : mBook.Locks()) {
            if (mDoubted.count(handle) || mReplay.DoubtOf(lock).empty()) continue;
            mDoubted.insert(handle);
            MarkLock(lock.list, lock.tag);
            Hold(lock);
        }
    }

    void OnAcquire(int handle, const LockAcquire& acquire) {
        const BookedLock* lock = mBook.FindLock(handle);
        if (!lock) return;
        mDoubted.erase(handle);
        const auto former = mHolds.find(handle);
        if (former != mHolds.end() && former->second.list != acquire.list) {
            MarkLock(former->second.list, former->second.tag);
        }
        MarkLock(lock->list, lock->tag);
        Hold(*lock);
    }

    void OnEnd(const BookedLock& lock) {
        MarkLock(lock.list, lock.tag);
        const auto hold = mHolds.find(lock.handle);
        if (hold == mHolds.end()) return;
        EndHold(hold->second, false, mDoubted.count(lock.handle) ? "lines are missing" : "");
        mHolds.erase(hold);
        mDoubted.erase(lock.handle);
    }

    void OnAccess(const NodeAccess& access) {
        const bool isRead = access.kind == NodeAccess::Kind::kRead;
        const size_t node = KnownNode(access.path);
        if (node != kNone && access.error == 0) See(mNodes[node]);
        if (node != kNone && access.error == 0 && mReplay.IsCapture()) {
            TakeTold(access, mNodes[node]);
        }
        if (isRead || access.error != 0) return;
        MarkPath(access.path);
        for (const NodeValue& other : access.alsoChanged) {
            const size_t changed = KnownNode(other.path);
            if (changed != kNone) See(mNodes[changed]);
            MarkDirty(changed);
        }
    }

    // Nobody that is known makes a value that the lab does not have.
    void TakeTold(const NodeAccess& access, Node& node) {
        if (access.kind != NodeAccess::Kind::kRead) {
            node.told.reset();
            return;
        }
        const std::optional<int64_t> read = ParseNumber(access.before);
        if (!node.isLimit || !read || read == ParseNumber(mKernel.Value(node.target.path))) return;
        Account(node);
        node.told = node.value = read;
        node.winner = kUnnamed;
    }

    void See(Node& node) {
        if (node.isSeen) return;
        Account(node);
        node.isSeen = true;
    }

    // Holds: what a lock is from one owner, list or doubt to the next.

    void Hold(const BookedLock& lock) {
        const bool isDoubted = mDoubted.count(lock.handle) > 0;
        const std::string& who = isDoubted ? std::string(kUnnamed) : lock.owner;
        const auto found = mHolds.find(lock.handle);
        if (found != mHolds.end()) {
            if (mNames[found->second.who] == who && found->second.list == lock.list) return;
            EndHold(found->second, false, "");
        }
        OpenHold open;
        open.who = IndexOf(who);
        open.counts = who != kPlugin;
        open.list = lock.list;
        open.tag = lock.tag;
        open.hold.who = who;
        open.hold.what = WhatOf(lock);
        open.hold.since = mNow;
        open.hold.isEarlier = lock.isEarlier && lock.since == mNow;
        if (open.counts) mRequesters[open.who].held.Begin(mNow);
        mHolds[lock.handle] = std::move(open);
    }

    std::string WhatOf(const BookedLock& lock) const {
        const Layout layout = mBook.ClusterLayout();
        if (lock.list.empty()) {
            return lock.tag < 0 ? "not told" : TagLabel(lock.tag, layout) + ", not told";
        }
        std::string what = Timeline::PairText(lock.list[0], lock.list[1], layout);
        if (lock.list.size() > 2) what += fmt::format(" and {} more", lock.list.size() / 2 - 1);
        return what;
    }

    void EndHold(OpenHold& open, bool isHeld, const std::string& doubt) {
        if (!open.counts) return;
        mRequesters[open.who].held.End(mNow);
        open.hold.end = mNow;
        open.hold.isHeld = isHeld;
        open.hold.doubt = doubt;
        if (open.hold.since == mNow) return;
        mEnded.push_back(open.hold);
        if (mEnded.size() < 2 * kMostHolds) return;
        std::stable_sort(mEnded.begin(), mEnded.end(), IsLonger);
        mEnded.resize(kMostHolds);
    }

    // Weighing.

    void WeighDirty() {
        for (size_t i = 0; i < mDirty.size(); ++i) Weigh(mDirty[i]);
        mDirty.clear();
    }

    void Weigh(size_t index) {
        // Nodes may move while requesters' nodes become known.
        mNodes[index].isDirty = false;
        const std::vector<Holder> holders =
            WeighHolders(mNodes[index].target, mBook, mNodes[index].boot);
        Node& node = mNodes[index];
        const size_t winner = holders.empty() || !holders[0].wins ? kNone : WhoOf(holders[0]);
        std::vector<Share> shares;
        for (const Holder& holder : holders) {
            Share share{WhoOf(holder), holder.wins, kNone};
            if (!share.wins && winner != share.who) share.lostTo = winner;
            shares.push_back(share);
        }
        // The new before the old: what goes on is not interrupted.
        for (const Share& share : shares) {
            Requester& who = mRequesters[share.who];
            who.held.Begin(mNow);
            if (share.wins) who.won.Begin(mNow);
            if (share.lostTo != kNone) who.lostTo[share.lostTo].Begin(mNow);
        }
        for (const Share& share : node.shares) {
            Requester& who = mRequesters[share.who];
            who.held.End(mNow);
            if (share.wins) who.won.End(mNow);
            if (share.lostTo != kNone) who.lostTo[share.lostTo].End(mNow);
        }
        node.shares = std::move(shares);
        if (!node.isLimit) return;
        Account(node);
        node.value = ParseNumber(mKernel.Value(node.target.path));
        node.winner = winner == kNone ? "" : mNames[winner];
        if (!node.told) return;
        node.value = node.told;
        node.winner = kUnnamed;
    }

    size_t WhoOf(const Holder& holder) {
        return IndexOf(mDoubted.count(holder.handle) ? kUnnamed : holder.ask.who);
    }

    void Account(Node& node) {
        const Time time = mNow - node.since;
        node.since = mNow;
        if (time <= Time{}) return;
        if (node.isSeen) {
            node.times[node.value][node.winner] += time;
        } else {
            node.unseenValue = node.value;
            node.unseen[node.winner] += time;
        }
    }

    // The end.

    void AddRequesters(RunStats& stats) const {
        for (size_t i = 0; i < mRequesters.size(); ++i) {
            const Requester& from = mRequesters[i];
            RunStats::Requester to;
            to.name = mNames[i];
            to.asked = from.asked;
            to.held = from.held.Total(mNow);
            to.won = from.won.Total(mNow);
            // Such as a lifted limit's lock, which stays at the default.
            const bool isOfNote = to.asked > 0 || to.won > Time{} || to.name == kUnnamed;
            if (!isOfNote) continue;
            Times lost;
            for (const auto& [rival, span] : from.lostTo) lost[mNames[rival]] += span.Total(mNow);
            to.lostTo = PartsOf(lost);
            stats.requesters.push_back(std::move(to));
        }
        std::stable_sort(stats.requesters.begin(), stats.requesters.end(),
                         [](const auto& a, const auto& b) { return a.held > b.held; });
    }

    void AddRange(const Range& from, RunStats& stats) {
        RunStats::Range to;
        to.name = from.name;
        to.lowKhz = from.lowKhz;
        to.highKhz = from.highKhz;
        to.floors = ValuesOf(from.floor, from.perKhz, stats.isWhole);
        to.ceilings = ValuesOf(from.ceiling, from.perKhz, stats.isWhole);
        for (const RunStats::Value& value : to.ceilings) {
            for (const RunStats::Part& part : value.by) {
                if (part.name == kThermal) to.capped += part.time;
            }
        }
        if (from.isBus && !IsHeld(to.floors) && !IsHeld(to.ceilings)) return;
        stats.ranges.push_back(std::move(to));
    }

    // True where somebody's limit was in force, or another value than one.
    static bool IsHeld(const std::vector<RunStats::Value>& values) {
        if (values.size() != 1) return values.size() > 1;
        return std::any_of(values[0].by.begin(), values[0].by.end(),
                           [](const RunStats::Part& part) { return !part.name.empty(); });
    }

    std::vector<RunStats::Value> ValuesOf(size_t index, int64_t perKhz, bool isKnown) {
        std::vector<RunStats::Value> values;
        if (index == kNone) return values;
        Node& node = mNodes[index];
        Account(node);
        std::map<std::optional<int64_t>, Times> times = node.times;
        // Before its first line tells of it, a node may have had any value.
        for (const auto& [name, time] : node.unseen) {
            times[isKnown ? node.unseenValue : std::nullopt][isKnown ? name : ""] += time;
        }
        for (const auto& [value, by] : times) {
            RunStats::Value entry;
            if (value) entry.khz = *value / perKhz;
            entry.by = PartsOf(by);
            for (const RunStats::Part& part : entry.by) entry.time += part.time;
            if (!value) entry.by.clear();
            if (entry.time > Time{}) values.push_back(std::move(entry));
        }
        return values;
    }

    Replay& mReplay;
    const Book& mBook;
    const DeviceProfile& mDevice;
    const Kernel& mKernel;
    Time mNow{};
    bool mIsInRequest = false;
    std::map<std::string, std::string> mBoot;

    std::vector<Node> mNodes;
    std::vector<Range> mRanges;
    std::vector<size_t> mDirty;
    std::unordered_map<std::string, size_t> mPaths;  // kNone: not one of the nodes
    std::unordered_map<int, std::vector<size_t>> mByOpcode;
    std::unordered_map<int, std::vector<size_t>> mByTag;

    std::unordered_map<std::string, size_t> mIndexes;
    std::vector<std::string> mNames;
    std::vector<Requester> mRequesters;
    std::unordered_map<int, OpenHold> mHolds;  // by handle
    std::set<int> mDoubted;
    std::vector<RunStats::Hold> mEnded;
};

}  // namespace

std::vector<std::string> RunStats::NeverWon() const {
    std::vector<std::string> names;
    for (const Requester& requester : requesters) {
        // Of a capture with gaps only what is known to have lost.
        const bool isTold = isWhole || requester.held > Time{};
        if (isTold && requester.asked > 0 && requester.won == Time{}) {
            names.push_back(requester.name);
        }
    }
    return names;
}

RunStats CountRun(Replay& replay, const std::string& name) {
    Counter counter(replay);
    replay.Play([&](const Event& event) { counter.Observe(event); });
    RunStats stats;
    stats.name = name;
    replay.Describe(stats);
    counter.Finish(stats);
    return stats;
}

}  // namespace lab
