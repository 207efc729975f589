// A device profile made of a phone's dump.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "lab/phone/device_profile.h"
#include "lab/profile/phone_dump.h"

namespace lab {

struct MadeProfile {
    DeviceProfile profile;
    // What the dump does not tell and the profile has all the same, by field: "little khz",
    // "gpu mhz", "gpu initial_mhz", "DDR/19091000.qcom,bwmon-ddr khz".
    std::map<std::string, std::string> guesses;
};

// The profile of the phone; `name` empty: what the chip calls itself, in small letters. Throws
// InputError when the dump does not tell which CPUs form the clusters, or how fast they are.
MadeProfile MakeProfile(const PhoneDump& dump, const std::string& name);

// A tag, or a key of the interactive governor, of whose nodes the phone lacks some.
struct LackingNodes {
    std::string name;  // "ddr_bw_min", "go_hispeed_load_l"
    int tag = -1;      // -1: a key
    size_t all = 0;    // how many nodes it has
    std::map<PhoneDump::State, std::vector<std::string>> paths = {};  // of those it lacks
};

// The nodes of the plug-in's tables that the phone has not, or that cannot be known of, in the
// order of the tags. A node that only the first CPU of a cluster has, as core control's, is not
// missing on the others.
std::vector<LackingNodes> FindLackingNodes(const PhoneDump& dump, const DeviceProfile& profile);

// The profile as a file that the lab loads, with the dump's origin and the guesses as comments.
std::string ProfileYaml(const MadeProfile& made, const PhoneDump& dump);

}  // namespace lab
