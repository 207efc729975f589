#include "bench/allocations.h"

#include <malloc.h>

#include <cerrno>
#include <cstdlib>

namespace {

thread_local size_t tCount = 0;

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): glibc's own names of what stands below
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
// NOLINTEND(bugprone-reserved-identifier)

void* malloc(size_t size) {
    ++tCount;
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    ++tCount;
    return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) {
    ++tCount;
    return __libc_realloc(memory, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    ++tCount;
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, size_t alignment, size_t size) {
    ++tCount;
    *memory = __libc_memalign(alignment, size);
    return *memory == nullptr ? ENOMEM : 0;
}

}  // extern "C"

namespace bench {

size_t CountAllocations() {
    return tCount;
}

long long HeapBytesHeld() {
    return static_cast<long long>(mallinfo2().uordblks);
}

}  // namespace bench
