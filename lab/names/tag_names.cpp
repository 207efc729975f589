#include "lab/names/tag_names.h"

#include "lab/names/text.h"
#include "loader/vocabulary_table.h"
#include "nodes/tag_opcode_table.h"

namespace lab {
namespace {

int TagOf(const TagFacts& facts, Layout layout) {
    return layout == Layout::kThreeClusters ? facts.tagThreeClusters : facts.tagTwoClusters;
}

bool Counts(tarquel::TagOpcode::When when, Layout layout) {
    using When = tarquel::TagOpcode::When;
    switch (when) {
        case When::kTwoClusters:
            return layout == Layout::kTwoClusters;
        case When::kThreeClusters:
            return layout == Layout::kThreeClusters;
        case When::kAlways:
        case When::kBusVariant1:
            return true;
    }
    return false;
}

// 1766400 with divisor 1000 gives "1766.4".
std::string Scaled(int64_t value, int64_t divisor) {
    const int64_t tenths = (value * 10 + divisor / 2) / divisor;
    std::string text = std::to_string(tenths / 10);
    if (tenths % 10 != 0) text += "." + std::to_string(tenths % 10);
    return text;
}

}  // namespace

const TagFacts* FindTagFacts(int tag, Layout layout) {
    for (const TagFacts& facts : kTagNames) {
        if (TagOf(facts, layout) == tag) return &facts;
    }
    return nullptr;
}

std::string TagLabel(int tag, Layout layout) {
    const TagFacts* facts = FindTagFacts(tag, layout);
    return facts ? std::string(facts->name) : "tag " + std::to_string(tag);
}

std::optional<int> FindTag(const std::string& name, Layout layout) {
    if (const std::optional<int64_t> number = ParseNumber(name)) {
        if (*number < 0 || *number > INT32_MAX) return std::nullopt;
        return static_cast<int>(*number);
    }
    int tag = kNoSuchTag;
    for (const TagFacts& facts : kTagNames) {
        if (facts.name == name) tag = TagOf(facts, layout);
    }
    return tag == kNoSuchTag ? FindSceneTag(name, layout) : tag;
}

std::optional<int> FindSceneTag(std::string_view key, Layout layout) {
    for (const tarquel::TagName& row : tarquel::kTagNames) {
        if (row.name != key) continue;
        const bool isThree = layout == Layout::kThreeClusters;
        const int tag = isThree ? row.tagThreeClusters : row.tagTwoClusters;
        if (tag != tarquel::kNoTag) return tag;
    }
    return std::nullopt;
}

std::vector<std::string> TagNamesOf(Layout layout) {
    std::vector<std::string> names;
    for (const TagFacts& facts : kTagNames) {
        if (TagOf(facts, layout) != kNoSuchTag) names.emplace_back(facts.name);
    }
    return names;
}

std::optional<int> FindTagOpcode(int tag, Layout layout) {
    std::optional<int> opcode;
    for (const tarquel::TagOpcode& row : tarquel::kTagOpcodes) {
        if (row.tag == tag && Counts(row.when, layout)) opcode = static_cast<int>(row.opcode);
    }
    return opcode;
}

std::optional<int> FindOpcodeTag(int opcode, Layout layout) {
    std::optional<int> found;
    for (const tarquel::TagOpcode& row : tarquel::kTagOpcodes) {
        if (static_cast<int>(row.opcode) != opcode) continue;
        if (FindTagOpcode(row.tag, layout) != opcode) continue;  // another row won
        if (!found || row.tag < *found) found = row.tag;
    }
    return found;
}

int HalValue(int tag, int value) {
    if (value == -1) return value;
    if (tag >= 0 && tag < 9) return value / 1000;
    if (tag == 9 || tag == 10) return value / 1000000;
    return value;
}

std::string WithUnit(int64_t value, Unit unit) {
    switch (unit) {
        // In their own unit where they would round to nothing: mistaken units must show.
        case Unit::kKhz:
            if (value != 0 && value > -1000 && value < 1000) return std::to_string(value) + " kHz";
            return Scaled(value, 1000) + " MHz";
        case Unit::kHz:
            if (value != 0 && value > -1000000 && value < 1000000) {
                return std::to_string(value) + " Hz";
            }
            return Scaled(value, 1000000) + " MHz";
        case Unit::kMhz:
            return std::to_string(value) + " MHz";
        case Unit::kPercent:
            return std::to_string(value) + " %";
        case Unit::kMs:
            return std::to_string(value) + " ms";
        case Unit::kCores:
            return std::to_string(value) + (value == 1 ? " core" : " cores");
        case Unit::kLevel:
            return "level " + std::to_string(value);
        case Unit::kSwitch:
            if (value == 0 || value == 1) return value ? "on" : "off";
            return std::to_string(value);
        case Unit::kNone:
            break;
    }
    return std::to_string(value);
}

std::string_view UnitName(Unit unit) {
    // In the order of Unit.
    constexpr std::string_view kNames[] = {"",   "kHz",   "MHz",   "Hz",    "%",
                                           "ms", "cores", "level", "0 or 1"};
    return kNames[static_cast<size_t>(unit)];
}

std::string BoundText(Bound bound, int64_t value, Unit unit) {
    const char* sign = bound == Bound::kFloor ? ">= " : bound == Bound::kCeiling ? "<= " : "= ";
    return sign + WithUnit(value, unit);
}

}  // namespace lab
