#include "lab/logcat/draft_facts.h"

#include <algorithm>

#include "lab/server/request_facts.h"

namespace lab {
namespace {

using Kind = LogDraft::Kind;

RequestFacts FactsOfLimit(const LogDraft& draft, int client, Layout layout) {
    // Without SetDebug the log has what was put in force, whoever asked for that.
    const bool isOutcome = draft.asked.empty();
    const std::vector<TagValue>& tags = isOutcome ? draft.set : draft.asked;
    // Where the log does not tell the client, the plug-in treats all alike: any stands for it.
    RequestFacts facts = FactsOf(SetLimits{std::max(client, 1), tags},
                                 draft.isRefused && draft.set.empty() ? -1 : 0, layout);
    facts.isOutcome = isOutcome;
    if (client == 0 || isOutcome) facts.who = kUnnamed;
    return facts;
}

}  // namespace

RequestFacts FactsOf(const LogDraft& draft, int client, const std::string& label, Layout layout) {
    RequestFacts facts;
    if (draft.kind == Kind::kLimit) return FactsOfLimit(draft, client, layout);
    if (draft.kind != Kind::kCommand && draft.kind != Kind::kScene) return facts;
    facts.who = label.empty() ? kUnnamed : label;
    facts.cmdId = draft.cmdId;
    facts.mayLock = true;
    if (draft.payloadCount == 1 && draft.payload == 0) facts.event = RequestFacts::Event::kBegins;
    const bool isEnd = draft.payloadCount == 1 && draft.payload == -1;
    if (isEnd || (draft.isReleased && draft.acquires == 0)) {
        facts.event = RequestFacts::Event::kEnds;
    }
    if (draft.kind != Kind::kScene) return facts;
    for (const TagValue& asked : draft.asked) {
        facts.claims.push_back({asked.tag, isEnd ? 0 : asked.value});
    }
    // What it begins or ends nobody can tell: its tags carry what the locks show.
    facts.isOutcome = draft.isSideUnknown;
    return facts;
}

}  // namespace lab
