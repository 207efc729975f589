#include "lab/ask/vocabulary_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "lab/names/resource_names.h"
#include "lab/names/tag_names.h"
#include "lab/names/text.h"
#include "loader/element_keys.h"
#include "loader/vocabulary_table.h"
#include "nodes/inter_path_table.h"

namespace lab {
namespace {

namespace keys = tarquel::keys;

// The perf HAL's ranges: an opcode's upper ten bits.
struct Family {
    uint32_t range;
    std::string_view name;
};
constexpr uint32_t kRangeMask = 0xFFC00000;

// A key that describes an element or the device.
struct PlainKey {
    std::string_view key;
    std::string_view unit;
    std::string_view meaning;
};

// clang-format off
constexpr auto kFamilies = std::to_array<Family>({
    {0x40400000, "low-power modes"},
    {0x40800000, "CPU frequency"},
    {0x40C00000, "scheduler"},
    {0x41000000, "cores"},
    {0x41400000, "governor"},
    {0x41800000, "LLCC bandwidth"},
    {0x42800000, "GPU"},
    {0x42C00000, "memory and tasks"},
    {0x43000000, "DDR bandwidth"},
    {0x43400000, "memory latency"},
    {0x43C00000, "clusters of unlike capacity"},
    {0x44000000, "frame-aware scheduling"},
    {0x44400000, "task groups"},
    {0x44800000, "power and thermal"},
    {0x44C00000, "storage"},
    {0x45000000, "task placement"},
    {0x00000000, "outside the HAL's ranges"},
});

constexpr auto kElementKeys = std::to_array<PlainKey>({
    {keys::kDuration,        "ms",    "how long; first of all. 0 or no such key: until released. Negative: never runs"},
    {keys::kBoostLimitLevel, "digits", "decimal for 0ABCD00E in hexadecimal: boost levels under thermal level 1 to 4 (A to D), the highest thermal level under which it boosts (E)"},
    {keys::kOffDelayTime,    "",      "kept with the action for the server"},
    {keys::kOffDelayPerc,    "",      "kept with the action for the server"},
    {keys::kBoostCountLimit, "times", "how often the command breaks through in a period"},
    {keys::kBoostPeriod,     "ms",    "that period"},
});

constexpr auto kCpuInfoKeys = std::to_array<PlainKey>({
    {keys::kLittleCpus, "first-last", "CPUs of the little cluster"},
    {keys::kBigCpus,    "first-last", "CPUs of the cluster above it"},
    {keys::kPrimeCpus,  "first-last", "CPUs of the third cluster; makes it a device with three"},
    {keys::kIsolation,  "0 or 1",     "0: limits on online cores are refused"},
});

constexpr auto kLevelKeys = std::to_array<PlainKey>({
    {keys::kLittleMaxFreq, "kHz", "little cluster's ceiling during a breakthrough"},
    {keys::kBigMaxFreq,    "kHz", "big cluster's ceiling during a breakthrough"},
    {keys::kPrimeMaxFreq,  "kHz", "prime cluster's ceiling during a breakthrough"},
});
// clang-format on

static_assert(std::all_of(tarquel::kOpcodeNames.begin(), tarquel::kOpcodeNames.end(),
                          [](const tarquel::OpcodeName& row) {
                              const uint32_t range = static_cast<uint32_t>(row.opcode) & kRangeMask;
                              return std::any_of(
                                  kFamilies.begin(), kFamilies.end(),
                                  [range](const Family& family) { return family.range == range; });
                          }),
              "every tunable is in a family's section");

// Nothing in the other bus layout for a key that it lacks.
std::optional<int> OtherBusOpcode(const tarquel::OpcodeName& row) {
    if (row.name == tarquel::kOnlyInBusLayout1) return std::nullopt;
    for (const tarquel::OpcodeName& other : tarquel::kOtherBusLayoutNames) {
        if (other.name == row.name) return other.opcode;
    }
    return row.opcode;
}

Listing TunablesOf(const Family& family) {
    Listing keys({{"key", "key", true},
                  {"opcode", "opcode", true},
                  {"other_bus_opcode", nullptr},
                  {nullptr, "other bus layout", false, "no such key"},
                  {"family", nullptr},
                  {"unit", "value"},
                  {"lock_unit", nullptr},
                  {nullptr, "in a lock"}});
    for (const tarquel::OpcodeName& row : tarquel::kOpcodeNames) {
        if ((static_cast<uint32_t>(row.opcode) & kRangeMask) != family.range) continue;
        const std::optional<int> other = OtherBusOpcode(row);
        const nlohmann::json otherHex = other ? nlohmann::json(Hex(*other)) : nlohmann::json();
        const Unit lockUnit = ResourceOf(row.opcode, Layout::kThreeClusters).unit;
        const Unit unit = tarquel::IsFrequencyOpcode(row.opcode) ? Unit::kKhz : lockUnit;
        keys.Add({row.name, Hex(row.opcode), otherHex, other == row.opcode ? "" : otherHex,
                  family.name, UnitName(unit), UnitName(lockUnit),
                  unit == lockUnit ? "" : UnitName(lockUnit)});
    }
    return keys;
}

Listing PlainKeys(const char* meaning = "meaning") {
    return Listing({{"key", "key", true}, {"value", "value"}, {"meaning", meaning}});
}

template <typename Rows>
Listing Listed(const Rows& rows) {
    Listing keys = PlainKeys();
    for (const PlainKey& row : rows) keys.Add({row.key, row.unit, row.meaning});
    return keys;
}

Listing InteractiveKeys() {
    Listing keys = PlainKeys("node or meaning");
    for (const std::string_view key : tarquel::kInteractiveKeys) {
        const auto row = std::find_if(kElementKeys.begin(), kElementKeys.end(),
                                      [key](const PlainKey& each) { return each.key == key; });
        if (row != kElementKeys.end()) {
            keys.Add({row->key, row->unit, row->meaning});
        } else {
            const char* path = tarquel::FindInterPath(key);
            keys.Add({key, "", path ? path : "names no node"});
        }
    }
    return keys;
}

nlohmann::json TagIn(int tag) {
    return tag == tarquel::kNoTag ? nlohmann::json() : nlohmann::json(tag);
}

Listing LongSceneKeys() {
    Listing keys({{"key", "key", true},
                  {"unit", "value"},
                  {"tag_two_clusters", "tag, two clusters", false, "-"},
                  {"tag_three_clusters", "tag, three clusters", false, "-"}});
    for (const tarquel::TagName& row : tarquel::kTagNames) {
        const TagFacts* facts = FindTagFacts(row.tagThreeClusters, Layout::kThreeClusters);
        keys.Add({row.name, UnitName(facts ? facts->unit : Unit::kNone), TagIn(row.tagTwoClusters),
                  TagIn(row.tagThreeClusters)});
    }
    return keys;
}

struct Section {
    std::string heading;
    const char* name;  // in JSON, where sections of one name are one
    Listing keys;
};

// The tunables by family, then the keys of every element, of the clusters, of frequency levels, of
// the interactive governor and of long scenes.
std::vector<Section> ListVocabulary() {
    std::vector<Section> sections;
    for (const Family& family : kFamilies) {
        sections.push_back(
            {fmt::format("Tunables: {}", family.name), "tunables", TunablesOf(family)});
    }
    sections.push_back({"Keys of every element", "element", Listed(kElementKeys)});
    sections.push_back(
        {fmt::format("Keys of <{}>", keys::kCpuInfo), "cpu_info", Listed(kCpuInfoKeys)});
    sections.push_back(
        {fmt::format("Keys of <{}N>", keys::kFreqLevelInfo), "level", Listed(kLevelKeys)});
    sections.push_back(
        {"Keys of an interactive-governor element", "interactive", InteractiveKeys()});
    sections.push_back({"Keys of a long scene", "long_scene", LongSceneKeys()});
    return sections;
}

}  // namespace

void PrintVocabulary(std::ostream& out, const Paint& paint) {
    const char* gap = "";
    for (const Section& section : ListVocabulary()) {
        out << gap << paint(Colour::kCyan, section.heading) << "\n";
        section.keys.ForReader().Print(out, "  ", paint);
        gap = "\n";
    }
}

void PrintVocabularyPage(std::ostream& out) {
    out << "# Vocabulary of scene files\n\n"
           "Made by `tarquel-lab vocabulary --markdown` from the loader's tables; `./dev docs` "
           "writes it anew.\n"
        << fmt::format(
               "The {} tunables stand by the perf HAL's families, then the keys that describe an "
               "element or\nthe device. \"Other bus layout\" is the opcode with the older bus "
               "monitors where it differs, \"in a\nlock\" the unit that the perf HAL gets where it "
               "differs. How a file is made of them is in\n[scene-files.md](scene-files.md).\n",
               tarquel::kOpcodeNames.size());
    for (const Section& section : ListVocabulary()) {
        std::string title = section.heading;
        for (const auto& [sign, text] : {std::pair('<', "`<"), std::pair('>', ">`")}) {
            if (const size_t at = title.find(sign); at != title.npos) title.replace(at, 1, text);
        }
        out << "\n## " << title << "\n\n";
        section.keys.ForMarkdown().PrintMarkdown(out);
    }
}

nlohmann::json VocabularyJson() {
    nlohmann::json json;
    for (const Section& section : ListVocabulary()) {
        nlohmann::json& keys = json[section.name];
        for (nlohmann::json& key : section.keys.ForJson()) keys.push_back(std::move(key));
    }
    return json;
}

}  // namespace lab
