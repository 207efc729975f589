#include "lab/book/run_conditions.h"

#include <fmt/format.h>

#include "lab/scenes/scene_values.h"

namespace lab {

void RunConditions::SetControlType(int type, int line) {
    const bool changesNothing = type < 0 || type == 1 || type == 3 || type > 10;
    if (changesNothing) return;
    mThermalLevel = type >= 5 && type <= 8 ? type - 4 : 0;
    if (type == 0) mIsCold = false;
    if (type != 4 && type != 10) return;
    mIsCold = true;
    mColdLine = line;
}

std::string RunConditions::WhyNoBreakthrough(const SceneElement& element) const {
    const int highest = BoostLimitLevelOf(element);
    if (mThermalLevel < 1 || highest >= mThermalLevel) return "";
    if (highest < 1) {
        return fmt::format("lifts no thermal limit: it has no boost_limit_level for level {}",
                           mThermalLevel);
    }
    return fmt::format(
        "lifts no thermal limit: its boost_limit_level ends at {}, and level {} is "
        "in force",
        highest, mThermalLevel);
}

std::string RunConditions::WhyPassedOver(const SceneElement& element) const {
    if (element.skip) return "its skip is 1";
    if (DurationOf(element) < 0) return "its duration_ms is negative";
    if (element.stateMask > 0 && (element.stateMask & mState) == 0) {
        return fmt::format("its state_mask 0x{:x} shares no bit with the state 0x{:x}",
                           static_cast<unsigned>(element.stateMask), static_cast<unsigned>(mState));
    }
    if (mIsCold) {
        return fmt::format("at low temperature nothing boosts (control type of line {})",
                           mColdLine);
    }
    return "";
}

}  // namespace lab
