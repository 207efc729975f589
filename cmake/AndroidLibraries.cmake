# The Android platform libraries as Debian packages them: headers under /usr/include/android,
# libraries in a folder of their own that programs must name as a run path.
foreach(name log cutils utils)
    find_library(ANDROID_${name}_LIBRARY ${name}
        PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
        NO_DEFAULT_PATH REQUIRED)
    add_library(android::${name} SHARED IMPORTED)
    set_target_properties(android::${name} PROPERTIES
        IMPORTED_LOCATION ${ANDROID_${name}_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES /usr/include/android)
endforeach()
# libutils and libcutils need their neighbours at link time.
set_property(TARGET android::utils PROPERTY INTERFACE_LINK_OPTIONS
    LINKER:-rpath-link,/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
