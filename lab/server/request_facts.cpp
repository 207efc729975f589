#include "lab/server/request_facts.h"

#include "base/ids.h"
#include "lab/book/limit_words.h"

namespace lab {
namespace {

std::string EventName(int cmdId) {
    return "event " + std::to_string(cmdId);
}

// A ceiling below the floor takes the floor's lock with it.
void AddTagOpcodes(int tag, Layout layout, std::set<int>& opcodes) {
    opcodes.insert(FindTagOpcode(tag, layout).value_or(0));
    if (!IsCeilingLimit(tag)) return;
    if (const std::optional<int> floor = FindTagOpcode(tag - 1, layout)) opcodes.insert(*floor);
}

void AddSceneFacts(const Action& first, bool isOn, int result, Layout layout, RequestFacts& facts) {
    facts.mayLock = true;
    for (size_t i = 0; i + 1 < first.perfList.size(); i += 2) {
        const int tag = first.perfList[i];
        AddTagOpcodes(tag, layout, facts.opcodes);
        if (result != 0) continue;
        facts.claims.push_back({tag, isOn ? first.perfList[i + 1] : 0});
    }
}

}  // namespace

bool IsLongScene(const Action& first) {
    return tarquel::IsLongTermScene(first.cmdId) && first.duration == 0;
}

RequestFacts FactsOf(const DoCommand& request, const Action& first, int onDemandMs, int result,
                     Layout layout) {
    RequestFacts facts;
    facts.cmdId = request.cmdId;
    facts.result = result;
    const bool isOn = request.payload == std::vector<int>{0};
    const bool isOff = request.payload == std::vector<int>{-1};
    if (isOn) facts.event = RequestFacts::Event::kBegins;
    if (isOff) facts.event = RequestFacts::Event::kEnds;
    if (IsLongScene(first)) {
        if (isOn || isOff) AddSceneFacts(first, isOn, result, layout, facts);
        return facts;
    }
    if (request.cmdId == tarquel::kCmdRegularEventEnd) {
        facts.ended.push_back(EventName(tarquel::kCmdRegularEvent));
    }
    if (isOff) {
        facts.ended.push_back(EventName(request.cmdId));
        return facts;
    }
    facts.mayLock = true;
    bool isUntimed = false;
    for (const Action* action = &first; action; action = action->next) {
        isUntimed = isUntimed || (action->duration < 1 && onDemandMs < 1);
        for (size_t i = 0; i + 1 < action->perfList.size(); i += 2) {
            facts.opcodes.insert(action->perfList[i]);
        }
    }
    if (isOn || request.cmdId == tarquel::kCmdRegularEvent) {
        facts.standing = EventName(request.cmdId);
    } else if (isUntimed) {
        facts.standing = "untimed";
        facts.replaces = true;
    }
    return facts;
}

RequestFacts FactsOf(const SetLimits& request, int result, Layout layout) {
    RequestFacts facts;
    facts.clientId = request.clientId;
    facts.who = ClientLabel(request.clientId);
    facts.result = result;
    facts.asked = request.tags;
    if (!tarquel::IsClient(request.clientId) || request.tags.empty()) return facts;
    facts.mayLock = true;
    const bool isGroup = request.tags.front().tag == kGroupTag;
    facts.isGroup = isGroup;
    const int duration = isGroup ? request.tags.front().value : 0;
    if (isGroup && duration == 0) {
        facts.standing = "group";
        facts.replaces = true;
    }
    if (isGroup && duration < 0) facts.ended.push_back("group");
    // The camera's words are kept only as a group's.
    const bool isKept = request.clientId != tarquel::kClientCamera || (isGroup && duration == 0);
    for (size_t i = 0; i < request.tags.size(); ++i) {
        const TagValue& pair = request.tags[i];
        // A group's first tag is its marker; behind it every tag is one that its lock holds.
        const bool isControl = !isGroup && pair.tag == kControlTypeTag;
        if (isControl && result == 0) facts.controlTypes.push_back(pair.value);
        if (isControl || (isGroup && i == 0)) continue;
        AddTagOpcodes(pair.tag, layout, facts.opcodes);
        const bool hasOwnLock = !isGroup || (duration == 0 && IsCpuCeilingLimit(pair.tag));
        if (!hasOwnLock) facts.groupTags.insert(pair.tag);
        const bool isClaim = hasOwnLock || (isKept && IsWeighedTag(pair.tag));
        if (result == 0 && isClaim) {
            facts.claims.push_back(pair);
        }
    }
    return facts;
}

}  // namespace lab
