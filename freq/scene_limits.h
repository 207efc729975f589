// The live requests of scene commands on the frequency tags 0, 1, 3, 4, 6, 7, 9 and 10.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "base/tags.h"

namespace tarquel {

// No scene value: where a scan for the smallest starts.
inline constexpr int kNoSceneLimit = 2147483647;

inline constexpr size_t kSceneTags = kTagGpuMax + 1;
constexpr bool IsSceneTag(int tag) {
    return FindLimitTags(tag) != nullptr;
}

// The requests on one tag: one value above 0 for each command that asks for something. A command
// that ended is forgotten, so a scan costs what is live and not what was ever seen.
class SceneLimits {
  public:
    // Stores what `cmdId` asks for; 0 withdraws it.
    void Set(int cmdId, int value);

    // The largest and the smallest value of all commands but `cmdId`; 0 and kNoSceneLimit when no
    // other command asks for anything.
    int LargestOfOthers(int cmdId) const;
    int SmallestOfOthers(int cmdId) const;

    // The smallest value of all commands, 0 when there is none.
    int Smallest() const;

  private:
    struct Request {
        int cmdId;
        int value;
    };
    std::vector<Request> mRequests;
};

// The requests on every scene tag. Threads: callers hold the frequency manager's mutex.
class SceneTable {
  public:
    // `tag` is a scene tag.
    SceneLimits& At(int tag) { return mByTag[static_cast<size_t>(tag)]; }

  private:
    std::array<SceneLimits, kSceneTags> mByTag;
};

}  // namespace tarquel
