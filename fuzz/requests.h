// What is done to the plug-in next: requests of the server, sound and unsound ones, and what
// befalls the phone. The fuzz targets and the soak draw from here.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "fuzz/source.h"
#include "lab/phone/device_profile.h"
#include "lab/phone/faults.h"
#include "lab/server/scenario.h"

namespace fuzz {

// An action of the server's own making, which no loader has seen.
struct OwnAction {
    int cmdId = 0;
    int durationMs = 0;
    int boostLimitLevel = -1;
    int tagLen = 0;
    int stateMask = 0;
    bool skip = false;
    bool taskBoost = false;
    bool breakThrough = true;
    std::vector<int> boostLevels;
    std::vector<int> perfList;
};

// Runs a chain of such actions.
struct RunOwn {
    std::vector<OwnAction> actions;  // 1 or more, of one command
    bool isEndless = false;          // the last one leads back to the first
    bool isCompleted = false;        // boost frequencies and task id are added first
    std::vector<int> payload;        // none: a null pointer
    unsigned payloadNum = 0;         // as the server says it
};

// What befalls the phone until all is let go: a node has a fault, or the breakthrough timer cannot
// be set.
struct BreakNode {
    std::string path;
    lab::NodeFault fault;
};
struct BreakTimer {};

// The HAL refuses the next locks.
struct RefuseLocks {
    int count = 0;
    int result = 0;
};

// The server takes a lock itself and lets the plug-in end it: through the event cache, or at once.
struct HandOver {
    bool asEvent = false;
};

// A call that must be refused, with a line in the error log, or has nothing to do: no lock and no
// node may change.
struct Misuse {
    enum class Kind : uint8_t {
        kNullTags,
        kNullConfigs,
        kNegativeCount,
        kHugeCount,
        kUnknownClient,
        kLastOfLimits = kUnknownClient,
        kNullQuery,
        kHugeQuery,
        kNullCeilings,
        kLastOfQueries = kNullCeilings,
        kNullPayload,
        kSaveNothing,
        kInitializeAgain,
        kNoLock,
        kSaveTooMuch,
        kBoostClock,
        kLongMessage,
        kLast = kLongMessage,
    };
    Kind kind = Kind::kNullTags;
    int number = 0;

    // True for a call that the error log must tell of.
    bool IsLogged() const {
        return kind < Kind::kNoLock && kind != Kind::kUnknownClient && kind != Kind::kNullCeilings;
    }
};

struct Deed {
    int64_t afterMs = 0;
    std::variant<lab::Request, RunOwn, HandOver, Misuse, RefuseLocks, BreakNode, BreakTimer> what;
};

// The deed in words, for reports.
std::string Describe(const Deed& deed);

// Commands that no scene file has, and long-term scenes.
inline constexpr int kFirstOwnCommand = 20000;
inline constexpr int kOwnCommands = 8;
inline constexpr int kFirstOwnScene = 12400;
inline constexpr int kOwnScenes = 4;
static_assert(kFirstOwnScene < kFirstOwnCommand);
inline constexpr size_t kMostOwnActions = 4;

// Limits that clients and scenes share.
inline constexpr std::array<int, 8> kSharedLimits = {0, 1, 3, 4, 6, 7, 9, 10};

// Every tag that a request may name, each once.
const std::vector<int>& AllTags();

class RequestMaker {
  public:
    struct Options {
        int longestMs = 60'000;    // of what is held for a time
        int longestWaitMs = 4000;  // between two deeds
        int leastOnDemandMs = 0;   // of a duration on demand; 0: also none
    };

    // Keeps references to both.
    RequestMaker(const lab::DeviceProfile& device, const lab::SceneFile& scenes,
                 const Options& options);

    Deed Draw(Source& source) const;

  private:
    lab::Request DrawCommand(Source& source) const;
    lab::Request DrawLimits(Source& source) const;
    lab::Request DrawGroup(Source& source) const;
    lab::Request DrawControl(Source& source) const;
    lab::Request DrawQuery(Source& source) const;
    lab::Request DrawSwitch(Source& source) const;
    void DrawFate(Source& source, Deed& deed) const;
    RunOwn DrawOwn(Source& source) const;
    OwnAction DrawOwnAction(Source& source, int cmdId) const;
    OwnAction DrawOwnScene(Source& source, int cmdId) const;
    int DrawTag(Source& source) const;
    int DrawValue(Source& source, int tag) const;
    int DrawDurationMs(Source& source) const;

    const lab::DeviceProfile& mDevice;
    const Options mOptions;
    std::vector<int> mCommands;
    std::vector<int> mInteractive;
    std::vector<std::string> mNodes;
};

}  // namespace fuzz
