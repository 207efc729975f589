// The function of the C library (or of a sanitizer) that a symbol of the phone stands before.
#pragma once

#include <dlfcn.h>

namespace lab {

// The next definition of `name` after the program's own, null when there is none. Ask once and
// keep the answer in a static.
template <typename Function>
Function* RealFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace lab
