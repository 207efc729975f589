// System properties; defined by the platform's libcutils. Declared here because the header of that
// library cannot be compiled on a Linux host.
#pragma once

#include <cstddef>

namespace tarquel {
inline constexpr size_t kPropertyValueMax = 92;  // bytes, terminator included
}

// Reads `key` into `value` (kPropertyValueMax bytes), `defaultValue` when it is unset or empty.
// Returns the length of the value.
extern "C" int property_get(const char* key, char* value, const char* defaultValue);
