// How a harness says what it found.
#pragma once

#include <stdexcept>
#include <string>

namespace fuzz {

// A fuzzer keeps the input that leads here: nothing catches it there.
class Finding : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Throws a Finding unless `holds`.
inline void Require(bool holds, const char* finding) {
    if (!holds) throw Finding(finding);
}

}  // namespace fuzz
