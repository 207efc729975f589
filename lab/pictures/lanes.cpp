#include "lab/pictures/lanes.h"

#include <algorithm>
#include <map>

namespace lab {

std::vector<Lane> LanesOf(const History& history) {
    std::vector<std::string> holders;  // by first appearance
    std::map<std::string, std::vector<Lane>> lanesOf;
    for (size_t index = 0; index < history.Locks().size(); ++index) {
        const History::Lock& lock = history.Locks()[index];
        const std::string holder = history.HolderOf(lock.terms.front());
        const auto [entry, isNew] = lanesOf.try_emplace(holder);
        if (isNew) holders.push_back(holder);
        std::vector<Lane>& lanes = entry->second;
        auto lane = std::find_if(lanes.begin(), lanes.end(), [&](const Lane& candidate) {
            return history.Locks()[candidate.locks.back()].end <= lock.Since();
        });
        if (lane == lanes.end()) {
            std::string name = holder;
            if (!lanes.empty()) name += " (" + std::to_string(lanes.size() + 1) + ")";
            lane = lanes.insert(lanes.end(), Lane{std::move(name), holder, {}});
        }
        lane->locks.push_back(index);
    }
    std::vector<Lane> all;
    for (const std::string& holder : holders) {
        for (Lane& lane : lanesOf[holder]) all.push_back(std::move(lane));
    }
    return all;
}

}  // namespace lab
