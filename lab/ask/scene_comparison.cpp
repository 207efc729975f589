#include "lab/ask/scene_comparison.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "base/ids.h"
#include "freq/scene_limits.h"
#include "lab/hal/opcode_drives.h"
#include "lab/hal/step_table.h"
#include "lab/names/resource_names.h"
#include "lab/names/tag_names.h"
#include "lab/names/text.h"
#include "lab/scenes/scene_meaning.h"
#include "lab/scenes/scene_problems.h"
#include "lab/scenes/scene_values.h"
#include "loader/element_keys.h"
#include "loader/vocabulary_table.h"

namespace lab {
namespace {

namespace keys = tarquel::keys;
using Kind = CommandMeaning::Kind;

constexpr char kLasts[] = "lasts";
constexpr char kForMs[] = " ms";
constexpr int kKhzPerMhz = 1000;

struct Effect {
    std::string what;
    std::string value;

    auto operator<=>(const Effect&) const = default;
};
using Effects = std::vector<Effect>;  // each `what` once

struct ElementEffects {
    size_t position = 0;  // among those of its command, from 1
    Effects effects;
};

// What the user of a scene gets, an element at a time.
struct SceneEffects {
    std::optional<int> id;
    std::string name;
    std::string label;
    Effects whole;  // of the command as a whole
    std::vector<ElementEffects> elements;
};

// "big_cpu0_min_freq" as "big floor". A name that tells no cluster stays.
std::string WordsOf(const std::string& name) {
    const auto startOf = [&name](std::string_view end) {
        return name.substr(0, name.size() - end.size());
    };
    if (name == "gpu_min_freq") return "GPU floor";
    if (name == "gpu_max_freq") return "GPU ceiling";
    for (const auto& [end, words] :
         {std::pair{"_cpu0_min_freq", " floor"}, std::pair{"_cpu0_max_freq", " ceiling"},
          std::pair{"_cpu0_scaling_max_freq", " scaling maximum"}}) {
        if (name.ends_with(end)) return startOf(end) + words;
    }
    for (const auto& [start, words] : {std::pair{"min_online_cpu_cluster_", " online at least"},
                                       std::pair{"max_online_cpu_cluster_", " online at most"}}) {
        if (name.starts_with(start)) return name.substr(std::string_view(start).size()) + words;
    }
    return name;
}

// Tells what the scenes of one file do.
class Teller {
  public:
    Teller(const SceneFile& scenes, const DeviceProfile* device)
        : mScenes(scenes), mMeaning(scenes), mLayout(scenes.ClusterLayout()), mDevice(device) {}

    std::vector<SceneEffects> Tell() const {
        std::map<std::string, std::map<std::string, std::string>> described;
        for (const SceneCommand& command : mScenes.Commands()) {
            if (IsDescription(command)) Describe(mMeaning.Of(command), described);
        }
        std::vector<SceneEffects> scenes;
        for (const auto& [label, values] : described) {
            SceneEffects& made = scenes.emplace_back();
            made.label = label;
            for (const auto& [what, value] : values) made.whole.push_back({what, value});
        }
        for (const SceneCommand& command : mScenes.Commands()) {
            if (!IsDescription(command)) scenes.push_back(TellScene(mMeaning.Of(command)));
        }
        return scenes;
    }

  private:
    // Of a key that stands twice the later one counts, in another command too.
    static void Describe(const CommandMeaning& meaning,
                         std::map<std::string, std::map<std::string, std::string>>& described) {
        const ElementMeaning& element = meaning.elements.front();
        const std::optional<int> level = LevelOf(*element.element);
        std::map<std::string, std::string>& values =
            described[level ? fmt::format("frequency level {}", *level) : "clusters"];
        for (const KeyMeaning& key : element.keys) {
            const std::string& name = key.key->name;
            if (level) {
                values[WordsOf(name)] = WithUnit(key.value, Unit::kKhz);
            } else if (name == keys::kIsolation) {
                values[name] = key.key->value;
            } else {
                const std::string cluster = name.substr(0, name.find("_cpu_num"));
                values[(cluster == "lit" ? "little" : cluster) + " CPUs"] = key.key->value;
            }
        }
    }

