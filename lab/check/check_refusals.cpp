// What the plug-in's own loader refuses, a command at a time.
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "freq/scene_limits.h"
#include "lab/check/scene_rules.h"
#include "lab/names/text.h"
#include "lab/scenes/scene_problems.h"
#include "loader/element_keys.h"
#include "loader/vocabulary_table.h"

namespace lab {
namespace {

constexpr char kPlugInSays[] = "the plug-in says: ";

// Has the loader read commands, and listens to what it logs.
class Loading {
  public:
    Loading(RuleContext& context, Library& library) : mContext(context), mLibrary(library) {
        for (const SceneCommand& command : context.scenes.Commands()) {
            const bool isClusters = command.elements.front().name == "qcom_cpu_info";
            if (isClusters) mClusters.push_back(command);
        }
    }

    // Reads `command` as it would be read in the file; says all that the loader says of it, each
    // with its place. False when it was refused.
    bool Read(const SceneCommand& command, std::vector<SceneProblem>& problems) {
        SceneFile alone = SceneFile::Of({command}, mContext.scenes.File());
        std::set<int> accepted;
        std::vector<std::string> errors;
        if (command.interactive) {
            mContext.phone.Events().Clear();
            const ActionChain chain = mLibrary.ParseInteractive(alone.InteractiveRecord(command));
            if (chain) accepted.insert(command.id);
            errors = Errors();
        } else {
            errors = Parse(command, accepted);
        }
        problems = FindSceneProblems(alone, errors, accepted);
        return accepted.count(command.id) != 0 || IsDescription(command.elements.front());
    }

  private:
    std::vector<std::string> Errors() const {
        std::vector<std::string> errors;
        for (const LogLine& line : mContext.phone.Events().All<LogLine>()) {
            if (line.priority >= kAndroidError) errors.push_back(line.text);
        }
        return errors;
    }

    // The clusters come before the command when its id is higher: names of tags depend on them.
    // What the loader says of them first is not the command's.
    std::vector<std::string> Parse(const SceneCommand& command, std::set<int>& accepted) {
        std::vector<SceneCommand> before;
        for (const SceneCommand& clusters : mClusters) {
            if (clusters.id < command.id) before.push_back(clusters);
        }
        const size_t notItsOwn = before.empty() ? 0 : Run(before, accepted).size();
        before.push_back(command);
        std::vector<std::string> errors = Run(before, accepted);
        errors.erase(errors.begin(),
                     errors.begin() + static_cast<ptrdiff_t>(std::min(notItsOwn, errors.size())));
        return errors;
    }

    std::vector<std::string> Run(const std::vector<SceneCommand>& commands,
                                 std::set<int>& accepted) {
        SceneFile scenes = SceneFile::Of(commands, mContext.scenes.File());
        mContext.phone.Events().Clear();
        std::map<int, RawXmlData*> heads = scenes.Heads();
        for (const auto& [id, chain] : mLibrary.ParseScenes(heads)) accepted.insert(id);
        return Errors();
    }

    RuleContext& mContext;
    Library& mLibrary;
    std::vector<SceneCommand> mClusters;
};

std::vector<std::string> KnownKeys(const SceneCommand& command) {
    if (command.interactive) {
        return {tarquel::kInteractiveKeys.begin(), tarquel::kInteractiveKeys.end()};
    }
    std::vector<std::string> names = {"duration_ms",    "boost_limit_level", "off_delay_time",
                                      "off_delay_perc", "boost_count_limit", "boost_period"};
    for (const tarquel::OpcodeName& row : tarquel::kOpcodeNames) names.emplace_back(row.name);
    return names;
}

// A key that a long scene cannot take.
void ExplainSceneKey(const RuleContext& context, const SceneCommand& command, Finding& finding,
                     const std::string& name) {
    const std::vector<SceneCommand>& commands = context.scenes.Commands();
    const bool hasClusters =
        std::any_of(commands.begin(), commands.end(), [&command](const SceneCommand& other) {
            return other.elements.front().name == "qcom_cpu_info" && other.id < command.id;
        });
    if (!hasClusters) {
        finding.message = name +
                          " cannot be understood: no <qcom_cpu_info> in a command with a "
                          "lower id tells the clusters";
        finding.advice = "give the clusters a command with a low id";
        return;
    }
    std::vector<std::string> names;
    for (const tarquel::TagName& row : tarquel::kTagNames) {
        const bool isTwo = context.layout == Layout::kTwoClusters;
        const int tag = isTwo ? row.tagTwoClusters : row.tagThreeClusters;
        if (tag != tarquel::kNoTag && tarquel::IsSceneTag(tag)) names.emplace_back(row.name);
    }
    finding.message =
        fmt::format("{}{} is no limit that a long scene takes here; the whole command is refused",
                    name, OpcodeOfKey(name) ? "" : DidYouMean(name, names));
    finding.advice = "it takes " + Join(names);
}

void ExplainKey(const RuleContext& context, const SceneCommand& command,
                const ElementMeaning& element, const SceneKey& key, Finding& finding) {
    const std::string& words = finding.plugin;
    if (words.find("xml is invalid, cmdId") != std::string::npos ||
        words.find("inter xml is invalid") != std::string::npos) {
        finding.rule = "unknown-key";
        if (element.isLongScene) {
            ExplainSceneKey(context, command, finding, key.name);
            return;
        }
        finding.message = fmt::format("there is no key {}{}; the whole command is refused",
                                      key.name, DidYouMean(key.name, KnownKeys(command)));
        finding.advice = "correct its name, or remove it";
    } else if (words.find("xml element is invalid") != std::string::npos) {
        finding.rule = "number";
        finding.message =
            fmt::format("{} = '{}' is no decimal number; the whole command is refused", key.name,
                        Shortened(key.value));
        finding.advice = "write digits alone, with a minus sign in front if need be";
    } else if (words.find("is not 0 to 9") != std::string::npos) {
        finding.message = fmt::format("<{}>: there are levels 0 to 9", element.element->name);
        finding.advice = "write one of them";
    } else if (words.find("cpu node info") != std::string::npos) {
        finding.rule = "number";
        finding.message =
            fmt::format("{} = '{}' is no range of CPUs", key.name, Shortened(key.value));
        finding.advice = "write the first and the last one, such as 4-6 or 7-7";
    } else if (key.value.empty()) {
        finding.rule = "number";
        finding.message = key.name + " has no value";
        finding.advice = "write one";
    }
}

// The key of the element that stands at `place`, or null.
const SceneKey* KeyAtPlace(const SceneElement& element, Place place) {
    for (const SceneKey& key : element.keys) {
        if (key.place == place) return &key;
    }
    return nullptr;
}

class Refusals {
  public:
    Refusals(RuleContext& context, Library& library)
        : mContext(context), mLoading(context, library) {
        for (size_t i = 0; i < context.findings.size(); ++i) {
            mKnown.emplace(context.findings[i].place, i);
        }
    }

