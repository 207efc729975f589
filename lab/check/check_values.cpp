// What a device makes of the values of a scene file.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "base/tags.h"
#include "lab/check/scene_rules.h"
#include "lab/hal/opcode_drives.h"
#include "lab/names/node_names.h"
#include "lab/names/resource_names.h"
#include "loader/vocabulary_table.h"

namespace lab {
namespace {

// A frequency in the unit that its key takes, which is the table's too.
//   becomes  the step that it gets, where the HAL's way is its own
void CheckStep(RuleContext& context, const ElementMeaning& element, const KeyMeaning& key,
               const char* unit, const StepTable& table,
               std::optional<int64_t> becomes = std::nullopt) {
    if (table.Has(*key.number)) return;
    const std::string& name = key.key->name;
    const bool isFloor = name.find("min_freq") != std::string::npos;
    const std::optional<RangeFault> fault =
        FindRangeFault(table, {name, "key", *key.number, unit, isFloor});
    if (fault) {
        context.Add(Severity::kWarning, "frequency-range", element, key.key->place,
                    fault->where + ": " + fault->outcome, fault->advice);
        return;
    }
    const int64_t below = table.AtMost(*key.number);
    const int64_t above = table.AtLeast(*key.number);
    context.Add(Severity::kWarning, "frequency-step", element, key.key->place,
                fmt::format("{} = {} {} is no step of {}: this {} becomes {}", name, *key.number,
                            unit, table.owner, isFloor ? "floor" : "ceiling",
                            becomes.value_or(isFloor ? above : below)),
                fmt::format("write a step; beside it are {} and {}", below, above));
}

// The device with the clusters that it has not: what an opcode would drive there.
bool IsKnownResource(int opcode, const DeviceProfile& device) {
    DeviceProfile other = device;
    if (other.HasPrime()) {
        std::erase_if(other.clusters, [](const CpuCluster& one) { return one.name == "prime"; });
    } else {
        CpuCluster prime = other.clusters.back();
        prime.name = "prime";
        prime.firstCpu = prime.lastCpu = other.clusters.back().lastCpu + 1;
        other.clusters.push_back(prime);
    }
    return !DrivesOf(static_cast<uint32_t>(opcode), other).empty();
}

void CheckFrequency(RuleContext& context, const ElementMeaning& element, const KeyMeaning& pair,
                    const Drive& drive, const StepTable& table) {
    std::optional<int64_t> becomes;
    if (tarquel::IsFrequencyOpcode(pair.code)) {
        // What the loader refuses for its number CheckRefusals tells.
        if (*pair.number < kLowestKhz || *pair.number > kHighestKhz) return;
        becomes = ToNodeUnit(drive, pair.HandedOn(), context.device);
    }
    CheckStep(context, element, pair, drive.unit == Drive::Unit::kGpuMhz ? "MHz" : "kHz", table,
              becomes);
}

// Checks the value of a resource whose range its nature tells, where the phone's kernel has no node
// to ask. False when nothing is known of it.
bool CheckNature(RuleContext& context, const ElementMeaning& element, const KeyMeaning& pair) {
    const Resource resource = ResourceOf(pair.code, context.layout);
    const std::string& name = pair.key->name;
    int64_t high = -1;
    if (resource.unit == Unit::kSwitch) high = 1;
    if (name.find("uclamp_m") != std::string::npos) high = 100;
    if (name.find("power_level") != std::string::npos) {
        high = static_cast<int64_t>(context.device.gpuMhz.size()) - 1;
    }
    if (high >= 0 && (*pair.number < 0 || *pair.number > high)) {
        context.Add(Severity::kWarning, "value-range", element, pair.key->place,
                    fmt::format("{} is {}, and takes 0 to {}", name, *pair.number, high),
                    fmt::format("write a number from 0 to {}", high));
    }
    return high >= 0;
}

// A clamp of 100 percent reads "max".
bool IsSameNumber(const std::string& a, const std::string& b) {
    const auto number = [](const std::string& text) {
        return text == "max" ? 100.0 : std::strtod(text.c_str(), nullptr);
    };
    return number(a) == number(b);
}

// What the kernel did with the HAL's write of a node that holds no frequency.
void CheckWrite(RuleContext& context, const ElementMeaning& element, const KeyMeaning& pair,
                const Drive& drive, const std::vector<NodeAccess>& writes) {
    const auto write = std::find_if(writes.rbegin(), writes.rend(), [&](const NodeAccess& access) {
        return access.path == drive.path;
    });
    if (write == writes.rend()) {
        if (*pair.number >= 0) return;
        context.Add(Severity::kWarning, "value-range", element, pair.key->place,
                    fmt::format("{} is {}: a lock does not write it", pair.key->name, *pair.number),
                    "write a number above 0");
    } else if (write->error != 0) {
        context.Add(Severity::kWarning, "value-range", element, pair.key->place,
                    fmt::format("{} = {}: the kernel refuses to write '{}' to {} ({})",
                                pair.key->name, *pair.number, write->requested,
                                ShortNode(drive.path), std::strerror(write->error)),
                    drive.path.ends_with("migrate")
                        ? "the kernel keeps up at or above down, each from 1 to 100, and a lock "
                          "writes up first, while down is as it was: mind what down is after boot"
                        : "write what the node takes");
    } else if (!drive.entry && !drive.isCounted && !IsSameNumber(write->requested, write->after)) {
        context.Add(Severity::kWarning, "value-range", element, pair.key->place,
                    fmt::format("{} = {}: the kernel makes {} of it in {}", pair.key->name,
                                *pair.number, write->after, ShortNode(drive.path)),
                    fmt::format("write {}", write->after));
    }
}

// Lets the idle phone's HAL take the element's lock, and lets it go again.
std::vector<NodeAccess> TryLock(Phone& phone, const std::vector<const KeyMeaning*>& pairs) {
    std::vector<int> list;
    for (const KeyMeaning* pair : pairs) {
        list.push_back(pair->code);
        list.push_back(pair->HandedOn());
    }
    phone.Events().Clear();
    const int handle = phone.Hal().Acquire(0, 0, list.data(), static_cast<int>(list.size()));
    std::vector<NodeAccess> writes;
    for (const NodeAccess& access : phone.Events().All<NodeAccess>()) {
        if (access.byHal && access.kind == NodeAccess::Kind::kWrite) writes.push_back(access);
    }
    if (handle > 0) phone.Hal().Release(handle);
    phone.Events().Clear();
    return writes;
}

// A tunable without a node on the device: because the device lacks it, or because the lab's phone
// does, which is no fault of the file.
void CheckMissing(RuleContext& context, const ElementMeaning& element, const KeyMeaning& pair,
                  const std::vector<Drive>& drives, bool isValueKnown) {
    const std::string& name = pair.key->name;
    if (drives.empty() && !IsKnownResource(pair.code, context.device)) {
        if (!isValueKnown) context.unchecked.insert(name);
        return;
    }
    context.Add(Severity::kWarning, "node-missing", element, pair.key->place,
                drives.empty() ? fmt::format("{} has no effect: {} has {} clusters", name,
                                             context.device.name, context.device.clusters.size())
                               : fmt::format("{} has no effect: {} has no node {}", name,
                                             context.device.name, ShortNode(drives.front().path)),
                "remove it from this device's scenes");
}

void CheckLockValues(RuleContext& context, const ElementMeaning& element) {
    std::vector<const KeyMeaning*> pairs = element.Pairs();
    std::erase_if(pairs, [](const KeyMeaning* pair) { return !pair->number; });
    const std::vector<NodeAccess> writes = TryLock(context.phone, pairs);
    for (const KeyMeaning* pair : pairs) {
        const std::vector<Drive> drives =
            DrivesOf(static_cast<uint32_t>(pair->code), context.device);
        const auto present = std::find_if(drives.begin(), drives.end(), [&](const Drive& drive) {
            return context.phone.GetKernel().Has(drive.path);
        });
        if (present == drives.end()) {
            const bool isKnown = CheckNature(context, element, *pair);
            CheckMissing(context, element, *pair, drives, isKnown);
        } else if (const auto table = StepsOf(*present, context.device)) {
            CheckFrequency(context, element, *pair, *present, *table);
        } else {
            CheckWrite(context, element, *pair, *present, writes);
        }
    }
}

void CheckSceneValues(RuleContext& context, const ElementMeaning& element) {
    for (const KeyMeaning* pair : element.Pairs()) {
        if (pair->kind != KeyMeaning::Kind::kTag || pair->number.value_or(0) <= 0) continue;
        const auto table = StepsOfTag(pair->code, context.device, context.layout);
        if (!table) continue;
        const bool isGpu = pair->code == tarquel::kTagGpuMin || pair->code == tarquel::kTagGpuMax;
        CheckStep(context, element, *pair, isGpu ? "Hz" : "kHz", *table);
    }
}

// Floors and ceilings of one resource whose names differ in "min" and "max" alone.
void CheckBounds(RuleContext& context, const ElementMeaning& element) {
    for (const KeyMeaning* floor : element.Pairs()) {
        const std::string& name = floor->key->name;
        const size_t at = name.find("min");
        // Of the GPU's levels the lower number is the faster one.
        const bool isLevel = name.find("power_level") != std::string::npos;
        if (at == std::string::npos || !floor->number || isLevel) continue;
        std::string partner = name;
        partner.replace(at, 3, "max");
        const KeyMeaning* ceiling = nullptr;
        for (const KeyMeaning* pair : element.Pairs()) {
            if (pair->key->name == partner ||
                (pair->kind == KeyMeaning::Kind::kOpcode && floor->kind == pair->kind &&
                 FindKeyOpcode(partner) == pair->code)) {
                ceiling = pair;
            }
        }
        if (!ceiling || !ceiling->number || *ceiling->number >= *floor->number) continue;
        context.Add(Severity::kWarning, "min-above-max", element, floor->key->place,
                    fmt::format("{} is {}, above {} in line {}, {}: the lower one counts", name,
                                *floor->number, ceiling->key->name, ceiling->key->place.line,
                                *ceiling->number),
                    "lower the floor, or raise the ceiling");
    }
}

}  // namespace

std::optional<StepTable> StepsOfTag(int tag, const DeviceProfile& device, Layout layout) {
    const TagFacts* facts = FindTagFacts(tag, layout);
    if (!facts || (facts->bound != Bound::kFloor && facts->bound != Bound::kCeiling)) {
        return std::nullopt;
    }
    if (facts->unit != Unit::kKhz && facts->unit != Unit::kHz) return std::nullopt;
    const std::optional<int> opcode = FindTagOpcode(tag, layout);
    if (!opcode) return std::nullopt;
    for (const Drive& drive : DrivesOf(static_cast<uint32_t>(*opcode), device)) {
        if (std::optional<StepTable> table = StepsOf(drive, device)) {
            return facts->unit == Unit::kHz ? GpuStepsHz(device) : table;
        }
    }
    return std::nullopt;
}

void CheckLevelValues(RuleContext& context, const ElementMeaning& element) {
    for (const KeyMeaning& key : element.keys) {
        const std::string& name = key.key->name;
        const auto cluster =
            std::find_if(std::begin(kClusterKeys), std::end(kClusterKeys),
                         [&](const ClusterKeys& each) { return each.ceiling == name; });
        // An empty value is the plug-in's to refuse.
        if (cluster == std::end(kClusterKeys) || key.key->value.empty()) continue;
        if (!key.number) {
            context.Add(Severity::kError, "number", element, key.key->place,
                        fmt::format("{} = {} is no number; the plug-in takes what it begins with, "
                                    "or 0",
                                    name, key.key->value),
                        "write a frequency in kHz");
        } else if (const auto table = ClusterSteps(context.device, cluster->name)) {
            CheckStep(context, element, key, "kHz", *table);
        }
    }
}

void CheckValues(RuleContext& context, const ElementMeaning& element) {
    CheckBounds(context, element);
    if (element.isLongScene) {
        CheckSceneValues(context, element);
    } else {
        CheckLockValues(context, element);
    }
}

}  // namespace lab
