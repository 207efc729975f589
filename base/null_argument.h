// Refuses a null pointer where the interface has a reference.
#pragma once

#include "base/log.h"

namespace tarquel {

// True, with a log line, when a reference argument of `operation` is a null pointer: the server
// passes addresses. The library is compiled without the assumption that a reference never is one
// (-fno-delete-null-pointer-checks).
inline bool IsNullArgument(const void* address, const char* operation) {
    if (address != nullptr) return false;
    TARQUEL_LOGE("tarquel: invalid request, argument is NULL in %s!\n", operation);
    return true;
}

}  // namespace tarquel
