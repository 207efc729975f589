// Tells arguments that no caller may pass: a null pointer where the interface has a reference, a
// record that claims more than it holds. What is refused is said in the log and changes nothing.
#pragma once

#include "base/log.h"
#include "base/perf_list.h"
#include "tarquel/action.h"

namespace tarquel {

// True, with a log line, when a reference argument of `operation` is a null pointer. The server
// passes addresses; that this is one in C++'s eyes too is hidden from the compiler, which takes it
// for granted that a reference is never null.
inline bool IsNullArgument(const void* address, const char* operation) {
    __asm__("" : "+r"(address));
    if (address != nullptr) return false;
    TARQUEL_LOGE("tarquel: invalid request, argument is NULL in %s!\n", operation);
    return true;
}

// True, with a log line, for an action whose list has fewer pairs than the action claims. One that
// claims a negative number of them has none.
inline bool IsCutShort(const Action& action) {
    if (action.tagLen <= 0 || PairInts(action) == static_cast<size_t>(action.tagLen) * 2) {
        return false;
    }
    TARQUEL_LOGE("tarquel: action list is invalid, cmdId is %d, tagLen is %d\n", action.cmdId,
                 action.tagLen);
    return true;
}

}  // namespace tarquel
