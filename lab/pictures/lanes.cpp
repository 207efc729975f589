#include "lab/pictures/lanes.h"

#include <algorithm>
#include <functional>
#include <map>
#include <queue>
#include <set>
#include <unordered_map>

namespace lab {
namespace {

struct Span {
    LaneSpan drawn;
    size_t who = 0;
};

// A holder's lanes, by their places among its own.
struct LanesOfHolder {
    struct Busy {
        Time until{};
        size_t lane = 0;

        bool operator>(const Busy& other) const {
            return until > other.until || (until == other.until && lane > other.lane);
        }
    };

    std::vector<Lane> lanes;
    std::map<int, std::vector<size_t>> lanesOfTag;
    std::priority_queue<Busy, std::vector<Busy>, std::greater<>> busy;  // those of no tag
    std::set<size_t> free;
};

class LaneMaker {
  public:
    LaneMaker(const History& history, Layout layout) : mHistory(history), mLayout(layout) {}

    std::vector<Lane> Make() {
        std::vector<Span> spans = Spans();
        std::stable_sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) {
            return a.drawn.since < b.drawn.since;
        });
        for (const Span& span : spans) {
            if (!mIsSeen[span.who]) mOrder.push_back(span.who);
            mIsSeen[span.who] = true;
            Place(span);
        }
        std::vector<Lane> all;
        for (const size_t who : mOrder) {
            for (Lane& lane : mHolders[who].lanes) all.push_back(std::move(lane));
        }
        return all;
    }

  private:
    // What each holder had of each lock, in the locks' order.
    std::vector<Span> Spans() {
        std::vector<Span> spans;
        for (size_t index = 0; index < mHistory.Locks().size(); ++index) {
            const History::Lock& lock = mHistory.Locks()[index];
            const size_t first = spans.size();
            for (const History::Holding& holding : lock.holdings) {
                const size_t who = NumberOf(mHistory.WhoOf(holding.request));
                if (spans.size() > first) {
                    if (spans.back().who == who) continue;
                    spans.back().drawn.end = holding.since;
                    // Held for no time at all before it changed hands.
                    if (spans.back().drawn.since == holding.since) spans.pop_back();
                }
                spans.push_back({{index, holding.since, lock.end}, who});
            }
        }
        return spans;
    }

    size_t NumberOf(std::string who) {
        const auto [entry, isNew] = mNumbers.try_emplace(std::move(who), mHolders.size());
        if (isNew) {
            mHolders.emplace_back();
            mWhos.push_back(&entry->first);
            mIsSeen.push_back(false);
        }
        return entry->second;
    }

    // The tag whose limit the lock is; nothing for the lock of an action.
    std::optional<int> TagOf(const History::Lock& lock) {
        const History::Term& term = lock.terms.front();
        if (term.until || term.list.size() != 2) return std::nullopt;
        const auto [entry, isNew] = mTags.try_emplace(term.list.front());
        if (isNew) entry->second = FindOpcodeTag(term.list.front(), mLayout);
        return entry->second;
    }

    void Place(const Span& span) {
        LanesOfHolder& holder = mHolders[span.who];
        const std::optional<int> tag = TagOf(mHistory.Locks()[span.drawn.lock]);
        const size_t lane = tag ? LaneOfTag(holder, *tag, span) : FreeLane(holder, span);
        holder.lanes[lane].spans.push_back(span.drawn);
    }

    size_t LaneOfTag(LanesOfHolder& holder, int tag, const Span& span) {
        std::vector<size_t>& lanes = holder.lanesOfTag[tag];
        for (const size_t lane : lanes) {
            if (holder.lanes[lane].spans.back().end <= span.drawn.since) return lane;
        }
        lanes.push_back(AddLane(holder, span, " " + TagLabel(tag, mLayout), lanes.size()));
        return lanes.back();
    }

    size_t FreeLane(LanesOfHolder& holder, const Span& span) {
        while (!holder.busy.empty() && holder.busy.top().until <= span.drawn.since) {
            holder.free.insert(holder.busy.top().lane);
            holder.busy.pop();
        }
        const size_t others = holder.busy.size();
        const size_t lane =
            holder.free.empty() ? AddLane(holder, span, "", others) : *holder.free.begin();
        holder.free.erase(lane);
        holder.busy.push({span.drawn.end, lane});
        return lane;
    }

    size_t AddLane(LanesOfHolder& holder, const Span& span, const std::string& tag, size_t others) {
        std::string name = NameOfWho(*mWhos[span.who]) + tag;
        if (others > 0) name += " (" + std::to_string(others + 1) + ")";
        holder.lanes.push_back({std::move(name), *mWhos[span.who], {}});
        return holder.lanes.size() - 1;
    }

    const History& mHistory;
    const Layout mLayout;
    std::unordered_map<std::string, size_t> mNumbers;  // who -> place in what follows
    std::vector<const std::string*> mWhos;
    std::vector<LanesOfHolder> mHolders;
    std::vector<bool> mIsSeen;
    std::vector<size_t> mOrder;
    std::unordered_map<int, std::optional<int>> mTags;  // by opcode
};

}  // namespace

std::vector<Lane> LanesOf(const History& history, Layout layout) {
    return LaneMaker(history, layout).Make();
}

}  // namespace lab
