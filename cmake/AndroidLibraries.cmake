# The Android platform libraries: android::log, android::cutils, android::utils.
if(ANDROID)
    include(AndroidNdk)
    return()
endif()

# As Debian packages them: headers under /usr/include/android, libraries in a folder of their own
# that programs must name as a run path. Both are looked for below the root path when
# cross-compiling.
find_path(ANDROID_INCLUDE_DIR android/log.h
    PATHS /usr/include/android
    NO_DEFAULT_PATH REQUIRED)
foreach(name log cutils utils)
    find_library(ANDROID_${name}_LIBRARY ${name}
        PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
        NO_DEFAULT_PATH REQUIRED)
    add_library(android::${name} SHARED IMPORTED)
    set_target_properties(android::${name} PROPERTIES
        IMPORTED_LOCATION ${ANDROID_${name}_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_INCLUDE_DIR})
endforeach()
# libutils and libcutils need their neighbours at link time.
get_filename_component(folder ${ANDROID_log_LIBRARY} DIRECTORY)
set_property(TARGET android::utils PROPERTY INTERFACE_LINK_OPTIONS LINKER:-rpath-link,${folder})