    // Has the command read again without each mistake that refuses it, until it is accepted.
    void Check(const SceneCommand& command) {
        SceneCommand rest = command;
        bool isAccepted = false;
        bool isMended = true;
        while (!isAccepted && isMended) {
            std::vector<SceneProblem> problems;
            try {
                isAccepted = mLoading.Read(rest, problems);
            } catch (const std::logic_error&) {
                const SceneElement& element = command.elements.front();
                mContext.Add(Severity::kError, "refused", element.place, WhereOf(command, element),
                             "<" + element.name +
                                 "> names no level; the plug-in fails on the "
                                 "whole file",
                             "write a level from 0 to 9, such as <freq_level_info3>");
                return;
            }
            for (const SceneProblem& problem : problems) Tell(rest, problem);
            isMended = !problems.empty() && Mend(rest, problems.back().place);
        }
    }

  private:
    // Takes away what stands at `place`, so that the loader goes on behind it: a key, or that an
    // element has no end. A duration is replaced, for without one the element would have no end.
    // False for a place at which nothing stands.
    static bool Mend(SceneCommand& command, Place place) {
        if (place.line == 0) return false;
        const SceneKey someTime{std::string(tarquel::keys::kDuration), "1", {}};
        for (SceneElement& element : command.elements) {
            if (element.place == place) {
                element.keys.push_back(someTime);
                return true;
            }
            const auto key =
                std::find_if(element.keys.begin(), element.keys.end(),
                             [place](const SceneKey& known) { return known.place == place; });
            if (key == element.keys.end()) continue;
            if (key->name == someTime.name) {
                *key = someTime;
            } else {
                element.keys.erase(key);
            }
            return true;
        }
        return false;
    }

    void Tell(const SceneCommand& command, const SceneProblem& problem) {
        if (!mTold.emplace(problem.place, problem.message).second) return;
        const std::string prefix = kPlugInSays;
        const bool isQuoted = problem.message.starts_with(prefix);
        const std::string words = isQuoted ? problem.message.substr(prefix.size()) : "";
        // What a rule has found already gets the plug-in's words beside it.
        const auto known = mKnown.find(problem.place);
        const bool isAccepted = words.find("multi-duration") != std::string::npos ||
                                words.find("too many elements") != std::string::npos;
        if (isAccepted && known != mKnown.end()) {
            mContext.findings[known->second].plugin = words;
            return;
        }
        Finding finding;
        finding.severity = Severity::kError;
        finding.rule = isQuoted ? "refused" : "frequency-range";
        finding.place = problem.place;
        finding.where = "command " + command.Label();
        finding.message = isQuoted ? "the plug-in refuses this" : problem.message;
        finding.advice = isQuoted ? "" : "write a frequency in kHz";
        finding.plugin = words;
        for (const SceneElement& element : command.elements) {
            if (element.place == problem.place) ExplainElement(command, element, finding);
            const SceneKey* key = KeyAtPlace(element, problem.place);
            if (!key) continue;
            finding.where = WhereOf(command, element);
            if (words.find("multi-action") != std::string::npos) {
                ExplainElement(command, element, finding);
            } else if (isQuoted) {
                ExplainKey(mContext, command, MeaningOf(command, element, mContext.layout), *key,
                           finding);
            }
        }
        mContext.findings.push_back(std::move(finding));
    }

    static void ExplainElement(const SceneCommand& command, const SceneElement& element,
                               Finding& finding) {
        finding.where = WhereOf(command, element);
        if (finding.plugin.find("multi-action") == std::string::npos) return;
        finding.rule = "endless-element";
        finding.message = fmt::format(
            "this element lasts until released, which only the one element of a command may, and "
            "the command has {}; all of it is refused",
            command.elements.size());
        finding.advice = "give it a duration_ms above 0, or a command of its own";
    }

    RuleContext& mContext;
    Loading mLoading;
    std::map<Place, size_t> mKnown;
    std::set<std::pair<Place, std::string>> mTold;
};

}  // namespace

void CheckRefusals(RuleContext& context, Library& library) {
    Refusals refusals(context, library);
    for (const SceneCommand& command : context.scenes.Commands()) refusals.Check(command);
}

}  // namespace lab
