// Bounds-checked C functions of the platform; defined by the platform, not by the plug-in.
#pragma once

#include <cstddef>
#include <cstdio>

extern "C" {
// Writes at most `count` characters and a terminator into `dest` of `destMax` bytes.
// Returns the characters written, -1 on any failure, truncation included.
int snprintf_s(char* dest, size_t destMax, size_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// As sscanf and fscanf: the number of values read, or EOF.
int sscanf_s(const char* buffer, const char* format, ...) __attribute__((format(scanf, 2, 3)));
int fscanf_s(FILE* stream, const char* format, ...) __attribute__((format(scanf, 2, 3)));

// Sets `count` bytes of `dest` (of `destMax` bytes) to `c`. Returns 0 on success.
int memset_s(void* dest, size_t destMax, int c, size_t count);
}
