// A phone with the plug-in on it and a server that makes requests: what the request fuzzer and the
// soak have in common. Everything that a request does is performed here, and everything that it
// began can be let go.
#pragma once

#include <dlfcn.h>

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "fuzz/call_rules.h"
#include "fuzz/requests.h"
#include "lab/book/book.h"
#include "lab/phone/phone.h"
#include "lab/scenes/scene_file.h"
#include "lab/server/library.h"
#include "lab/server/server.h"

namespace fuzz {

// What the server has begun and not ended. Threads: any.
class Begun {
  public:
    explicit Begun(const lab::SceneFile& scenes) : mScenes(scenes) {}

    // Says that a request is over. While several threads make requests, nobody knows which of two
    // came first: then ends count for nothing.
    void Note(const Deed& deed, int result);
    void Clear();
    void SetConcurrent(bool on) { mIsConcurrent = on; }
    bool IsConcurrent() const { return mIsConcurrent; }

    // False while a control type is in force under which nothing begins or ends.
    bool IsBoosting() const;

    // Commands of the scene file that began as events and did not end.
    std::set<int> Events() const;

    // Commands of RunOwn that began.
    std::set<int> OwnCommands() const;

    // The shared limits on which each client has had a say.
    std::map<int, std::set<int>> Limits() const;

  private:
    void NoteCommand(const lab::DoCommand& asked);
    void NoteLimits(const lab::SetLimits& asked, int result);

    const lab::SceneFile& mScenes;
    mutable std::mutex mMutex;
    std::set<int> mEvents;
    std::set<int> mOwnCommands;
    std::map<int, std::set<int>> mLimits;
    bool mIsBoosting = true;
    bool mIsConcurrent = false;
};

class Desk {
  public:
    // Boots the device, reads its scenes and builds the adapter.
    Desk(const std::string& device, const lab::Phone::Options& options);
    ~Desk();

    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    lab::Phone& GetPhone() { return mPhone; }
    lab::Server& GetServer() { return mServer; }
    const lab::DeviceProfile& Device() const { return mDevice; }
    const lab::SceneFile& Scenes() const { return mScenes; }
    lab::Layout ClusterLayout() const { return mLayout; }

    // The adapter built anew; nothing is begun.
    void Restart();

    // Does it; time is the caller's. The outcome's facts are what the request asks to be held.
    // Throws a Finding (finding.h) when the result is none that the operation may have.
    // Threads: any.
    lab::Server::Outcome Perform(const Deed& deed);

    // For requests of several threads at once.
    void SetConcurrent(bool on) { mBegun.SetConcurrent(on); }

    // Says that what was begun has ended.
    void Forget() { mBegun.Clear(); }

    // Makes the phone whole again, and its CPUs run: the kernel refuses the limits of a cluster
    // whose CPUs a request has taken offline.
    void Mend();

    // The requests that end whatever is begun: scenes, events, limits, groups. What
    // the plug-in alone cannot end stays: the values of tags that are no shared limit, and the one
    // lock without a time limit outside events.
    std::vector<Deed> Endings() const;

    // What is held although nobody asks for it, after the Endings and when all time has run out.
    std::vector<std::string> Leftovers();

  private:
    using Outcome = lab::Server::Outcome;

    Outcome Do(const lab::Request& request);
    Outcome Do(const RunOwn& asked);
    Outcome Do(const HandOver& asked);
    Outcome Do(const Misuse& asked);
    Outcome Do(const RefuseLocks& fate);
    Outcome Do(const BreakNode& fate);
    Outcome Do(const BreakTimer& fate);
    void LimitWrongly(const Misuse& asked);
    void QueryWrongly(const Misuse& asked);
    void CallWrongly(const Misuse& asked);
    void SaveWrongly(Action& action, const Misuse& asked);
    lab::ActionChain Make(const RunOwn& asked);
    lab::ActionChain MakePlain();
    bool IsHeld(int handle);
    bool IsExplained(const std::string& path);

    template <typename Function>
    Function Exported(const char* symbol) const {
        return reinterpret_cast<Function>(dlsym(mHandle, symbol));
    }

    const lab::DeviceProfile mDevice;
    lab::SceneFile mScenes;
    const lab::Layout mLayout;
    lab::Phone mPhone;
    lab::Library mLibrary;
    lab::Server mServer;
    void* mHandle;  // of the library, for what it exports
    PerfAdapter* mAdapter = nullptr;
    Begun mBegun{mScenes};
    std::mutex mHandOverMutex;
    std::map<std::string, std::string> mLimitNodes;  // node of a shared limit -> value after boot
    std::vector<std::string> mOnlineNodes;
    std::map<int, int> mTagsOfOpcode;  // that are no shared limits: how many
    std::unique_ptr<lab::Book> mAtBoot;
};

}  // namespace fuzz
