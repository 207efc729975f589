#include "lab/book/run_conditions.h"

#include <fmt/format.h>

#include "lab/names/tag_names.h"
#include "lab/scenes/scene_meaning.h"

namespace lab {

void RunConditions::SetControlType(int type, int line) {
    switch (type) {
        case 0:
            mControl = {type, 0, false, true};
            break;
        case 2:
        case 9:
            mControl = {type, -1, true, mControl.boosts};
            break;
        case 4:
        case 10:
            mControl = {type, -1, true, false};
            mColdLine = line;
            break;
        case 5:
        case 6:
        case 7:
        case 8:
            mControl = {type, ThermalLevelOf(type), type != 5, mControl.boosts};
            break;
        default:
            break;
    }
}

std::string RunConditions::WhyNoBreakthrough(const SceneElement& element) const {
    const int highest = BoostLimitLevelOf(element);
    if (mControl.thermalLevel < 1 || highest >= mControl.thermalLevel) return "";
    if (highest < 1) {
        return fmt::format("lifts no thermal limit: it has no boost_limit_level for level {}",
                           mControl.thermalLevel);
    }
    return fmt::format(
        "lifts no thermal limit: its boost_limit_level ends at {}, and level {} is "
        "in force",
        highest, mControl.thermalLevel);
}

std::string RunConditions::WhyPassedOver(const SceneElement& element) const {
    if (element.skip) return "its skip is 1";
    if (DurationOf(element) < 0) return "its duration_ms is negative";
    if (element.stateMask > 0 && (element.stateMask & mState) == 0) {
        return fmt::format("its state_mask 0x{:x} shares no bit with the state 0x{:x}",
                           static_cast<unsigned>(element.stateMask), static_cast<unsigned>(mState));
    }
    if (!mControl.boosts) {
        return fmt::format("at low temperature nothing boosts (control type of line {})",
                           mColdLine);
    }
    return "";
}

}  // namespace lab
