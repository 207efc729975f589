#include "lab/ask/run_stats.h"

#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <unordered_map>

#include "lab/ask/limit_times.h"
#include "lab/ask/node_verdicts.h"
#include "lab/hal/opcode_drives.h"
#include "lab/names/node_names.h"
#include "lab/names/text.h"

namespace lab {
namespace {

constexpr char kPlugin[] = "the plug-in";

class Counter {
  public:
    explicit Counter(Replay& replay)
        : mReplay(replay),
          mBook(replay.GetBook()),
          mDevice(replay.Device()),
          mKernel(replay.GetPhone().GetKernel()) {
        for (const std::string& path : mKernel.Paths()) mBoot[path] = mKernel.Value(path);
        for (FrequencyRange& range : FrequencyRangesOf(mDevice)) {
            mRanges.push_back({std::move(range)});
        }
        for (LimitRange& range : mRanges) {
            Watch(range.nodes.front() + "min_freq", range.floor);
            Watch(range.nodes.front() + "max_freq", range.ceiling);
        }
    }

    void Observe(const Event& event) {
        mNow = event.at;
        if (const auto* begin = std::get_if<RequestBegin>(&event.what)) {
            mIsInRequest = true;
            OnRequest(*begin);
        } else if (const auto* acquire = std::get_if<LockAcquire>(&event.what)) {
            if (acquire->IsGranted()) OnAcquire(*acquire);
        } else if (const auto* access = std::get_if<NodeAccess>(&event.what)) {
            OnAccess(*access);
        } else if (std::holds_alternative<RequestEnd>(event.what)) {
            mIsInRequest = false;
        }
        if (const BookedLock* ended = mBook.EndedLock()) OnEnd(*ended);
        for (const int handle : mBook.ChangedHands()) Hold(*mBook.FindLock(handle));
        // What a request does is looked at when it is over: everything in between lasts no time
        // that anybody has.
        if (!mIsInRequest) WeighDirty();
    }

    void Finish(RunStats& stats) {
        mNow = stats.at;
        WeighDirty();
        for (const auto& [handle, lock] : mBook.Locks()) {
            EndHold(mHolds[handle], true, mReplay.DoubtOf(lock));
        }
        stats.holds = mEnded.Take();
        AddRequesters(stats);
        for (LimitRange& range : mRanges) AddRange(range, stats);
    }

  private:
    struct Requester {
        RunStats::Requester counted;
        Span held;
        Span won;
        std::map<std::string, Span> lostTo;
    };

    struct Node {
        NodeTarget target;
        std::string boot;
        bool isDirty = false;
        std::vector<Span*> spans;  // of requesters, that go on as long as the node stays as it is
        LimitTimes* limit = nullptr;  // of one whose values are counted
        // What a capture reads there where the lab has another value; until it is written.
        std::optional<int64_t> told;
    };

    struct OpenHold {
        Requester* who = nullptr;
        LockHold hold;
        std::vector<int> list;
        int tag = -1;
    };

    Requester& RequesterCalled(const std::string& name) {
        const auto [entry, isNew] = mByName.try_emplace(name, nullptr);
        if (isNew) {
            entry->second = &mRequesters.emplace_back();
            entry->second->counted.name = name;
        }
        return *entry->second;
    }

    // Nodes.

    // What the node reads is counted, where the device has it.
    void Watch(const std::string& path, std::optional<LimitTimes>& times) {
        Node* node = AddNode(path);
        if (node) node->limit = &times.emplace(ParseNumber(node->boot));
    }

    // The node called `path`, known from here on; null when the device has none.
    Node* AddNode(const std::string& path) {
        Node* known = KnownNode(path);
        if (known || !mKernel.Has(path)) return known;
        Node& node = mNodes.emplace_back();
        node.target = FindNode(path, mDevice, mKernel, {});
        node.boot = mBoot[node.target.path];
        mPaths.clear();
        return &node;
    }

    Node* KnownNode(const std::string& path) {
        const auto [entry, isNew] = mPaths.try_emplace(path, nullptr);
        if (!isNew) return entry->second;
        for (Node& node : mNodes) {
            const std::string& own = node.target.path;
            if (own == path || mKernel.IsSameNode(own, path)) entry->second = &node;
        }
        return entry->second;
    }

