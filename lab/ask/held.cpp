#include "lab/ask/held.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "lab/ask/ask_text.h"
#include "lab/names/node_names.h"
#include "lab/names/table.h"
#include "lab/names/tag_names.h"
#include "lab/names/text.h"

namespace lab {
namespace {

// A boost that is meant to end has ended by then.
constexpr Time kLong = std::chrono::minutes(2);

// Adds the hold of a lock that is over, or lasts until now.
void AddHold(const BookedLock& lock, bool isHeld, const Book& book, Time now, LongestHolds& holds) {
    // A lifted limit keeps a lock that limits nothing.
    const bool isNobodys =
        lock.tag >= 0 && lock.list.size() == 2 && book.IsAtDefault(lock.list[0], lock.list[1]);
    if (isNobodys) return;
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

void PrintNode(std::ostream& out, const HeldAnswer& answer, const NodeStory& story,
               const Paint& paint) {
    const bool isDefault = story.value == story.boot;
    out << paint(Colour::kBold, fmt::format("  {:<32} {}", ShortNode(story.target.path),
                                            NodeText(story.value, story.unit)))
        << (isDefault ? "" : fmt::format(" (boot {})", NodeText(story.boot, ""))) << ", "
        << story.Because() << "\n";
    for (const Holder& holder : story.holders) {
        out << "    " << HolderText(holder, answer, paint)
            << (holder.wins ? "" : "; " + holder.verdict) << "\n";
        if (!holder.doubt.empty()) {
            out << "            " << paint(Colour::kYellow, "not sure: " + holder.doubt) << "\n";
        }
    }
}

void PrintHold(std::ostream& out, const Moments& times, const LockHold& hold) {
    out << fmt::format("  {:>10} s{} {:<28} {}\n", SecondsText(hold.end - hold.since),
                       hold.isEarlier ? "+" : " ", hold.who, hold.what)
        << fmt::format("               from {} to {}; asked by {}\n",
                       hold.isEarlier ? "before the capture" : TimeText(times, hold.since),
                       hold.isHeld ? "held" : TimeText(times, hold.end), hold.takenBy->Quoted());
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

void PrintHeld(std::ostream& out, const HeldAnswer& answer, size_t longest, const Paint& paint) {
    out << paint(Colour::kBold,
                 fmt::format("{} on {} at {}", longest > 0 ? "The longest holds" : "Held",
                             answer.device, TimeText(answer.times, answer.at)))
        << "\n  " << answer.title << "\n\n";
    const size_t count = longest > 0 ? answer.holds.size() : answer.nodes.size();
    if (count == 0) {
        out << (answer.isWhole ? "  Everything is at its default, and nobody asks for anything.\n"
                               : "  Nothing that this capture tells of is held.\n");
    }
    for (size_t i = 0; i < std::min(longest, answer.holds.size()); ++i) {
        PrintHold(out, answer.times, answer.holds[i]);
    }
    if (longest == 0) {
        for (const NodeStory& story : answer.nodes) PrintNode(out, answer, story, paint);
    }
    if (!answer.isWhole && count > 0) {
        out << paint(Colour::kYellow,
                     "\nAt least these: the capture does not tell everything (see above).")
            << "\n";
    }
    if (!answer.findings.empty()) out << "\n";
    for (const std::string& finding : answer.findings) {
        out << paint(Colour::kRed, finding) << "\n";
    }
}

std::string HeldJson(const HeldAnswer& answer) {
    using Json = nlohmann::json;
    Json json = {
        {"device", answer.device},     {"file", answer.title},       {"scenes", answer.scenes},
        {"at_ms", WholeMs(answer.at)}, {"is_whole", answer.isWhole}, {"remarks", answer.remarks},
        {"findings", answer.findings}, {"nodes", Json::array()},     {"holds", Json::array()}};
    if (answer.times.HasClock()) json["clock"] = answer.times.Stamp(answer.at);
    for (const NodeStory& story : answer.nodes) json["nodes"].push_back(NodeStoryJson(story));
    for (const LockHold& hold : answer.holds) {
        json["holds"].push_back({{"who", hold.who},
                                 {"what", hold.what},
                                 {"request", hold.takenBy->text},
                                 {"line", hold.takenBy->line},
                                 {"lock", hold.handle > 0 ? Json(hold.handle) : Json()},
                                 {"since_ms", hold.isEarlier ? Json() : Json(WholeMs(hold.since))},
                                 {"end_ms", hold.isHeld ? Json() : Json(WholeMs(hold.end))},
                                 {"lasted_ms", WholeMs(hold.end - hold.since)}});
    }
    return JsonText(json);
}

}  // namespace lab
