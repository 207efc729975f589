# Says whether Android.bp lists the sources that CMake builds the library from; run as a test.
#   cmake -DSOURCES=a.cpp,b.cpp -DBLUEPRINT=Android.bp -P CompareBlueprint.cmake
file(READ ${BLUEPRINT} blueprint)
if(NOT blueprint MATCHES "\n    srcs: \\[([^]]*)\\]")
    message(FATAL_ERROR "${BLUEPRINT} has no srcs")
endif()
string(REGEX MATCHALL "[^\" ,\n]+" listed "${CMAKE_MATCH_1}")
string(REPLACE "," ";" sources "${SOURCES}")

set(missing ${sources})
list(REMOVE_ITEM missing ${listed})
set(surplus ${listed})
list(REMOVE_ITEM surplus ${sources})
if(missing OR surplus)
    message(FATAL_ERROR "${BLUEPRINT} and CMakeLists.txt list different sources\n"
        "  only in CMakeLists.txt: ${missing}\n  only in Android.bp: ${surplus}")
endif()
