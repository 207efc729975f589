// Tells arguments that no caller may pass: a null pointer where the interface has a reference, a
// record that claims more than it holds. What is refused is said in the log and changes nothing.
#pragma once

#include "base/chain.h"
#include "base/log.h"
#include "base/perf_list.h"
#include "tarquel/action.h"

namespace tarquel {

// True, with a log line, when a reference argument of `operation` is a null pointer: the server
// passes addresses. The library is compiled without the assumption that a reference never is one
// (-fno-delete-null-pointer-checks).
inline bool IsNullArgument(const void* address, const char* operation) {
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

// True, with a log line, for a chain that leads back into itself.
inline bool IsEndlessChain(const Action& first) {
    if (!IsEndless(first)) return false;
    TARQUEL_LOGE("tarquel: action chain is endless, cmdId is %d\n", first.cmdId);
    return true;
}

}  // namespace tarquel
