#include "lab/ask/run_comparison.h"

#include <algorithm>
#include <regex>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "lab/names/node_names.h"
#include "lab/names/text.h"

namespace lab {
namespace {

using Kind = RunDifference::Kind;

// How far ahead the same requests are looked for, and how many in a row make sure of the place.
constexpr size_t kWindow = 200;
constexpr size_t kSureRow = 3;
// The places of both runs that belong together, in order.
using Pairs = std::vector<std::pair<size_t, size_t>>;

// A request that is compared, with those before it that are left out.
struct Compared {
    const RunRecord::Request* first = nullptr;
    const RunRecord::Request* request = nullptr;
};
using Requests = std::vector<Compared>;

class Aligner {
  public:
    Aligner(const Requests& before, const Requests& after)
        : mBefore(NumbersOf(before)), mAfter(NumbersOf(after)) {}

    Pairs Align() const {
        Pairs pairs;
        size_t b = 0;
        size_t a = 0;
        while (b < mBefore.size() && a < mAfter.size()) {
            if (mBefore[b] == mAfter[a]) {
                pairs.emplace_back(b++, a++);
                continue;
            }
            const auto [skipBefore, skipAfter] = NextPlace(b, a);
            b += skipBefore;
            a += skipAfter;
        }
        return pairs;
    }

  private:
    std::vector<int> NumbersOf(const Requests& run) {
        std::vector<int> numbers;
        for (const Compared& compared : run) {
            const int next = static_cast<int>(mNumbers.size());
            numbers.push_back(mNumbers.try_emplace(compared.request->text, next).first->second);
        }
        return numbers;
    }

    // How much of each to pass over for the nearest place from which they go on alike; one of each
    // where there is none.
    std::pair<size_t, size_t> NextPlace(size_t b, size_t a) const {
        for (const size_t row : {kSureRow, size_t{1}}) {
            for (size_t all = 1; all <= kWindow; ++all) {
                for (size_t skip = 0; skip <= all; ++skip) {
                    if (IsAlike(b + skip, a + all - skip, row)) return {skip, all - skip};
                }
            }
        }
        return {1, 1};
    }

    bool IsAlike(size_t b, size_t a, size_t row) const {
        if (b + row > mBefore.size() || a + row > mAfter.size()) return false;
        for (size_t i = 0; i < row; ++i) {
            if (mBefore[b + i] != mAfter[a + i]) return false;
        }
        return true;
    }

    std::unordered_map<std::string, int> mNumbers;
    const std::vector<int> mBefore;
    const std::vector<int> mAfter;
};

// When and where it was found is not the same in two runs.
std::string WithoutPlace(const std::string& finding) {
    static const std::regex place("^[0-9.]+ s: | \\(line [0-9]+\\)|, at [0-9.]+ s");
    return std::regex_replace(finding, place, "");
}

// One of the runs, as far as it is compared.
struct Side {
    const RunRecord& run;
    Requests requests;
    std::map<std::string, std::string> nodes;  // at the requests being compared
};

class Comparer {
  public:
    Comparer(const RunRecord& before, const RunRecord& after)
        // A log has no word of what a scenario does itself: it looks, expects, arranges.
        : mBefore(SideOf(before, before.isCapture == after.isCapture)),
          mAfter(SideOf(after, before.isCapture == after.isCapture)) {
        mResult.before = before.name;
        mResult.after = after.name;
        mResult.beforeTimes = before.times;
        mResult.afterTimes = after.times;
        mResult.isWhole = before.isWhole && after.isWhole;
    }

    RunComparison Compare() {
        if (mBefore.run.device != mAfter.run.device) {
            Add({Kind::kDevice, "", {}, {}, "the device", mBefore.run.device, mAfter.run.device});
        }
        const Pairs pairs = Aligner(mBefore.requests, mAfter.requests).Align();
        mResult.same = pairs.size();
        size_t b = 0;
        size_t a = 0;
        for (const auto& [nextB, nextA] : pairs) {
            AddUnpaired(b, nextB, a, nextA);
            b = nextB + 1;
            a = nextA + 1;
            CompareRequests(mBefore.requests[nextB], mAfter.requests[nextA]);
        }
        AddUnpaired(b, mBefore.requests.size(), a, mAfter.requests.size());
        CompareFindings();
        return std::move(mResult);
    }

  private:
    static Side SideOf(const RunRecord& run, bool isAll) {
        // Before a capture that is not whole shows a node, nobody knows what it reads.
        Side side{run, {}, run.isWhole ? run.nodes : std::map<std::string, std::string>()};
        const RunRecord::Request* first = nullptr;
        for (const RunRecord::Request& request : run.requests) {
            if (!first) first = &request;
            if (!isAll && !request.asks) continue;
            side.requests.push_back({first, &request});
            first = nullptr;
        }
        return side;
    }