    SceneEffects TellScene(const CommandMeaning& meaning) const {
        SceneEffects told;
        told.id = meaning.command->id;
        told.name = meaning.command->name;
        told.label = meaning.command->Label();
        if (meaning.IsRefused()) {
            told.whole.push_back({"", "refused by the plug-in"});
            return told;
        }
        const std::optional<int> count = meaning.FindNumber(keys::kBoostCountLimit);
        const std::optional<int> period = meaning.FindNumber(keys::kBoostPeriod);
        if (count && period && *count > 0 && *period > 0) {
            told.whole.push_back(
                {"breaks through", fmt::format("{} times in {} ms", *count, *period)});
        }
        const int* headers = meaning.command->headers;
        if (std::any_of(headers, headers + 3, [](int header) { return header != -1; })) {
            told.whole.push_back(
                {"headers", fmt::format("{} {} {}", headers[0], headers[1], headers[2])});
        }
        for (const ElementMeaning& element : meaning.elements) {
            told.elements.push_back({told.elements.size() + 1, TellElement(element, meaning.kind)});
        }
        return told;
    }

    Effects TellElement(const ElementMeaning& element, Kind kind) const {
        const SceneElement& source = *element.element;
        if (kind != Kind::kInteractive && (source.skip || element.durationMs < 0)) {
            return {{kLasts, "never runs"}};
        }
        Effects effects;
        std::vector<const KeyMeaning*> pairs = element.Kept();
        // A lock has no room for the others.
        if (kind == Kind::kAction && pairs.size() > kMostLockPairs) pairs.resize(kMostLockPairs);
        for (const KeyMeaning* pair : pairs) AddPair(*pair, kind, effects);
        AddBreakthrough(element, kind, effects);
        if (source.stateMask > 0) {
            effects.push_back({"only in states", fmt::format("0x{:x}", source.stateMask)});
        }
        if (source.taskBoost) effects.push_back({"task of the message", "boosted"});
        for (const auto key : {keys::kOffDelayTime, keys::kOffDelayPerc}) {
            const int value = element.HeadValue(key, 0);
            if (value != 0) effects.push_back({std::string(key), std::to_string(value)});
        }
        if (kind != Kind::kInteractive) {
            effects.push_back({kLasts, element.durationMs > 0
                                           ? std::to_string(element.durationMs) + kForMs
                                       : kind == Kind::kLongScene ? "while its event lasts"
                                                                  : "until released"});
        }
        return effects;
    }

    void AddPair(const KeyMeaning& pair, Kind kind, Effects& effects) const {
        if (pair.kind == KeyMeaning::Kind::kText) {
            effects.push_back({pair.key->name, pair.key->value});
            return;
        }
        const bool isTag = pair.kind == KeyMeaning::Kind::kTag;
        if (isTag && pair.value == 0) return;  // asks for nothing
        // What a long scene limits has the words that it has in a lock.
        const int opcode = isTag ? FindTagOpcode(pair.code, mLayout).value_or(0) : pair.code;
        const int value = isTag ? HalValue(pair.code, pair.value) : pair.HandedOn();
        const Resource resource = ResourceOf(opcode, mLayout);
        // Of a long scene that has one of these every request fails.
        const bool isRefused = kind == Kind::kLongScene &&
                               (!isTag || pair.value < 0 || !tarquel::IsSceneTag(pair.code));
        effects.push_back({WordsOf(resource.name) + (isRefused ? ", refused when it runs," : ""),
                           ValueText(opcode, value, resource)});
    }

    std::string ValueText(int opcode, int value, const Resource& resource) const {
        if (!mDevice) return WithUnit(value, resource.unit);
        for (const Drive& drive : DrivesOf(static_cast<uint32_t>(opcode), *mDevice)) {
            const std::optional<StepTable> table = StepsOf(drive, *mDevice);
            if (!table) continue;
            if (drive.unit == Drive::Unit::kCpuMhz) {
                return WithUnit(ToNodeUnit(drive, value, *mDevice), Unit::kKhz);
            }
            const bool isFloor = resource.bound == Bound::kFloor;
            return WithUnit(isFloor ? table->AtLeast(value) : table->AtMost(value), resource.unit);
        }
        return WithUnit(value, resource.unit);
    }

    static void AddBreakthrough(const ElementMeaning& element, Kind kind, Effects& effects) {
        const KeyMeaning* key = element.FindHead(keys::kBoostLimitLevel);
        if (!key || kind != Kind::kAction) return;
        const int highest = LevelDigits(key->value)[7];
        if (highest == 0) return;
        effects.push_back({"breaks through thermal levels", fmt::format("up to {}", highest)});
        // Where the key stands twice its first levels count.
        const auto digits = LevelDigits(element.keys[key->first].value);
        for (int thermal = 1; thermal <= std::min(highest, 4); ++thermal) {
            effects.push_back(
                {fmt::format("under thermal level {}", thermal),
                 fmt::format("frequency level {}", digits[static_cast<size_t>(thermal)])});
        }
    }

