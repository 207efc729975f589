#include "freq/scene_limits.h"

#include <algorithm>

namespace tarquel {

void SceneLimits::Set(int cmdId, int value) {
    const auto found = std::find_if(mRequests.begin(), mRequests.end(),
                                    [=](const Request& request) { return request.cmdId == cmdId; });
    if (value == 0) {
        if (found == mRequests.end()) return;
        *found = mRequests.back();
        mRequests.pop_back();
    } else if (found != mRequests.end()) {
        found->value = value;
    } else {
        mRequests.push_back({cmdId, value});
    }
}

int SceneLimits::LargestOfOthers(int cmdId) const {
    int largest = 0;
    for (const Request& request : mRequests) {
        if (request.cmdId != cmdId) largest = std::max(largest, request.value);
    }
    return largest;
}

int SceneLimits::SmallestOfOthers(int cmdId) const {
    int smallest = kNoSceneLimit;
    for (const Request& request : mRequests) {
        if (request.cmdId != cmdId) smallest = std::min(smallest, request.value);
    }
    return smallest;
}

int SceneLimits::Smallest() const {
    int smallest = kNoSceneLimit;
    for (const Request& request : mRequests) smallest = std::min(smallest, request.value);
    return smallest == kNoSceneLimit ? 0 : smallest;
}

}  // namespace tarquel
