#include "lab/ask/held.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "lab/names/node_names.h"
#include "lab/names/resource_names.h"
#include "lab/names/text.h"

namespace lab {
namespace {

// A boost that is meant to end has ended by then.
constexpr Time kLong = std::chrono::minutes(2);

std::string WhatOf(const BookedLock& lock, Layout layout) {
    if (lock.list.size() < 2) {
        return lock.tag < 0 ? "what it holds is not told" : TagLabel(lock.tag, layout);
    }
    const Resource resource = ResourceOf(lock.list[0], layout);
    std::string what = resource.name + " " + BoundText(resource.bound, lock.list[1], resource.unit);
    if (lock.list.size() > 2) what += fmt::format(" and {} more", lock.list.size() / 2 - 1);
    return what;
}

HeldAnswer::Hold HoldOf(const BookedLock& lock, Layout layout, std::optional<Time> end) {
    HeldAnswer::Hold hold{lock.owner,
                          WhatOf(lock, layout),
                          lock.takenBy->text,
                          lock.takenBy->line,
                          lock.handle,
                          lock.since,
                          end};
    if (lock.isEarlier) hold.since.reset();
    return hold;
}

// Goes along with a replay and keeps the holds that end.
class Holds {
  public:
    explicit Holds(const Book& book) : mBook(book) {}

    void Observe() {
        const BookedLock* ended = mBook.EndedLock();
        if (!ended || IsNobodys(*ended)) return;
        mEnded.push_back(HoldOf(*ended, mBook.ClusterLayout(), mBook.Now()));
        // Of a day's boosts the longest are enough.
        if (mEnded.size() > 2 * kMost) Trim();
    }

    std::vector<HeldAnswer::Hold> Longest(Time now) {
        for (const auto& [handle, lock] : mBook.Locks()) {
            if (IsNobodys(lock)) continue;
            mEnded.push_back(HoldOf(lock, mBook.ClusterLayout(), std::nullopt));
        }
        mNow = now;
        Trim();
        return std::move(mEnded);
    }

  private:
    static constexpr size_t kMost = 1000;

    // A lifted limit keeps a lock that limits nothing.
    bool IsNobodys(const BookedLock& lock) const {
        return lock.tag >= 0 && lock.list.size() == 2 &&
               mBook.IsAtDefault(lock.list[0], lock.list[1]);
    }

    Time LengthOf(const HeldAnswer::Hold& hold) const {
        return hold.end.value_or(mNow) - hold.since.value_or(Time(0));
    }

    void Trim() {
        std::stable_sort(mEnded.begin(), mEnded.end(), [this](const auto& a, const auto& b) {
            return LengthOf(a) > LengthOf(b);
        });
        if (mEnded.size() > kMost) mEnded.resize(kMost);
    }

    const Book& mBook;
    Time mNow{};
    std::vector<HeldAnswer::Hold> mEnded;
};

// The paths of all nodes that locks, words and writes bear on, one for each node.
std::vector<std::string> NodesOf(const Book& book, const DeviceProfile& device,
                                 const std::map<std::string, std::string>& boot) {
    std::set<std::string> wanted;
    for (const auto& [handle, lock] : book.Locks()) {
        for (const auto* drives : lock.drives) {
            for (const BookedLock::Driven& driven : *drives) wanted.insert(driven.drive.path);
        }
    }
    for (const Ask& word : book.Words()) {
        for (const std::string& path : TagNodes(word.tag, device)) wanted.insert(path);
    }
    const Kernel& kernel = book.GetKernel();
    for (const auto& [path, value] : boot) {
        if (kernel.Value(path) != value) wanted.insert(path);
    }
    std::vector<std::string> nodes;
    for (const std::string& path : wanted) {
        if (Book::IsUnwatched(path) || !kernel.Has(path)) continue;
        const bool isTold = std::any_of(nodes.begin(), nodes.end(), [&](const auto& other) {
            return kernel.IsSameNode(other, path);
        });
        if (!isTold) nodes.push_back(path);
    }
    return nodes;
}

void AddFindings(Replay& replay, HeldAnswer& answer) {
    for (const auto& [handle, lock] : replay.GetBook().Locks()) {
        const Time length = answer.at - lock.since;
        if (lock.until || lock.tag >= 0 || lock.isEarlier || length < kLong) continue;
        const RequestFacts* facts = lock.takenBy->facts.get();
        const bool isEvent = facts && facts->event == RequestFacts::Event::kBegins;
        const std::string held =
            fmt::format("lock {} of {} is held until released, for {} s already", handle,
                        lock.owner, SecondsText(length));
        answer.findings.push_back(
            held + (isEvent ? fmt::format(": its event began with {} and has not ended",
                                          lock.takenBy->Quoted())
                            : fmt::format(": {} took it, and nothing has released it",
                                          lock.takenBy->Quoted())));
    }
}

}  // namespace

HeldAnswer AskHeld(Replay& replay) {
    Book& book = replay.GetBook();
    const Kernel& kernel = replay.GetPhone().GetKernel();
    std::map<std::string, std::string> boot;
    for (const std::string& path : kernel.Paths()) boot[path] = kernel.Value(path);
    Holds holds(book);
    replay.Play([&](const Event&) { holds.Observe(); });

    HeldAnswer answer;
    replay.Describe(answer);
    for (const std::string& path : NodesOf(book, replay.Device(), boot)) {
        const NodeTarget target = FindNode(path, replay.Device(), kernel, replay.ArrangedNodes());
        NodeStory story = TellNodeStory(replay, target, boot[target.path]);
        if (story.value != story.boot || !story.holders.empty()) {
            answer.nodes.push_back(std::move(story));
        }
    }
    answer.holds = holds.Longest(answer.at);
    AddFindings(replay, answer);
    return answer;
}

}  // namespace lab
