// What the state bits and the control type in force are, and let an element of a command do.
#pragma once

#include <string>

#include "lab/scenes/scene_file.h"

namespace lab {

// What the control type in force means.
struct ControlState {
    int type = -1;               // as set last; -1: none was
    int thermalLevel = 0;        // 0 to 4; -1: released
    bool limitsInForce = false;  // limits are written, not only locked
    bool boosts = true;          // false: no command boosts

    bool operator==(const ControlState&) const = default;
};

class RunConditions {
  public:
    void SetState(int bits) { mState = bits; }

    // One that the plug-in does not know changes nothing. `line` of the request in the scenario.
    void SetControlType(int type, int line);
    const ControlState& Control() const { return mControl; }

    // Why the element does not run, and its end releases nothing; empty when it runs.
    std::string WhyPassedOver(const SceneElement& element) const;

    // Why the element's lock lifts no thermal limit, though one is in force; empty when it does, or
    // when there is nothing to lift.
    std::string WhyNoBreakthrough(const SceneElement& element) const;

  private:
    int mState = 0;
    ControlState mControl;
    int mColdLine = 0;  // of the request that switched the boosts off
};

}  // namespace lab
