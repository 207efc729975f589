# What stands for the NDK's toolchain file where there is no NDK: Debian's Clang for Android's
# target with the folder that scripts/android-stand-in lays out. It compiles and links the library;
# what it makes is checked and never run. Only what POSIX has is declared: what the library takes
# from the C library beyond that does not compile.
set(CMAKE_SYSTEM_NAME Android)
set(CMAKE_SYSTEM_VERSION 1) # all of it is said here
set(CMAKE_SYSTEM_PROCESSOR aarch64)
get_filename_component(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../sysroot ABSOLUTE)
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_C_COMPILER_TARGET aarch64-linux-android29)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-android29)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_C_FLAGS_INIT "-U_GNU_SOURCE -D_POSIX_C_SOURCE=200809L")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT} -stdlib=libc++ -Qunused-arguments")
# As the NDK links, less the C library.
set(CMAKE_SHARED_LINKER_FLAGS_INIT
    "-nostdlib -fuse-ld=lld -Wl,--no-undefined -Wl,--fatal-warnings -Wl,--build-id=sha1")
