# What every target of the project is compiled with.
#   TARQUEL_SANITIZE  "", "address" (with undefined) or "thread"
#   TARQUEL_FUZZ      ON: instrumented for libFuzzer, and the fuzz targets are built (Clang only)
#   TARQUEL_LIBCXX    ON: libc++ instead of libstdc++ (Clang only), as on Android
#   TARQUEL_UNITY     ON: a shorter whole build; OFF: includes are checked
set(TARQUEL_SANITIZE "" CACHE STRING "Sanitizer: address, thread or none")
set_property(CACHE TARQUEL_SANITIZE PROPERTY STRINGS "" address thread)
option(TARQUEL_LIBCXX "Build with libc++" OFF)
option(TARQUEL_FUZZ "Build the fuzz targets" OFF)

# Several sources of the lab are compiled as one, and what the library includes of the standard
# library is compiled once: headers cost more than sources do. Off, a change costs its own file
# alone.
option(TARQUEL_UNITY "Compile several sources of the lab as one, precompile headers" OFF)

find_package(Threads REQUIRED)

# The language's standard library; what is linked with libraries of the host that speak C++ through
# their interface must stay with the host's own.
add_library(project_stdlib INTERFACE)
if(TARQUEL_LIBCXX)
    target_compile_options(project_stdlib INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-stdlib=libc++>)
    target_link_options(project_stdlib INTERFACE -stdlib=libc++)
endif()

add_library(project_checks INTERFACE)
target_compile_options(project_checks INTERFACE
    -Wall -Wextra -Wconversion -Wshadow -Werror
    # GCC 12 reports std::string's own code when it is inlined with sanitizers on.
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:${TARQUEL_SANITIZE}>>:-Wno-restrict
        -Wno-maybe-uninitialized>)
target_link_libraries(project_checks INTERFACE Threads::Threads)
if(TARQUEL_SANITIZE STREQUAL "address")
    set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(TARQUEL_SANITIZE STREQUAL "thread")
    set(sanitizers -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT TARQUEL_SANITIZE STREQUAL "")
    message(FATAL_ERROR "TARQUEL_SANITIZE is '${TARQUEL_SANITIZE}'; use address or thread")
endif()
if(TARQUEL_FUZZ)
    list(APPEND sanitizers -fsanitize=fuzzer-no-link
         -fsanitize-coverage-ignorelist=${CMAKE_SOURCE_DIR}/fuzz/uncovered.txt)
endif()
if(sanitizers)
    target_compile_options(project_checks INTERFACE ${sanitizers})
    target_link_options(project_checks INTERFACE ${sanitizers})
endif()

add_library(project_options INTERFACE)
target_link_libraries(project_options INTERFACE project_checks project_stdlib)

# What runs beside the library and not on a phone is built for a short build rather than a fast run;
# what plays scenarios (lab) less so than what answers once (tools, tests). These options stand
# behind the build type's, and so win over them. A fuzz target plays and answers without end: there
# the optimiser makes a sequence of requests four times as fast.
add_library(project_lab_options INTERFACE)
if(TARQUEL_FUZZ)
    target_compile_options(project_lab_options INTERFACE -O2 -g1)
elseif(TARQUEL_SANITIZE OR TARQUEL_LIBCXX)
    target_compile_options(project_lab_options INTERFACE -O0 -g1)
else()
    target_compile_options(project_lab_options INTERFACE -O1 -g1)
endif()
target_link_libraries(project_lab_options INTERFACE project_options)
add_library(project_tool_options INTERFACE)
target_compile_options(project_tool_options INTERFACE
    $<IF:$<BOOL:${TARQUEL_FUZZ}>,-O2,$<IF:$<BOOL:${CMAKE_CROSSCOMPILING}>,-O1,-O0>> -g1)
target_link_libraries(project_tool_options INTERFACE project_options)
add_library(project_test_options INTERFACE)
target_compile_options(project_test_options INTERFACE -O0 -g1)
target_link_libraries(project_test_options INTERFACE project_options)