    const SceneFile& mScenes;
    const SceneMeaning mMeaning;
    const Layout mLayout;
    const DeviceProfile* mDevice;
};

void AddChanges(std::optional<size_t> element, const Effects& before, const Effects& after,
                std::vector<SceneChange>& changes) {
    const auto find = [](const Effects& effects, const std::string& what) {
        const auto found = std::find_if(effects.begin(), effects.end(),
                                        [&](const Effect& each) { return each.what == what; });
        return found == effects.end() ? std::nullopt : std::optional(found->value);
    };
    const auto begin = static_cast<ptrdiff_t>(changes.size());
    for (const Effect& effect : before) {
        const std::optional<std::string> now = find(after, effect.what);
        if (now != effect.value) changes.push_back({element, effect.what, effect.value, now});
    }
    for (const Effect& effect : after) {
        if (find(before, effect.what)) continue;
        changes.push_back({element, effect.what, std::nullopt, effect.value});
    }
    // How long comes last, as one says it.
    std::stable_partition(changes.begin() + begin, changes.end(),
                          [](const SceneChange& change) { return change.what != kLasts; });
}

// Those of `elements` that do what none of `others` does; each of them stands for one.
std::vector<ElementEffects> LeftOver(const std::vector<ElementEffects>& elements,
                                     const std::vector<ElementEffects>& others) {
    std::multiset<Effects> known;
    for (const ElementEffects& other : others) known.insert(other.effects);
    std::vector<ElementEffects> left;
    for (const ElementEffects& element : elements) {
        const auto same = known.find(element.effects);
        if (same == known.end()) {
            left.push_back(element);
        } else {
            known.erase(same);
        }
    }
    return left;
}

// Elements run at once, so that their order is no difference; of those that differ the first is
// compared with the first.
std::vector<SceneChange> ChangesOf(const SceneEffects& before, const SceneEffects& after) {
    std::vector<SceneChange> changes;
    AddChanges(std::nullopt, before.whole, after.whole, changes);
    const std::vector<ElementEffects> left = LeftOver(before.elements, after.elements);
    const std::vector<ElementEffects> right = LeftOver(after.elements, before.elements);
    const bool isChain = std::max(before.elements.size(), after.elements.size()) > 1;
    for (size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
        const ElementEffects was = i < left.size() ? left[i] : ElementEffects();
        const ElementEffects is = i < right.size() ? right[i] : ElementEffects();
        const size_t position = is.position ? is.position : was.position;
        AddChanges(isChain ? std::optional(position) : std::nullopt, was.effects, is.effects,
                   changes);
    }
    return changes;
}

// Finds the scenes of a file: by id, where that is nobody's by name.
class SceneIndex {
  public:
    explicit SceneIndex(const std::vector<SceneEffects>& scenes) {
        for (const SceneEffects& scene : scenes) {
            mByKey.emplace(KeyOf(scene), &scene);
            if (!scene.name.empty()) mByName.emplace(scene.name, &scene);
        }
    }

    bool Has(const SceneEffects& scene) const { return mByKey.count(KeyOf(scene)) != 0; }

    //   own  the file of `scene`: a scene that has its id there, too, is no other one renamed
    const SceneEffects* Find(const SceneEffects& scene, const SceneIndex& own) const {
        const auto same = mByKey.find(KeyOf(scene));
        if (same != mByKey.end()) return same->second;
        const auto named = mByName.find(scene.name);
        return named == mByName.end() || own.Has(*named->second) ? nullptr : named->second;
    }

  private:
    // What describes the device has no id, but a label that is nobody else's.
    static std::string KeyOf(const SceneEffects& scene) {
        return scene.id ? std::to_string(*scene.id) : scene.label;
    }