    // One that is so again is counted where it was so first.
    void Add(RunDifference difference) {
        const auto key = std::tuple(difference.kind, difference.request, difference.what,
                                    difference.before, difference.after);
        const auto [known, isNew] = mKnown.try_emplace(key, mResult.differences.size());
        if (isNew) {
            mResult.differences.push_back(std::move(difference));
        } else {
            ++mResult.differences[known->second].times;
        }
    }

    void AddUnpaired(size_t b, size_t endB, size_t a, size_t endA) {
        for (; b < endB; ++b) {
            const RunRecord::Request& request = *mBefore.requests[b].request;
            Add({Kind::kGone, request.text, request.place});
            Enter(mBefore.requests[b], mBefore.nodes);
        }
        for (; a < endA; ++a) {
            const RunRecord::Request& request = *mAfter.requests[a].request;
            Add({Kind::kNew, request.text, {}, request.place});
            Enter(mAfter.requests[a], mAfter.nodes);
        }
    }

    void Enter(const Compared& compared, std::map<std::string, std::string>& nodes) {
        for (const RunRecord::Request* at = compared.first; at <= compared.request; ++at) {
            for (const auto& [name, value] : at->changed) {
                nodes[name] = value;
                mTouched.insert(name);
            }
        }
    }

    void CompareRequests(const Compared& former, const Compared& latter) {
        const RunRecord::Request& before = *former.request;
        const RunRecord::Request& after = *latter.request;
        const auto tell = [&](Kind kind, const std::string& what, const std::string& was,
                              const std::string& is, const std::string& unit = "") {
            Add({kind, before.text, before.place, after.place, what, was, is, unit});
        };
        if (before.result != after.result && !before.result.empty() && !after.result.empty()) {
            tell(Kind::kResult, "gives", before.result, after.result);
        }
        for (size_t i = 0; i < std::max(before.locks.size(), after.locks.size()); ++i) {
            static const RunRecord::Lock none;
            const RunRecord::Lock& was = i < before.locks.size() ? before.locks[i] : none;
            const RunRecord::Lock& is = i < after.locks.size() ? after.locks[i] : none;
            if (was.lasts != is.lasts) tell(Kind::kLock, "its lock lasts", was.lasts, is.lasts);
            if (IsUntold(was) || IsUntold(is)) continue;
            const std::string lost = OnlyIn(was.pairs, is.pairs);
            const std::string gained = OnlyIn(is.pairs, was.pairs);
            if (lost != gained) tell(Kind::kLock, "its lock holds", lost, gained);
        }
        // A value that differs is told once, at the first request that has it so.
        Enter(former, mBefore.nodes);
        Enter(latter, mAfter.nodes);
        for (const std::string& name : mTouched) {
            const auto known = mBefore.nodes.find(name);
            const auto other = mAfter.nodes.find(name);
            if (known == mBefore.nodes.end() || other == mAfter.nodes.end()) continue;
            const std::pair values(known->second, other->second);
            if (std::exchange(mToldNodes[name], values) == values) continue;
            if (values.first == values.second) continue;
            tell(Kind::kValue, ShortNode(name), values.first, values.second, NodeUnit(name));
        }
        mTouched.clear();
    }

    // A capture may tell of a lock without what it holds.
    static bool IsUntold(const RunRecord::Lock& lock) {
        return lock.pairs.empty() && !lock.lasts.empty();
    }

    // Those that the other does not have.
    static std::string OnlyIn(const std::vector<std::string>& pairs,
                              const std::vector<std::string>& others) {
        std::vector<std::string> only;
        for (const std::string& pair : pairs) {
            if (std::find(others.begin(), others.end(), pair) == others.end()) only.push_back(pair);
        }
        return Join(only);
    }

    void CompareFindings() {
        if (mBefore.run.isCapture != mAfter.run.isCapture) return;
        std::map<std::string, std::pair<size_t, size_t>> counts;
        for (const std::string& finding : mBefore.run.findings) {
            ++counts[WithoutPlace(finding)].first;
        }
        for (const std::string& finding : mAfter.run.findings) {
            ++counts[WithoutPlace(finding)].second;
        }
        for (const auto& [finding, count] : counts) {
            if (count.first == count.second) continue;
            Add({Kind::kFinding,
                 "",
                 {},
                 {},
                 "finding: " + finding,
                 TimesText(count.first),
                 TimesText(count.second)});
        }
    }

    static std::string TimesText(size_t count) { return count ? Counted(count, "time") : ""; }

    Side mBefore;
    Side mAfter;
    std::set<std::string> mTouched;  // nodes, since the last two that were compared
    std::map<std::string, std::pair<std::string, std::string>> mToldNodes;
    std::map<std::tuple<Kind, std::string, std::string, std::string, std::string>, size_t> mKnown;
    RunComparison mResult;
};

}  // namespace

RunComparison CompareRuns(const RunRecord& before, const RunRecord& after) {
    return Comparer(before, after).Compare();
}

}  // namespace lab
