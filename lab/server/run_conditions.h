// When the plug-in passes an element of a command over: its own marks against the state bits and
// the control type in force.
#pragma once

#include <string>

#include "lab/server/scene_file.h"

namespace lab {

class RunConditions {
  public:
    void SetState(int bits) { mState = bits; }

    // `line` of the request in the scenario.
    void SetControlType(int type, int line);

    // Why the element does not run, and its end releases nothing; empty when it runs.
    std::string WhyPassedOver(const SceneElement& element) const;

  private:
    int mState = 0;
    bool mIsCold = false;  // a control type switched the boosts off
    int mColdLine = 0;     // of that request
};

}  // namespace lab
