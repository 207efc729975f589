#include "lab/ask/scene_effects.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string_view>

#include "freq/scene_limits.h"
#include "lab/hal/opcode_drives.h"
#include "lab/hal/step_table.h"
#include "lab/names/resource_names.h"
#include "lab/names/tag_names.h"
#include "lab/scenes/scene_meaning.h"
#include "loader/element_keys.h"

namespace lab {
namespace {

namespace keys = tarquel::keys;
using Kind = CommandMeaning::Kind;

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
                                           ? std::to_string(element.durationMs) + " ms"
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
        for (int thermal = 1; thermal <= std::min(highest, kThermalLevels); ++thermal) {
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

}  // namespace

std::vector<SceneEffects> EffectsOf(const SceneFile& scenes, const DeviceProfile* device) {
    return Teller(scenes, device).Tell();
}

}  // namespace lab
