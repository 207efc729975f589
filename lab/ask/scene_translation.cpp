#include "lab/ask/scene_translation.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <set>

#include "lab/names/resource_names.h"
#include "lab/names/tag_names.h"
#include "lab/scenes/scene_values.h"
#include "loader/element_keys.h"

namespace lab {
namespace {

namespace keys = tarquel::keys;
using Kind = ExplainedCommand::Kind;

Kind KindOf(const SceneCommand& command) {
    if (command.interactive) return Kind::kInteractive;
    if (IsDescription(command.elements.front())) return Kind::kDescription;
    return IsLongScene(command) ? Kind::kLongScene : Kind::kAction;
}

std::string Hex(int opcode) {
    return fmt::format("0x{:08X}", static_cast<unsigned>(opcode));
}

std::optional<int> NumberOf(const SceneCommand& command, std::string_view name) {
    std::optional<int> number;
    for (const SceneElement& element : command.elements) {
        if (const std::optional<int> found = FindNumber(element, name)) number = found;
    }
    return number;
}

class Translator {
  public:
    Translator(const SceneFile& scenes, const Server& server)
        : mScenes(scenes), mServer(server), mLayout(scenes.ClusterLayout()) {}

    ExplainedCommand Translate(const SceneCommand& command) const {
        ExplainedCommand told;
        told.id = command.id;
        told.label = command.Label();
        told.place = command.place;
        told.kind = KindOf(command);
        std::copy(std::begin(command.headers), std::end(command.headers), told.headers);
        told.countLimit = NumberOf(command, keys::kBoostCountLimit);
        told.periodMs = NumberOf(command, keys::kBoostPeriod);
        told.problems = ProblemsOf(command);
        const Action* action = mServer.FindChain(command.id);
        told.isAccepted = action != nullptr || told.kind == Kind::kDescription;
        for (const SceneElement& element : command.elements) {
            told.elements.push_back(Describe(command, element, action));
            if (action) action = action->next;
        }
        return told;
    }

  private:
    std::vector<std::string> ProblemsOf(const SceneCommand& command) const {
        int end = INT_MAX;  // the next command's line
        for (const SceneCommand& other : mScenes.Commands()) {
            if (other.place.line > command.place.line) end = std::min(end, other.place.line);
        }
        std::vector<std::string> texts;
        for (const SceneProblem& problem : mServer.Problems()) {
            const int line = problem.place.line;
            if (line >= command.place.line && line < end) {
                texts.push_back(ProblemText(mScenes, problem));
            }
        }
        return texts;
    }

    ExplainedElement Describe(const SceneCommand& command, const SceneElement& element,
                              const Action* action) const {
        ExplainedElement told;
        told.name = element.name;
        told.place = element.place;
        told.durationMs = DurationOf(element);
        told.skip = element.skip;
        told.stateMask = element.stateMask;
        told.taskBoost = element.taskBoost;
        if (KindOf(command) == Kind::kDescription) {
            for (const SceneKey& key : element.keys)
                told.pairs.push_back({key.name, "", key.value, {}, {}});
            return told;
        }
        if (!action) return told;
        told.durationMs = action->duration;
        told.offDelayTime = action->offDelayTime;
        told.offDelayPerc = action->offDelayPerc;
        told.boostLimitLevel = action->boostLimitLevel;
        const auto& inter = static_cast<const QcomAction*>(action)->interList;
        for (size_t i = 0; i + 1 < inter.size(); i += 2) {
            told.pairs.push_back({inter[i], "", inter[i + 1], {}, {}});
        }
        const bool isTags = KindOf(command) == Kind::kLongScene;
        std::set<int> kept;
        for (size_t i = 0; i + 1 < action->perfList.size(); i += 2) {
            const int code = action->perfList[i];
            kept.insert(code);
            told.pairs.push_back(DescribePair(element, code, action->perfList[i + 1], isTags));
        }
        if (!command.interactive) AddDropped(element, isTags, kept, told);
        return told;
    }

    // What the loader makes of a tunable's key: in a long scene those behind the duration name
    // tags, all others opcodes. Nothing for a key that names no tunable.
    std::optional<int> CodeOf(const SceneElement& element, const SceneKey& key,
                              bool isLongScene) const {
        bool namesTags = false;
        for (const SceneKey& earlier : element.keys) {
            if (&earlier == &key) break;
            if (earlier.name == keys::kDuration) namesTags = isLongScene;
        }
        if (keys::IsHeadKey(key.name)) return std::nullopt;
        return namesTags ? FindTag(key.name, mLayout) : FindKeyOpcode(key.name);
    }

    ExplainedPair DescribePair(const SceneElement& element, int code, int value, bool isTag) const {
        ExplainedPair pair;
        for (const SceneKey& key : element.keys) {
            if (pair.key.empty() && CodeOf(element, key, isTag) == code) pair.key = key.name;
        }
        if (isTag && code > kHighestTag) {
            pair.notes.emplace_back("stands before duration_ms: no tag, but an opcode");
        } else if (isTag) {
            const TagFacts* facts = FindTagFacts(code, mLayout);
            pair.code = fmt::format("tag {}", code);
            pair.value =
                facts ? BoundText(facts->bound, value, facts->unit) : std::to_string(value);
            return pair;
        }
        const Resource resource = ResourceOf(code, mLayout);
        pair.code = Hex(code);
        pair.value = BoundText(resource.bound, value, resource.unit);
        return pair;
    }

    void AddDropped(const SceneElement& element, bool isTags, const std::set<int>& kept,
                    ExplainedElement& told) const {
        std::map<int, const SceneKey*> first;
        for (const SceneKey& key : element.keys) {
            const std::optional<int> code = CodeOf(element, key, isTags);
            if (!code) continue;
            const auto [known, isFirst] = first.emplace(*code, &key);
            if (!isFirst) {
                told.dropped.push_back(fmt::format(
                    "line {}: {} = {} does not count: {} in line {} stands for the same and comes "
                    "first",
                    key.place.line, key.name, key.value, known->second->name,
                    known->second->place.line));
            } else if (!kept.count(*code)) {
                told.dropped.push_back(
                    fmt::format("line {}: {} = {} is cut: an element takes 35 tunables, those "
                                "with the smallest opcodes",
                                key.place.line, key.name, key.value));
            }
        }
    }

    const SceneFile& mScenes;
    const Server& mServer;
    const Layout mLayout;
};

}  // namespace

ExplainedCommand TranslateCommand(const SceneFile& scenes, const SceneCommand& command,
                                  const Server& server) {
    return Translator(scenes, server).Translate(command);
}

}  // namespace lab
