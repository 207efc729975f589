# Toolchain: Clang for AArch64, as on Android, with the C library and the linker of Debian's cross
# compiler and the libraries that scripts/aarch64-sysroot unpacks. Programs run under qemu's user
# emulation, with the libraries of the same folder.
get_filename_component(sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/aarch64-sysroot ABSOLUTE)
if(NOT EXISTS ${sysroot}/packages.txt)
    message(FATAL_ERROR
        "${sysroot} is not there: run scripts/aarch64-sysroot (or ./dev test aarch64)")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)
foreach(language C CXX)
    set(CMAKE_${language}_COMPILER_TARGET aarch64-linux-gnu)
    # The choice of atomic instructions at run time is code that runs when the library is loaded.
    set(CMAKE_${language}_FLAGS_INIT -mno-outline-atomics)
endforeach()
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L ${sysroot})

# Libraries and their CMake packages come from the folder alone, programs from this machine.
set(CMAKE_FIND_ROOT_PATH ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The libraries' own neighbours, which the linker looks up as the loader will.
foreach(folder aarch64-linux-gnu aarch64-linux-gnu/android p7zip)
    string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${sysroot}/usr/lib/${folder}")
    string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -Wl,-rpath-link,${sysroot}/usr/lib/${folder}")
endforeach()
