#include "lab/ask/scene_comparison.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "lab/ask/scene_effects.h"
#include "lab/names/text.h"

namespace lab {
namespace {

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
    const std::vector<SceneEffects> left = EffectsOf(before, device);
    const std::vector<SceneEffects> right = EffectsOf(after, device);
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
