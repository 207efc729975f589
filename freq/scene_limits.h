// The live requests of scene commands on the frequency tags 0, 1, 3, 4, 6, 7, 9 and 10.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

namespace tarquel {

// No scene value: where a scan for the smallest starts.
inline constexpr int kNoSceneLimit = 2147483647;

// The floor of a cluster or the GPU, as a scene tag.
constexpr bool IsMinTag(int tag) {
    return tag == 0 || tag == 3 || tag == 6 || tag == 9;
}
constexpr bool IsMaxTag(int tag) {
    return tag == 1 || tag == 4 || tag == 7 || tag == 10;
}
inline constexpr size_t kSceneTags = 11;  // tags 0 to 10; 2, 5 and 8 are none
constexpr bool IsSceneTag(int tag) {
    return IsMinTag(tag) || IsMaxTag(tag);
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
