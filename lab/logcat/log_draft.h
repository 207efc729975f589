// A request that is being rebuilt from log lines, one for each thread.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "lab/logcat/log_story.h"
#include "lab/phone/device_profile.h"
#include "lab/server/scenario.h"

namespace lab {

// The nodes of a device, as the reader of a log asks for them.
struct KnownNodes {
    explicit KnownNodes(const DeviceProfile& device);

    std::map<std::string, int> tagOf;       // node -> the first tag that reaches it
    std::unordered_set<std::string> names;  // of every node that the device has
};

struct LogDraft {
    enum class Kind : uint8_t {
        kNone,
        kCommand,   // an action chain
        kScene,     // a long scene: tags to the frequency manager
        kLimit,     // a client's limits or group; without tags the restoring of limits
        kRead,      // values of nodes
        kCeilings,  // the ceilings of a command
    };

    Kind kind = Kind::kNone;
    Time at{};
    Time last{};
    int line = 0;
    std::vector<Event> effects;
    std::string remark;

    // kCommand, kScene, kCeilings
    int cmdId = -1;
    std::optional<int> payload;       // its first value
    std::optional<int> payloadCount;  // none: the log does not tell
    bool isEvent = false;             // its locks are kept under a key
    bool isReleased = false;          // it let an event's lock go
    bool isBoostless = false;         // boosts were off
    bool isDone = false;              // the line behind an action's effects has come
    bool hasLock = false;
    int pendingIndex = -1;  // of the element whose lines have come, when they tell it
    int index = -1;         // of the last element
    std::set<int> indices;  // of all elements that ran
    std::optional<int> taskId;
    bool hasMessage = false;
    int onDemandMs = 0;
    int acquires = 0;
    int refusals = 0;
    int refusal = 0;             // what the perf HAL returned
    bool isRefusedLate = false;  // after a lock that it granted

    // kLimit, kScene
    int client = 0;               // 0: the log does not tell
    std::vector<TagValue> asked;  // tags in order with the values asked for
    std::vector<TagValue> set;    // with the values that were put in force
    bool hasEffects = false;
    bool isRefused = false;
    int pairs = 0;               // how many of `asked` the log counts
    bool hasGap = false;         // some of them are missing in it
    bool isSideUnknown = false;  // whether it begins or ends
    bool isCut = false;          // it may have begun before the capture, as a scene's perhaps
    bool isMerged = false;       // a line that tells of merging belongs to it
    bool isTimer = false;        // a breakthrough ended
    std::vector<int> controlTypes;
    std::vector<int> groupList;
    int lettingGo = 0;  // a group's lock whose release stands below, unless that line is missing

    std::vector<std::pair<std::string, int>> reads;  // kRead: path, value
    std::vector<TagValue> ceilings;                  // kCeilings: 0 releases one

    bool IsOver(Time now) const;

    // An event begins: its payload says so. It ends: that says so, or all that it did was to let a
    // lock go.
    bool IsBeginning() const;
    bool IsEnd() const;

    // The element of the chain with this index may be the one whose lock comes next.
    bool MayHave(int element) const {
        return pendingIndex >= 0 ? element == pendingIndex : element > index;
    }
};

// Makes the step of a scenario, with text and result, of a finished draft.
class DraftWriter {
  public:
    // Takes references to all, and tells problems to `story`.
    DraftWriter(const KnownNodes& nodes, const SceneFile& scenes, CommandLists& lists,
                LogStory& story)
        : mNodes(nodes),
          mScenes(scenes),
          mLayout(scenes.ClusterLayout()),
          mLists(lists),
          mStory(story) {}

    // The request that `draft` has become.
    LogRequest Finish(LogDraft&& draft);

    // What StepReader has to say about `step`; nothing when it is no valid step.
    std::optional<std::string> TextOf(const YamlNode& step) const;

    // A command's name, else its number; and both, "touch (4098)".
    std::pair<std::string, std::string> NamesOf(int cmdId) const;
    // Without its folder.
    std::string SceneFileName() const;
    std::string LabelOf(int tag) const { return TagLabel(tag, mLayout); }

  private:
    int FindScene(const std::vector<TagValue>& asked) const;
    void CheckScene(const LogDraft& draft);
    void CompleteScene(LogDraft& draft);
    YamlNode CommandStep(const LogDraft& draft) const;
    YamlNode LimitStep(const LogDraft& draft, int client) const;
    YamlNode ReadStep(const LogDraft& draft, std::string& result) const;
    YamlNode CeilingsStep(const LogDraft& draft, std::string& result) const;
    int ClientOf(const LogDraft& draft) const;
    RequestFacts FactsOfLimit(const LogDraft& draft, int client) const;
    RequestFacts FactsOfCommand(const LogDraft& draft) const;
    YamlNode TagMap(const std::vector<TagValue>& tags) const;
    void AddArrangements(const LogDraft& draft, LogRequest& request);
    void AddState(const LogDraft& draft, LogRequest& request);
    void AddNodeFaults(const LogDraft& draft, LogRequest& request);
    void Tell(const LogDraft& draft, const std::string& message);

    const KnownNodes& mNodes;
    const SceneFile& mScenes;
    const Layout mLayout;
    CommandLists& mLists;
    LogStory& mStory;
    // What reading and writing a node came to last.
    struct NodeErrors {
        int read = 0;
        int write = 0;
    };
    std::map<std::string, NodeErrors> mNodeErrors;
    std::map<int, int> mOnDemandMs;  // by command
    std::set<int> mScenesOn;         // long scenes in force
    std::set<int> mScenesTold;       // of which a line has told whether they begin or end
    std::set<int> mToldScenes;       // that have been compared with their file
    int mState = 0;
};

}  // namespace lab
