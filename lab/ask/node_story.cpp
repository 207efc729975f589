#include "lab/ask/node_story.h"

#include <fmt/format.h>

#include <algorithm>

#include "lab/names/node_names.h"

namespace lab {

NodeStory TellNodeStory(const NodeTarget& target, const Book& book, const std::string& boot,
                        const std::map<std::string, int>& status) {
    NodeStory story;
    const Kernel& kernel = book.GetKernel();
    story.target = target;
    story.at = book.Now();
    story.exists = kernel.Has(target.path);
    story.value = kernel.Value(target.path);
    story.boot = boot;
    story.unit = NodeUnit(target.path);
    story.status = status;
    story.holders = WeighHolders(target, book, boot);
    story.ended.assign(book.Ended().rbegin(), book.Ended().rend());
    return story;
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
