// What the perf HAL's opcodes mean to a reader: name, unit, and how several locks combine.
#pragma once

#include <optional>
#include <string>

#include "lab/hal/opcode_drives.h"
#include "lab/names/tag_names.h"

namespace lab {

struct Resource {
    std::string name;  // as scene files and tags call it; "0x12345678" when nobody does
    Unit unit = Unit::kNone;
    Bound bound = Bound::kExact;
};

// The resource behind `opcode`: the vocabulary's name first, else the tag's.
Resource ResourceOf(int opcode, Layout layout);

// What the HAL made of a lock's value in the node's unit where the device has no such step: "the
// device has no step of 1100 MHz: rounded up to 1113600 kHz". Empty where it has.
std::string RoundingText(const Drive& drive, int value, int64_t nodeValue);

}  // namespace lab
