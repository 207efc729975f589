#include "lab/server/run_conditions.h"

#include <fmt/format.h>

#include "lab/server/scene_values.h"

namespace lab {

void RunConditions::SetControlType(int type, int line) {
    if (type == 0) mIsCold = false;
    if (type != 4 && type != 10) return;
    mIsCold = true;
    mColdLine = line;
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
