# What the NDK lacks for a library of the platform:
#   libcutils, libutils  their headers from TARQUEL_PLATFORM_HEADERS; for the linker, libraries of
#                        the same name with nothing in them, that are never installed
#   libc++               the platform's instead of the NDK's: the same ABI, but the NDK renames the
#                        inline namespace, and with it every exported name that has a std:: type
set(TARQUEL_PLATFORM_HEADERS /usr/include/android CACHE STRING
    "Folders with the headers of the platform's libcutils and libutils")

set(headers "")
foreach(header cutils/trace.h utils/String8.h)
    string(MAKE_C_IDENTIFIER ${header} name)
    find_path(PLATFORM_${name} ${header} PATHS ${TARQUEL_PLATFORM_HEADERS}
        NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    if(NOT PLATFORM_${name})
        message(FATAL_ERROR "${header} is not in ${TARQUEL_PLATFORM_HEADERS}: install Debian's "
            "android-libcutils-dev and android-libutils-dev, or give a platform tree's folders\n"
            "  cmake --preset android -D 'TARQUEL_PLATFORM_HEADERS="
            "TREE/system/core/libcutils/include;TREE/system/core/libutils/include'")
    endif()
endforeach()
# Behind the NDK's own headers: what the NDK has too is taken from there.
list(TRANSFORM TARQUEL_PLATFORM_HEADERS PREPEND -idirafter OUTPUT_VARIABLE header_options)

# platform_library(NAME): the target platform_NAME, an empty libNAME.so to link with.
function(platform_library name)
    set(source ${CMAKE_BINARY_DIR}/stubs/${name}.c)
    file(CONFIGURE OUTPUT ${source} CONTENT "/* The phone has the library itself. */\n")
    add_library(platform_${name} SHARED ${source})
    target_link_options(platform_${name} PRIVATE -nostdlib)
    set_target_properties(platform_${name} PROPERTIES
        OUTPUT_NAME ${name}
        LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/stubs)
endfunction()

foreach(name cutils utils)
    platform_library(${name})
    add_library(android_${name} INTERFACE)
    add_library(android::${name} ALIAS android_${name})
    target_compile_options(android_${name} INTERFACE ${header_options})
    target_link_libraries(android_${name} INTERFACE platform_${name})
endforeach()
add_library(android_log INTERFACE)
add_library(android::log ALIAS android_log)
target_link_libraries(android_log INTERFACE log)

set(config ${CMAKE_SYSROOT}/usr/include/c++/v1/__config_site)
if(NOT EXISTS ${config})
    message(FATAL_ERROR "${config} is not there: the NDK must be r25 or newer")
endif()
file(READ ${config} text)
string(REGEX REPLACE "(_LIBCPP_ABI_NAMESPACE) +[a-zA-Z0-9_]+" "\\1 __1" text "${text}")
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/libc++/__config_site CONTENT "${text}" @ONLY)
platform_library(c++)
target_compile_options(project_stdlib INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-isystem${CMAKE_BINARY_DIR}/libc++>)
target_link_options(project_stdlib INTERFACE -nostdlib++
    # The platform's symbols are found on the phone: the NDK's refusal of them is taken back.
    LINKER:-z,undefs)
target_link_libraries(project_stdlib INTERFACE platform_c++)
