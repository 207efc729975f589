#include "lab/ask/node_story.h"

#include <fmt/format.h>

#include <algorithm>

#include "lab/ask/ask_text.h"
#include "lab/names/node_names.h"

namespace lab {

NodeStory TellNodeStory(Replay& replay, const NodeTarget& target, const std::string& boot) {
    NodeStory story;
    const Book& book = replay.GetBook();
    const Kernel& kernel = book.GetKernel();
    story.target = target;
    story.exists = kernel.Has(target.path);
    story.value = kernel.Value(target.path);
    story.boot = boot;
    story.unit = NodeUnit(target.path);
    story.holders = WeighHolders(target, book, boot);
    for (Holder& holder : story.holders) {
        const BookedLock* lock = book.FindLock(holder.handle);
        if (lock) holder.doubt = replay.DoubtOf(*lock);
        if (holder.ask.who == kUnnamed) {
            holder.notes.emplace_back("who asked is not in this capture");
        }
    }
    return story;
}

nlohmann::json NodeStoryJson(const NodeStory& story) {
    nlohmann::json json = {{"node", story.target.path},
                           {"short", ShortNode(story.target.path)},
                           {"value", story.value},
                           {"boot", story.boot},
                           {"unit", story.unit},
                           {"because", story.Because()},
                           {"holders", nlohmann::json::array()}};
    for (const Holder& holder : story.holders) json["holders"].push_back(HolderJson(holder));
    return json;
}

std::string NodeStory::Because() const {
    if (!exists) return "the scenario took the node away";
    if (holders.empty()) {
        return value == boot ? "as after boot" : "nobody asks for it: it follows other nodes";
    }
    for (const Holder& holder : holders) {
        if (holder.wins)
            return fmt::format("held by {} ({})", holder.ask.who, holder.ask.ValueText());
    }
    const bool isCut = std::any_of(holders.begin(), holders.end(), [](const Holder& holder) {
        return holder.verdict.starts_with(kFloorAboveCeiling);
    });
    if (isCut) return "a floor asked for is above the ceiling, and reads the ceiling";
    return value == boot ? "as after boot: nothing that is asked for changes it"
                         : "nobody decides it: it follows its other end or a limit of the device";
}

}  // namespace lab
