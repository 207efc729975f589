#include "lab/check/scenario_check.h"

#include <fmt/format.h>

#include "lab/check/scene_rules.h"

namespace lab {
namespace {

std::optional<std::string> FindSlip(const TagValue& pair, const DeviceProfile& device,
                                    Layout layout) {
    if (pair.value <= 0) return std::nullopt;  // lifts the limit
    const auto table = StepsOfTag(pair.tag, device, layout);
    if (!table) return std::nullopt;
    const TagFacts* facts = FindTagFacts(pair.tag, layout);
    const auto fault =
        FindRangeFault(*table, {std::string(facts->name), "tag", pair.value, UnitName(facts->unit),
                                facts->bound == Bound::kFloor});
    if (!fault || !fault->isOtherUnit) return std::nullopt;
    return fault->where + "; " + fault->advice;
}

}  // namespace

std::vector<std::string> FindUnitSlips(const std::vector<Step>& steps, const std::string& file,
                                       const DeviceProfile& device, Layout layout) {
    std::vector<std::string> slips;
    const auto check = [&](int line, const std::vector<TagValue>& tags) {
        for (const TagValue& pair : tags) {
            if (const auto slip = FindSlip(pair, device, layout)) {
                slips.push_back(fmt::format("{}:{}: {}", file, line, *slip));
            }
        }
    };
    for (const Step& step : steps) {
        if (!step.device.empty() && step.device != device.name) continue;
        if (const auto* repeat = std::get_if<Repeat>(&step.request)) {
            const auto inner = FindUnitSlips(repeat->steps, file, device, layout);
            slips.insert(slips.end(), inner.begin(), inner.end());
        } else if (const auto* limits = std::get_if<SetLimits>(&step.request)) {
            check(step.line, limits->tags);
        } else if (const auto* level = std::get_if<SetSchedLevel>(&step.request)) {
            check(step.line, level->tags);
        }
    }
    return slips;
}

}  // namespace lab
