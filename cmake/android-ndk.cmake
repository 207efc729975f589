# Toolchain: the NDK's own (r25 or newer) for arm64-v8a, found through ANDROID_NDK_HOME and
# remembered in the build folder. API level 29 is the first with thread-local storage in ELF.
set(ndk "$ENV{ANDROID_NDK_HOME}")
if(NOT ndk)
    set(ndk "${TARQUEL_NDK}")
endif()
if(NOT ndk)
    message(FATAL_ERROR
        "ANDROID_NDK_HOME is not set: name the folder of an unpacked Android NDK, e.g.\n"
        "  ANDROID_NDK_HOME=$HOME/android-ndk-r26d cmake --preset android\n"
        "docs/android.md tells more.")
elseif(NOT EXISTS ${ndk}/build/cmake/android.toolchain.cmake)
    message(FATAL_ERROR "ANDROID_NDK_HOME is '${ndk}', which is no Android NDK: it has no "
        "build/cmake/android.toolchain.cmake")
endif()
set(TARQUEL_NDK "${ndk}" CACHE PATH "The Android NDK in use" FORCE)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TARQUEL_NDK)

set(ANDROID_ABI arm64-v8a)
set(ANDROID_PLATFORM android-29)
set(ANDROID_STL c++_shared)
include(${ndk}/build/cmake/android.toolchain.cmake)
