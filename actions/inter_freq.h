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

// Writes the whole of `value` to `path` in one call, without a newline. 0, or -1 with a log line.
int WriteNodesValue(const char* path, const char* value);

}  // namespace tarquel
