// The function of the C library (or of a sanitizer) that a symbol of the phone stands before, and
// how such a function fails.
#pragma once

#include <dlfcn.h>

#include <cerrno>

namespace lab {

// The next definition of `name` after the program's own, null when there is none. Ask once and
// keep the answer in a static.
template <typename Function>
Function* RealFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Returns -1, with `error` as the errno.
inline int Fail(int error) {
    errno = error;
    return -1;
}

}  // namespace lab
