#include "lab/ask/held.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "lab/names/node_names.h"
#include "lab/names/tag_names.h"
#include "lab/names/text.h"

namespace lab {
namespace {

// A boost that is meant to end has ended by then.
constexpr Time kLong = std::chrono::minutes(2);

// A lifted limit keeps a lock that limits nothing.
bool IsNobodys(const BookedLock& lock, const Book& book) {
    return lock.tag >= 0 && lock.list.size() == 2 && book.IsAtDefault(lock.list[0], lock.list[1]);
}

// Adds the hold of a lock that is over, or lasts until now.
void AddHold(const BookedLock& lock, bool isHeld, const Book& book, Time now, LongestHolds& holds) {
    if (IsNobodys(lock, book)) return;
    LockHold hold = HoldOf(lock, book.ClusterLayout());
    if (hold.what.empty()) {
        hold.what =
            lock.tag < 0 ? "what it holds is not told" : TagLabel(lock.tag, book.ClusterLayout());
    }
    hold.end = now;
    hold.isHeld = isHeld;
    holds.Add(std::move(hold));
}

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
    LongestHolds holds;
    replay.Play([&](const Event&) {
        if (const BookedLock* ended = book.EndedLock()) {
            AddHold(*ended, false, book, book.Now(), holds);
        }
    });

    HeldAnswer answer;
    replay.Describe(answer);
    for (const std::string& path : NodesOf(book, replay.Device(), boot)) {
        const NodeTarget target = FindNode(path, replay.Device(), kernel, replay.ArrangedNodes());
        NodeStory story = TellNodeStory(replay, target, boot[target.path]);
        if (story.value != story.boot || !story.holders.empty()) {
            answer.nodes.push_back(std::move(story));
        }
    }
    for (const auto& [handle, lock] : book.Locks()) AddHold(lock, true, book, answer.at, holds);
    answer.holds = holds.Take();
    if (answer.holds.size() > LongestHolds::kMost) answer.holds.resize(LongestHolds::kMost);
    AddFindings(replay, answer);
    return answer;
}

}  // namespace lab
