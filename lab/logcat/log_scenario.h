// The requests of a capture as a scenario.
#pragma once

#include <string>
#include <vector>

#include "lab/logcat/log_session.h"

namespace lab {

// A scenario that makes the same requests at the same times, counted from the capture's first line,
// and ends when the capture does. Whatever the log shows to have befallen the phone (on-demand
// durations, state bits, refused locks) stands before the request that shows it.
//   leftOut  what it cannot have, in words: requests that a scenario or the scene file cannot name
YamlNode ScenarioOf(LogSession& session, const LogSession::Options& options,
                    std::vector<LogProblem>& leftOut);

}  // namespace lab
