// What the state bits and the control type in force let an element of a command do.
#pragma once

#include <string>

#include "lab/scenes/scene_file.h"

namespace lab {

class RunConditions {
  public:
    void SetState(int bits) { mState = bits; }

    // `line` of the request in the scenario.
    void SetControlType(int type, int line);

    // Why the element does not run, and its end releases nothing; empty when it runs.
    std::string WhyPassedOver(const SceneElement& element) const;

    // Why the element's lock lifts no thermal limit, though one is in force; empty when it does, or
    // when there is nothing to lift.
    std::string WhyNoBreakthrough(const SceneElement& element) const;

  private:
    int mState = 0;
    int mThermalLevel = 0;  // below 1: none in force
    bool mIsCold = false;   // a control type switched the boosts off
    int mColdLine = 0;      // of that request
};

}  // namespace lab
