// The rules by which limits on one tag are combined. A limit of 0 means none, -1 unset.
#pragma once

namespace tarquel {

// The one combining rule of ceilings.
//   current   what is in force so far; below 1 counts for nothing
//   incoming  the new limit; 0 leaves `current` in force, a negative one is taken as it is
//   Returns   the limit in force now: the smaller of two positive ones
constexpr int LimitMerge(int current, int incoming) {
    if (current < 1) return incoming;
    if (incoming == 0) return current;
    return incoming < current ? incoming : current;
}

// The smallest positive of three limits. Without one: `config3` when the first two are both unset,
// else 0.
constexpr int GetValidMinValue(int config1, int config2, int config3) {
    int smallest = 0;
    for (const int config : {config1, config2, config3}) {
        if (config > 0 && (smallest == 0 || config < smallest)) smallest = config;
    }
    if (smallest != 0) return smallest;
    return config1 < 0 && config2 < 0 ? config3 : 0;
}

}  // namespace tarquel
