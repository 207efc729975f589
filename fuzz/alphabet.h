// Small sets of requests whose sequences can be played without exception.
#pragma once

#include <string>
#include <vector>

#include "fuzz/requests.h"
#include "lab/scenes/scene_file.h"

namespace fuzz {

struct Letter {
    Deed deed;
    std::string step;  // the same as a step of a scenario
};

struct Alphabet {
    std::string name;
    std::vector<Letter> letters;
};

// Of what Alphabets gives.
std::vector<std::string> AlphabetNames();

// Each mixes requesters on two limits with a long scene, a breakthrough, time and control types.
// Tags, frequencies and commands are the device's.
std::vector<Alphabet> Alphabets(const lab::DeviceProfile& device, const lab::SceneFile& scenes);

// The sequence as a scenario's steps, a line each.
std::string StepsOf(const std::vector<Letter>& letters);

}  // namespace fuzz
