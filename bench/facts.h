// Figures that do not depend on the machine's load: allocations, memory held, and the library as a
// file.
#pragma once

#include <vector>

#include "bench/requests.h"
#include "bench/results.h"

namespace bench {

// What one run of `request` takes from the heap once it is warm: in its state, after several runs.
long long WarmAllocations(const Request& request);

// What is held from the heap after Initialize() and for a configuration of 1,000 commands, and what
// the loaded library keeps in memory. Before any other use of the plug-in.
std::vector<Fact> MeasureMemory(Plugin& plugin);

// Size and load-time work of the built library.
std::vector<Fact> DescribeLibraryFile();

}  // namespace bench