    void MarkOpcode(int opcode) {
        const auto [entry, isNew] = mByOpcode.try_emplace(opcode);
        if (isNew) {
            for (const Drive& drive : DrivesOf(static_cast<uint32_t>(opcode), mDevice)) {
                entry->second.push_back(AddNode(drive.path));
            }
        }
        for (Node* node : entry->second) Mark(node);
    }

    void MarkTag(int tag) {
        const auto [entry, isNew] = mByTag.try_emplace(tag);
        if (isNew) {
            for (const std::string& path : TagNodes(tag, mDevice)) {
                entry->second.push_back(AddNode(path));
            }
        }
        for (Node* node : entry->second) Mark(node);
    }

    void MarkLock(const std::vector<int>& list, int tag) {
        for (size_t at = 0; at + 1 < list.size(); at += 2) MarkOpcode(list[at]);
        if (tag >= 0) MarkTag(tag);
    }

    // To be weighed again; null: nothing.
    void Mark(Node* node) {
        if (!node || node->isDirty) return;
        node->isDirty = true;
        mDirty.push_back(node);
    }

    // Events.

    void OnRequest(const RequestBegin& begin) {
        if (mReplay.IsCapture()) LookForDoubt();
        const RequestFacts* facts = begin.facts.get();
        if (!facts) return;
        if (facts->isRestart) {
            for (Node& node : mNodes) Mark(&node);
        }
        for (const TagValue& claim : facts->claims) {
            MarkTag(claim.tag);
            const std::optional<int> opcode = FindTagOpcode(claim.tag, mBook.ClusterLayout());
            if (opcode) MarkOpcode(*opcode);
        }
        if (!facts->who.empty() && IsAsk(*facts)) {
            ++RequesterCalled(facts->isGroup ? facts->who + "'s group" : facts->who).counted.asked;
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

    void OnAcquire(const LockAcquire& acquire) {
        const BookedLock& lock = *mBook.FindLock(acquire.returned);
        mDoubted.erase(lock.handle);
        const auto former = mHolds.find(lock.handle);
        if (former != mHolds.end() && former->second.list != lock.list) {
            MarkLock(former->second.list, former->second.tag);
        }
        MarkLock(lock.list, lock.tag);
        Hold(lock);
    }

    void OnEnd(const BookedLock& lock) {
        MarkLock(lock.list, lock.tag);
        EndHold(mHolds[lock.handle], false, mDoubted.count(lock.handle) ? "lines are missing" : "");
        mHolds.erase(lock.handle);
        mDoubted.erase(lock.handle);
    }

    void OnAccess(const NodeAccess& access) {
        if (access.error != 0) return;
        Node* node = KnownNode(access.path);
        if (node && node->limit) {
            node->limit->See(mNow);
            if (mReplay.IsCapture()) TakeTold(access, *node);
        }
        if (access.kind == NodeAccess::Kind::kRead) return;
        Mark(node);
        const std::string other = OtherEnd(access.path);
        if (!other.empty()) Mark(KnownNode(other));
        for (const NodeValue& changed : access.alsoChanged) {
            Node* follower = KnownNode(changed.path);
            if (follower && follower->limit) follower->limit->See(mNow);
            Mark(follower);
        }
    }

    // Nobody that is known makes a value that the lab does not have.
    void TakeTold(const NodeAccess& access, Node& node) {
        if (access.kind != NodeAccess::Kind::kRead) {
            node.told.reset();
            return;
        }
        const std::optional<int64_t> read = ParseNumber(access.before);
        if (!read || read == ParseNumber(mKernel.Value(node.target.path))) return;
        node.told = read;
        node.limit->Set(mNow, read, kUnnamed);
    }

    // Holds: what a lock is from one owner, list or doubt to the next.

    void Hold(const BookedLock& lock) {
        const std::string who = mDoubted.count(lock.handle) ? kUnnamed : lock.owner;
        OpenHold& open = mHolds[lock.handle];
        if (open.hold.who == who && open.list == lock.list) return;
        EndHold(open, false, "");
        open = {who == kPlugin ? nullptr : &RequesterCalled(who),
                HoldOf(lock, mBook.ClusterLayout()), lock.list, lock.tag};
        if (open.who) open.who->held.Begin(mNow);
        LockHold& hold = open.hold;
        hold.who = who;
        hold.since = mNow;
        hold.isEarlier = lock.isEarlier && lock.since == mNow;
        if (hold.what.empty() && lock.tag >= 0) {
            hold.what = TagLabel(lock.tag, mBook.ClusterLayout()) + ", ";
        }
        if (lock.list.empty()) hold.what += "not told";
    }

    void EndHold(OpenHold& open, bool isHeld, const std::string& doubt) {
        if (!open.who) return;
        open.who->held.End(mNow);
        open.hold.end = mNow;
        open.hold.isHeld = isHeld;
        open.hold.doubt = doubt;
        if (open.hold.since != mNow) mEnded.Add(open.hold);
    }

    // Weighing.

    void WeighDirty() {
        for (size_t i = 0; i < mDirty.size(); ++i) Weigh(*mDirty[i]);
        mDirty.clear();
    }

    void Weigh(Node& node) {
        node.isDirty = false;
        const std::vector<Holder> holders = WeighHolders(node.target, mBook, node.boot);
        const Requester* winner =
            holders.empty() || !holders[0].wins ? nullptr : &RequesterOf(holders[0]);
        std::vector<Span*> spans;
        for (const Holder& holder : holders) {
            Requester& who = RequesterOf(holder);
            spans.push_back(&who.held);
            if (holder.wins) {
                spans.push_back(&who.won);
            } else if (winner && winner != &who) {
                spans.push_back(&who.lostTo[winner->counted.name]);
            }
        }
        // The new before the old: what goes on is not interrupted.
        for (Span* span : spans) span->Begin(mNow);
        for (Span* span : node.spans) span->End(mNow);
        node.spans = std::move(spans);
        if (!node.limit) return;
        if (node.told) {
            node.limit->Set(mNow, node.told, kUnnamed);
        } else {
            node.limit->Set(mNow, ParseNumber(mKernel.Value(node.target.path)),
                            winner ? winner->counted.name : "");
        }
    }

    Requester& RequesterOf(const Holder& holder) {
        return RequesterCalled(mDoubted.count(holder.handle) ? kUnnamed : holder.ask.who);
    }

    // The end.

    void AddRequesters(RunStats& stats) const {
        for (const Requester& from : mRequesters) {
            RunStats::Requester to = from.counted;
            to.held = from.held.Total(mNow);
            to.won = from.won.Total(mNow);
            // Such as a lifted limit's lock, which stays at the default.
            const bool isOfNote = to.asked > 0 || to.won > Time{} || to.name == kUnnamed;
            if (!isOfNote) continue;
            Times lost;
            for (const auto& [rival, span] : from.lostTo) lost[rival] = span.Total(mNow);
            to.lostTo = PartsOf(lost);
            stats.requesters.push_back(std::move(to));
        }
        std::stable_sort(stats.requesters.begin(), stats.requesters.end(),
                         [](const auto& a, const auto& b) { return a.held > b.held; });
    }

    Replay& mReplay;
    const Book& mBook;
    const DeviceProfile& mDevice;
    const Kernel& mKernel;
    std::vector<LimitRange> mRanges;
    Time mNow{};
    bool mIsInRequest = false;
    std::map<std::string, std::string> mBoot;

    // What points to nodes and requesters needs them to stay where they are.
    std::deque<Node> mNodes;
    std::vector<Node*> mDirty;
    std::unordered_map<std::string, Node*> mPaths;  // null: not one of the nodes
    std::unordered_map<int, std::vector<Node*>> mByOpcode;
    std::unordered_map<int, std::vector<Node*>> mByTag;

    std::deque<Requester> mRequesters;  // in the order in which they come up
    std::unordered_map<std::string, Requester*> mByName;
    std::unordered_map<int, OpenHold> mHolds;  // by handle
    std::set<int> mDoubted;
    LongestHolds mEnded;
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
