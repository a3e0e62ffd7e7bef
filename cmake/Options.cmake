option(QZ_BUNDLED_PLATFORM "Build the platform libraries of this tree; OFF takes an installed qzplatform package" ON)
option(QZ_BUILD_TOOLS "Build qzapp and qzhost" ON)
option(QZ_BUILD_TESTS "Build the tests and the example programs" ${PROJECT_IS_TOP_LEVEL})
option(QZ_BUILD_BENCH "Build the benchmarks" OFF)
option(QZ_BUILD_FUZZERS "Build the fuzz targets" OFF)
option(QZ_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)
set(QZ_SANITIZE "" CACHE STRING "Sanitizers to build with, for example address,undefined")
set(QZ_KORVAL_RELEASE "R2026b" CACHE STRING "Release label that the bundled host reports")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

# What all of our own targets are compiled and linked with: they link it privately.
add_library(qz_build_options INTERFACE)
target_compile_options(qz_build_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 takes joined strings, when it optimises them, for copies that overlap or are too long.
    target_compile_options(qz_build_options INTERFACE
        "$<$<CONFIG:Release,RelWithDebInfo>:-Wno-restrict;-Wno-stringop-overflow;-Wno-stringop-overread;-Wno-array-bounds>")
endif()
# The programs and libraries read files from strangers: what overruns a buffer ends them, and what finds a
# way to write anywhere finds no table of functions to write to. This needs optimisation, and the
# sanitizers have checks of their own.
set(hardened $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
if(QZ_SANITIZE)
    set(hardened 0)
endif()
target_compile_options(qz_build_options INTERFACE
    "$<${hardened}:-fstack-protector-strong;-fstack-clash-protection;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
target_link_options(qz_build_options INTERFACE LINKER:-z,relro LINKER:-z,now)
include(CheckPIESupported)
check_pie_supported()
if(QZ_WARNINGS_AS_ERRORS)
    target_compile_options(qz_build_options INTERFACE -Werror)
endif()
if(QZ_SANITIZE)
    target_compile_options(qz_build_options INTERFACE
        -fsanitize=${QZ_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    if(QZ_SANITIZE MATCHES "undefined")
        # Without checks that take a fifth of the time to compile, and mostly find what the address
        # sanitizer finds when the memory is used.
        target_compile_options(qz_build_options INTERFACE -fno-sanitize=null,object-size,vptr)
    endif()
    target_link_options(qz_build_options INTERFACE -fsanitize=${QZ_SANITIZE})
    target_compile_definitions(qz_build_options INTERFACE QZ_SANITIZED)
endif()
