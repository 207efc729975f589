// Events as JSON, for scripts.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "lab/names/tag_names.h"
#include "lab/phone/events.h"

namespace lab {

// {"at_ms": 100.0, "event": "lock", "handle": 1, ...}; a member is left out where it has nothing to
// say. The events are request, result, log, trace, lock, refused, release, expire, write, read,
// timer and jank.
nlohmann::ordered_json EventJson(const Event& event, Layout layout);

// [{"name": "big_cpu0_min_freq", "opcode": 1082130432, "value": 1324}, ...]
nlohmann::ordered_json PairsJson(const std::vector<int>& list, Layout layout);

}  // namespace lab
