// The results of several runs as JUnit XML, which CI servers show.
#pragma once

#include <ostream>
#include <vector>

#include "lab/program/run_result.h"

namespace lab {

// A test case for each result: findings are a failure, what cannot run is an error.
void WriteJunit(const std::vector<RunResult>& results, std::ostream& out);

}  // namespace lab
