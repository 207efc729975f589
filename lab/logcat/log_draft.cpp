#include "lab/logcat/log_draft.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "base/ids.h"
#include "lab/book/limit_words.h"
#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/phone/node_rules.h"
#include "lab/server/request_facts.h"
#include "lab/server/scenario_writer.h"

namespace lab {
namespace {

// Lines of one request follow each other closely, even on a busy phone.
constexpr Time kLongestPause = std::chrono::milliseconds(100);

// Where the log does not tell the client, the plug-in treats all alike: any stands for it.
int AnyOf(int client) {
    return std::max(client, 1);
}

// The fault of a node under which reading and writing it end as they did.
std::string FaultWord(int readError, int writeError) {
    if (writeError == ENOENT) return readError == ENOENT ? "missing" : "unwritable";
    if (readError == EIO) return "short";
    if (writeError != 0) return "refusing";
    return readError != 0 ? "unreadable" : "none";
}

}  // namespace

bool LogDraft::IsOver(Time now) const {
    return kind != Kind::kNone && (now < last || now - last > kLongestPause);
}

bool LogDraft::IsBeginning() const {
    return payloadCount == 1 && payload == tarquel::kEventOn;
}

bool LogDraft::IsEnd() const {
    return (payloadCount == 1 && payload == tarquel::kEventOff) || (isReleased && acquires == 0);
}

KnownNodes::KnownNodes(const DeviceProfile& device) {
    for (int tag = 0; tag <= kHighestTag; ++tag) {
        for (const std::string& path : TagNodes(tag, device)) tagOf.emplace(path, tag);
    }
    for (const NamedNode& node : LayOutNodes(device)) {
        names.insert(node.names.begin(), node.names.end());
    }
}

void DraftWriter::Tell(const LogDraft& draft, const std::string& message) {
    mStory.problems.push_back({draft.line, draft.line, message});
}

// The long scene that asks for just these tags and values; -1 when none or several do.
int DraftWriter::FindScene(const std::vector<TagValue>& asked) const {
    std::vector<int> list;
    for (const TagValue& pair : asked) list.insert(list.end(), {pair.tag, pair.value});
    int found = -1;
    for (const SceneCommand& command : mScenes.Commands()) {
        if (!tarquel::IsLongTermScene(command.id)) continue;
        const auto& elements = mLists.Elements(command.id, 0, std::nullopt);
        if (elements.empty() || elements[0].durationMs != 0 || elements[0].list != list) continue;
        if (found != -1) return -1;
        found = command.id;
    }
    return found;
}

// A scene asks for what its file says; another phone's file says otherwise.
void DraftWriter::CheckScene(const LogDraft& draft) {
    const auto& elements = mLists.Elements(draft.cmdId, 0, std::nullopt);
    if (elements.empty() || draft.asked.empty() || !mToldScenes.insert(draft.cmdId).second) return;
    const std::vector<int>& list = elements[0].list;
    const std::string label = NamesOf(draft.cmdId).second;
    if (list.size() != 2 * draft.asked.size()) {
        // Which of them are missing in the log nobody can tell.
        if (list.size() < 2 * draft.asked.size()) {
            Tell(draft, fmt::format("{} asks for {} values here, in {} for {}; give the phone's "
                                    "own with --scenes",
                                    label, draft.asked.size(), SceneFileName(), list.size() / 2));
        }
        return;
    }
    for (size_t i = 0; i < draft.asked.size(); ++i) {
        const TagValue& asked = draft.asked[i];
        if (asked.tag == list[2 * i] && asked.value == list[2 * i + 1]) continue;
        Tell(draft, fmt::format("{} asks for {} = {} here, in {} for {} = {}; give the phone's own "
                                "with --scenes",
                                label, LabelOf(asked.tag), asked.value, SceneFileName(),
                                LabelOf(list[2 * i]), list[2 * i + 1]));
        return;
    }
}

// The line that names a scene and says whether it begins or ends may be missing: by its limits it
// is known all the same, and it ends when it has begun.
void DraftWriter::CompleteScene(LogDraft& draft) {
    if (draft.cmdId < 0 && !draft.hasGap) {
        draft.cmdId = FindScene(draft.asked);
    } else if (!draft.hasGap) {
        CheckScene(draft);
    }
    const bool isTold = draft.payloadCount.has_value();
    if (!isTold) {
        draft.payloadCount = 1;
        draft.payload = mScenesOn.count(draft.cmdId) > 0 ? tarquel::kEventOff : tarquel::kEventOn;
    }
    // It may have begun before the capture: then this is its end, and the next one its beginning.
    if (isTold) mScenesTold.insert(draft.cmdId);
    draft.isSideUnknown = !mStory.isWhole && mScenesTold.count(draft.cmdId) == 0;
    if (draft.payload == tarquel::kEventOn) mScenesOn.insert(draft.cmdId);
    if (draft.payload == tarquel::kEventOff) mScenesOn.erase(draft.cmdId);
}

LogRequest DraftWriter::Finish(LogDraft&& draft) {
    if (draft.kind == LogDraft::Kind::kScene) CompleteScene(draft);
    LogRequest request;
    request.at = draft.at;
    request.line = draft.line;
    request.result = draft.remark;
    const int client = draft.kind == LogDraft::Kind::kLimit ? ClientOf(draft) : 0;
    if (client != 0) request.client = ClientLabel(client);
    if (draft.cmdId >= 0) request.command = NamesOf(draft.cmdId).first;
    YamlNode step;
    switch (draft.kind) {
        case LogDraft::Kind::kNone:
            request.isRequest = false;
            break;
        case LogDraft::Kind::kCommand:
        case LogDraft::Kind::kScene:
            request.text = draft.cmdId < 0 ? "a command that the log does not name"
                                           : fmt::format("command {}", draft.cmdId);
            if (draft.cmdId < 0) break;
            if (!mScenes.Find(draft.cmdId)) mStory.unknownCommands.insert(draft.cmdId);
            step = CommandStep(draft);
            break;
        case LogDraft::Kind::kLimit:
            request.isRequest = !draft.asked.empty() || !draft.set.empty() || draft.hasEffects;
            request.text = "limits that the log does not name";
            if (!draft.asked.empty() || !draft.set.empty()) step = LimitStep(draft, client);
            break;
        case LogDraft::Kind::kRead:
            request.text = "get values of nodes";
            step = ReadStep(draft, request.result);
            break;
        case LogDraft::Kind::kCeilings:
            request.text = fmt::format("ceilings of command {}", draft.cmdId);
            step = CeilingsStep(draft, request.result);
            break;
    }
    if (const std::optional<std::string> text = TextOf(step)) {
        request.text = *text;
        AddArrangements(draft, request);
        request.steps.push_back(AtTime(WholeMs(draft.at), step));
        if (draft.isSideUnknown && draft.cmdId >= 0) {
            request.text = "on or off " + NamesOf(draft.cmdId).second;
        }
        const bool isNameless = draft.kind == LogDraft::Kind::kLimit && client == 0;
        const size_t by = isNameless ? request.text.find(" by ") : std::string::npos;
        if (by != std::string::npos) {
            const size_t end = request.text.find_first_of(": (", by + 4);
            request.text.replace(
                by, std::min(end, request.text.size()) - by,
                draft.isCut ? " that may begin before the capture" : " by some client");
        }
    }
    if (request.isRequest) {
        RequestFacts facts = draft.kind == LogDraft::Kind::kLimit ? FactsOfLimit(draft, client)
                                                                  : FactsOfCommand(draft);
        if (!draft.controlTypes.empty()) facts.controlTypes = std::move(draft.controlTypes);
        request.facts = std::make_shared<const RequestFacts>(std::move(facts));
    }
    request.effects = std::move(draft.effects);
    return request;
}

RequestFacts DraftWriter::FactsOfLimit(const LogDraft& draft, int client) const {
    // Without SetDebug the log has what was put in force, whoever asked for that.
    const bool isOutcome = draft.asked.empty();
    const std::vector<TagValue>& tags = isOutcome ? draft.set : draft.asked;
    RequestFacts facts = FactsOf(SetLimits{AnyOf(client), tags},
                                 draft.isRefused && draft.set.empty() ? -1 : 0, mLayout);
    facts.isOutcome = isOutcome;
    if (client == 0 || isOutcome) facts.who = kUnnamed;
    return facts;
}

RequestFacts DraftWriter::FactsOfCommand(const LogDraft& draft) const {
    RequestFacts facts;
    const bool isScene = draft.kind == LogDraft::Kind::kScene;
    if (!isScene && draft.kind != LogDraft::Kind::kCommand) return facts;
    facts.who = draft.cmdId >= 0 ? NamesOf(draft.cmdId).second : kUnnamed;
    facts.cmdId = draft.cmdId;
    facts.mayLock = true;
    if (draft.IsBeginning()) facts.event = RequestFacts::Event::kBegins;
    if (draft.IsEnd()) facts.event = RequestFacts::Event::kEnds;
    if (!isScene) return facts;
    for (const TagValue& asked : draft.asked) {
        facts.claims.push_back({asked.tag, draft.IsEnd() ? 0 : asked.value});
    }
    // What it begins or ends nobody can tell: its tags carry what the locks show.
    facts.isOutcome = draft.isSideUnknown;
    return facts;
}

std::optional<std::string> DraftWriter::TextOf(const YamlNode& step) const {
    if (step.kind != YamlNode::Kind::kMap) return std::nullopt;
    try {
        return ReadScenarioSteps(MakeMap({{"steps", MakeList({step})}}), mScenes).front().text;
    } catch (const InputError&) {
        return std::nullopt;
    }
}

std::pair<std::string, std::string> DraftWriter::NamesOf(int cmdId) const {
    const SceneCommand* command = mScenes.Find(cmdId);
    if (!command || command->name.empty()) {
        return {std::to_string(cmdId), fmt::format("command {}", cmdId)};
    }
    return {command->name, command->Label()};
}

std::string DraftWriter::SceneFileName() const {
    return std::filesystem::path(mScenes.File()).filename().string();
}

YamlNode DraftWriter::CommandStep(const LogDraft& draft) const {
    const YamlNode name = MakeScalar(NamesOf(draft.cmdId).first);
    if (draft.IsEnd()) return MakeMap({{"off", name}});
    std::vector<std::pair<std::string, YamlNode>> fields;
    const bool isMeantOn =
        !draft.payloadCount && draft.isEvent && draft.cmdId != tarquel::kCmdRegularEvent;
    if (draft.IsBeginning() || isMeantOn) {
        fields.emplace_back("on", name);
    } else {
        fields.emplace_back("do", name);
        if (draft.payload && draft.payloadCount.value_or(0) > 0) {
            std::vector<YamlNode> payload = {MakeScalar(*draft.payload)};
            // The log has the first value alone; the plug-in looks at no other.
            payload.resize(static_cast<size_t>(std::min(*draft.payloadCount, 64)), MakeScalar(0));
            fields.emplace_back("payload", MakeList(std::move(payload)));
        }
    }
    if (draft.hasMessage) {
        fields.emplace_back(
            "message", MakeScalar("targetPid=" +
                                  (draft.taskId ? std::to_string(*draft.taskId) : std::string())));
    }
    return MakeMap(std::move(fields));
}

YamlNode DraftWriter::TagMap(const std::vector<TagValue>& tags) const {
    std::vector<std::pair<std::string, YamlNode>> fields;
    for (const TagValue& pair : tags) {
        const TagFacts* facts = FindTagFacts(pair.tag, mLayout);
        std::string name = facts ? std::string(facts->name) : std::to_string(pair.tag);
        const auto isTaken = [&](const std::string& wanted) {
            return std::any_of(fields.begin(), fields.end(),
                               [&](const auto& field) { return field.first == wanted; });
        };
        // A tag that a request names twice needs two names, for a map has each once.
        if (isTaken(name)) name = std::to_string(pair.tag);
        if (isTaken(name)) name = fmt::format("0x{:x}", pair.tag);
        if (!isTaken(name)) fields.emplace_back(name, MakeScalar(pair.value));
    }
    return MakeMap(std::move(fields));
}

// 0 when the log does not tell.
int DraftWriter::ClientOf(const LogDraft& draft) const {
    if (draft.client != 0 || mStory.detail != LogDetail::kFull) return draft.client;
    // Every client's ceilings are merged with the others', in the log, but the camera's. The line
    // that tells so may be missing like others.
    if (draft.isCut || draft.isMerged || mStory.lastLoss) return 0;
    const bool hasMerged = std::any_of(draft.asked.begin(), draft.asked.end(),
                                       [](const TagValue& pair) { return IsWeighedTag(pair.tag); });
    return hasMerged ? tarquel::kClientCamera : 0;
}

YamlNode DraftWriter::LimitStep(const LogDraft& draft, int client) const {
    const std::vector<TagValue>& tags = draft.asked.empty() ? draft.set : draft.asked;
    const YamlNode name = MakeScalar(ClientLabel(AnyOf(client)));
    if (tags.front().tag == kGroupTag) {
        std::vector<std::pair<std::string, YamlNode>> fields = {
            {"client", name}, {"duration_ms", MakeScalar(std::max(tags.front().value, -1))}};
        if (tags.size() > 1) {
            fields.emplace_back("tags", TagMap({tags.begin() + 1, tags.end()}));
        }
        return MakeMap({{"group", MakeMap(std::move(fields))}});
    }
    if (tags.size() == 1 && tags.front().tag == kControlTypeTag && tags.front().value <= 10) {
        std::vector<std::pair<std::string, YamlNode>> fields = {
            {"control", MakeScalar(tags.front().value)}};
        if (AnyOf(client) != tarquel::kClientTemp) fields.emplace_back("client", name);
        return MakeMap(std::move(fields));
    }
    return MakeMap({{"limit", MakeMap({{"client", name}, {"tags", TagMap(tags)}})}});
}

YamlNode DraftWriter::ReadStep(const LogDraft& draft, std::string& result) const {
    std::vector<YamlNode> tags;
    std::optional<int> unread;  // the tag whose nodes are tried one after the other
    auto read = draft.reads.begin();
    for (const Event& effect : draft.effects) {
        const auto* access = std::get_if<NodeAccess>(&effect.what);
        if (!access) continue;
        const auto known = mNodes.tagOf.find(access->path);
        const auto tag = known == mNodes.tagOf.end() ? std::nullopt : std::optional(known->second);
        const bool isTriedAgain = access->error != 0 && tag && tag == unread;
        unread = access->error != 0 ? tag : std::nullopt;
        if (isTriedAgain) continue;
        const TagFacts* facts = tag ? FindTagFacts(*tag, mLayout) : nullptr;
        const std::string name = facts ? std::string(facts->name) : ShortNode(access->path);
        std::string value = "cannot be read";
        if (access->error == 0 && read != draft.reads.end()) {
            value = facts ? WithUnit(read->second, facts->unit) : std::to_string(read->second);
            ++read;
        }
        result += fmt::format("{:<32} {}\n", name, value);
        if (tag) tags.push_back(facts ? MakeScalar(name) : MakeScalar(*tag));
    }
    if (tags.empty()) return {};
    return MakeMap({{"get", MakeList(std::move(tags))}});
}

YamlNode DraftWriter::CeilingsStep(const LogDraft& draft, std::string& result) const {
    bool isRelease = false;
    for (const auto& [tag, value] : draft.ceilings) {
        const TagFacts* facts = FindTagFacts(tag, mLayout);
        result += fmt::format("{:<32} {}\n", TagLabel(tag, mLayout),
                              facts && value ? WithUnit(value, facts->unit) : "lifted");
        isRelease = isRelease || value == 0;
    }
    std::vector<std::pair<std::string, YamlNode>> fields = {
        {"command", MakeScalar(NamesOf(draft.cmdId).first)}};
    if (isRelease) fields.emplace_back("release", MakeScalar("true"));
    return MakeMap({{"ceilings", MakeMap(std::move(fields))}});
}

// What befell the phone before the request, as its lines show.
void DraftWriter::AddArrangements(const LogDraft& draft, LogRequest& request) {
    const int64_t ms = WholeMs(draft.at);
    const auto arrange = [&](const std::string& field, YamlNode value) {
        const YamlNode step = MakeMap({{field, std::move(value)}});
        if (TextOf(step)) request.steps.push_back(AtTime(ms, step));
    };
    if (draft.kind == LogDraft::Kind::kCommand || draft.kind == LogDraft::Kind::kScene) {
        AddState(draft, request);
    }
    if (draft.kind == LogDraft::Kind::kCommand && draft.acquires > 0) {
        int& present = mOnDemandMs[draft.cmdId];
        // Without the line that tells it, which only a switch turns on, the duration is as it was.
        if (present != draft.onDemandMs && mStory.detail != LogDetail::kErrors) {
            present = draft.onDemandMs;
            arrange("on_demand", MakeMap({{NamesOf(draft.cmdId).first, MakeScalar(present)}}));
        }
    }
    if (draft.refusals > 0) {
        arrange("hal", MakeMap({{"refuse", MakeScalar(draft.refusals)},
                                {"result", MakeScalar(draft.refusal)}}));
    }
    AddNodeFaults(draft, request);
    if (draft.isRefusedLate) {
        Tell(draft, "a lock is refused after another was granted; a scenario cannot say that");
    }
}

// Nodes that failed, and those that no longer do. Whether one is missing or only barred to the
// plug-in the log does not tell: the plug-in does the same.
void DraftWriter::AddNodeFaults(const LogDraft& draft, LogRequest& request) {
    std::map<std::string, std::string> before;
    for (const Event& effect : draft.effects) {
        const auto* access = std::get_if<NodeAccess>(&effect.what);
        if (!access || mNodes.names.count(access->path) == 0) continue;
        NodeErrors& errors = mNodeErrors[access->path];
        before.emplace(access->path, FaultWord(errors.read, errors.write));
        (access->kind == NodeAccess::Kind::kRead ? errors.read : errors.write) = access->error;
    }
    std::vector<std::pair<std::string, YamlNode>> changed;
    for (const auto& [path, was] : before) {
        const NodeErrors& errors = mNodeErrors[path];
        const std::string fault = FaultWord(errors.read, errors.write);
        if (fault != was) changed.emplace_back(path, MakeScalar(fault));
    }
    if (changed.empty()) return;
    const YamlNode faults = MakeMap({{"nodes", MakeMap(std::move(changed))}});
    request.steps.push_back(AtTime(WholeMs(draft.at), MakeMap({{"faults", faults}})));
}

// The state bits that elements with a state mask need, or lack.
void DraftWriter::AddState(const LogDraft& draft, LogRequest& request) {
    if (draft.isBoostless) return;
    int state = mState;
    for (const CommandLists::Element& element : mLists.Elements(draft.cmdId, 0, std::nullopt)) {
        if (element.stateMask < 1) continue;
        const bool hasRun =
            draft.kind == LogDraft::Kind::kScene || draft.indices.count(element.index) > 0;
        if (hasRun && (state & element.stateMask) == 0) state |= element.stateMask;
        if (!hasRun) state &= ~element.stateMask;
    }
    if (state == mState) return;
    mState = state;
    request.steps.push_back(AtTime(WholeMs(draft.at), MakeMap({{"state", MakeScalar(state)}})));
}

}  // namespace lab
