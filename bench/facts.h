// Figures that do not depend on the machine's load: allocations, memory held, and the library as a
// file.
#pragma once

#include <string>
#include <vector>

#include "bench/requests.h"

namespace bench {

// A figure that does not depend on the machine's load.
struct Fact {
    std::string name;
    long long value;
    std::string unit;
    long long most = -1;  // what it may be at most; -1 where nothing is asked
};

// What one run of `request` takes from the heap once it is warm: in its state, after several runs.
long long WarmAllocations(const Request& request);

// What is held from the heap after Initialize() and for a configuration of 1,000 commands, and what
// the loaded library keeps in memory. Before any other use of the plug-in.
std::vector<Fact> MeasureMemory(Plugin& plugin);

// Size and load-time work of the built library.
std::vector<Fact> DescribeLibraryFile();

}  // namespace bench
