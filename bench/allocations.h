// Counts what is taken from the heap: the program that carries it defines malloc and its kin,
// through which operator new and the C library go too.
#pragma once

#include <cstddef>

namespace bench {

// How often the calling thread took from the heap since it began.
size_t CountAllocations();

// What the process has taken and not given back, in bytes, as the heap rounds them.
long long HeapBytesHeld();

}  // namespace bench
