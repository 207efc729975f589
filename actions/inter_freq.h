// Interactive-governor actions: name/value pairs written straight to the governor's nodes.
#pragma once

#include "tarquel/action.h"

namespace tarquel {

// Writes the pairs of `action` in order.
//   payload  one value; -1 ends the scene, which undoes nothing and returns 0
//   Returns  0; -1 for a null payload, an action without pairs, with fewer than it claims or of
//            which no pair names a node, and at the first pair that cannot be written (the rest is
//            left out)
int DoInterFreqAction(const QcomAction& action, const int* payload);

}  // namespace tarquel
