// The Android log. The tag is null for every message but one (QcomPerfPlat::Initialize).
//
// Macros, not functions, so that the compiler checks each format where it stands and a line that a
// switch holds back costs no argument evaluation. Errors are always written; lines at info and
// debug priority only while a debug switch is on, but for the loader's, which has no switches.
#pragma once

#include <android/log.h>

// A line is written for a reader of the log; a request that needs none runs straight through. Said
// to the compiler, which then places what leads to a line out of the way.
extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((cold));

#define TARQUEL_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, nullptr, __VA_ARGS__)
#define TARQUEL_LOGI(...) __android_log_print(ANDROID_LOG_INFO, nullptr, __VA_ARGS__)

// The same while `isOn`, at info and at debug priority.
#define TARQUEL_LOGI_IF(isOn, ...)           \
    do {                                     \
        if (isOn) TARQUEL_LOGI(__VA_ARGS__); \
    } while (false)
#define TARQUEL_LOGD_IF(isOn, ...)                                              \
    do {                                                                        \
        if (isOn) __android_log_print(ANDROID_LOG_DEBUG, nullptr, __VA_ARGS__); \
    } while (false)