    std::map<std::string, const SceneEffects*> mByKey;
    std::map<std::string, const SceneEffects*> mByName;
};

// The text without its unit where the other one has the same.
std::string WithoutUnit(const std::string& text, const std::string& other) {
    const size_t at = text.rfind(' ');
    const bool isNumber = at != text.npos && IsDigit(text[at - 1]);
    return isNumber && other.ends_with(text.substr(at)) ? text.substr(0, at) : text;
}

const char* NameOf(SceneDifference::Kind kind) {
    constexpr const char* kNames[] = {"changed", "new", "gone"};
    return kNames[static_cast<size_t>(kind)];
}

}  // namespace

std::string SceneChange::Text() const {
    if (what.empty()) return (after ? "now " : "no longer ") + (after ? *after : *before);
    const std::string lead = what == kLasts ? "" : what + " ";
    if (!before) return lead + *after + " (new)";
    if (!after) return lead + *before + " (gone)";
    return lead + WithoutUnit(*before, *after) + " -> " + *after;
}

std::string SceneDifference::Text() const {
    std::string text = label + ": ";
    if (kind != Kind::kChanged) text += NameOf(kind);
    const SceneChange* last = nullptr;
    for (const SceneChange& change : changes) {
        const bool isNext = !last || change.element != last->element;
        if (last || kind != Kind::kChanged) text += isNext ? "; " : ", ";
        if (isNext && change.element) text += fmt::format("element {}: ", *change.element);
        last = &change;
        if (kind == Kind::kChanged) {
            text += change.Text();
            continue;
        }
        if (change.what != kLasts && !change.what.empty()) text += change.what + " ";
        text += kind == Kind::kNew ? *change.after : *change.before;
    }
    return text;
}

size_t SceneComparison::Count(SceneDifference::Kind kind) const {
    return static_cast<size_t>(std::count_if(
        differences.begin(), differences.end(),
        [kind](const SceneDifference& difference) { return difference.kind == kind; }));
}

SceneComparison CompareScenes(const SceneFile& before, const SceneFile& after,
                              const DeviceProfile* device) {
    using Change = SceneDifference::Kind;
    SceneComparison comparison;
    comparison.before = before.File();
    comparison.after = after.File();
    if (device) comparison.device = device->name;
    const std::vector<SceneEffects> left = Teller(before, device).Tell();
    const std::vector<SceneEffects> right = Teller(after, device).Tell();
    const SceneIndex leftIndex(left);
    const SceneIndex rightIndex(right);
    std::set<const SceneEffects*> found;
    for (const SceneEffects& scene : left) {
        const SceneEffects* now = rightIndex.Find(scene, leftIndex);
        std::vector<SceneChange> changes = ChangesOf(scene, now ? *now : SceneEffects());
        if (now && now->id != scene.id) {
            changes.insert(changes.begin(),
                           {{}, "id", std::to_string(*scene.id), std::to_string(*now->id)});
        }
        found.insert(now);
        if (now && changes.empty()) {
            comparison.same += scene.id ? 1 : 0;
            continue;
        }
        comparison.differences.push_back({now ? Change::kChanged : Change::kGone, scene.id,
                                          now ? now->label : scene.label, std::move(changes)});
    }
    for (const SceneEffects& scene : right) {
        if (found.count(&scene)) continue;
        comparison.differences.push_back(
            {Change::kNew, scene.id, scene.label, ChangesOf(SceneEffects(), scene)});
    }
    std::stable_sort(
        comparison.differences.begin(), comparison.differences.end(),
        [](const SceneDifference& a, const SceneDifference& b) { return a.id < b.id; });
    return comparison;
}

void PrintComparison(std::ostream& out, const SceneComparison& comparison, const Paint& paint) {
    constexpr Colour kColours[] = {Colour::kYellow, Colour::kGreen, Colour::kRed};
    for (const SceneDifference& difference : comparison.differences) {
        const std::string text = difference.Text();
        out << paint(kColours[static_cast<size_t>(difference.kind)], difference.label)
            << text.substr(difference.label.size()) << "\n";
    }
    const std::string device = comparison.device.empty() ? "" : " on " + comparison.device;
    if (comparison.differences.empty()) {
        out << fmt::format("{} and {} do the same{}: {}\n", comparison.before, comparison.after,
                           device, Counted(comparison.same, "scene"));
        return;
    }
    out << fmt::format("{} to {}{}: {} changed, {} new, {} gone; {} the same\n", comparison.before,
                       comparison.after, device, comparison.Count(SceneDifference::Kind::kChanged),
                       comparison.Count(SceneDifference::Kind::kNew),
                       comparison.Count(SceneDifference::Kind::kGone), comparison.same);
}

nlohmann::json ComparisonJson(const SceneComparison& comparison) {
    nlohmann::json json = {
        {"before", comparison.before},
        {"after", comparison.after},
        {"device",
         comparison.device.empty() ? nlohmann::json() : nlohmann::json(comparison.device)},
        {"same", comparison.same},
        {"differences", nlohmann::json::array()}};
    for (const SceneDifference& difference : comparison.differences) {
        nlohmann::json changes = nlohmann::json::array();
        for (const SceneChange& change : difference.changes) {
            changes.push_back({{"element", OrNull(change.element)},
                               {"what", change.what},
                               {"before", OrNull(change.before)},
                               {"after", OrNull(change.after)}});
        }
        json["differences"].push_back({{"kind", NameOf(difference.kind)},
                                       {"id", OrNull(difference.id)},
                                       {"label", difference.label},
                                       {"text", difference.Text()},
                                       {"changes", std::move(changes)}});
    }
    return json;
}

}  // namespace lab
