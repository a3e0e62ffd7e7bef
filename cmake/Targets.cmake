# The two shared objects. Each is also an object library (`<name>_objects`), which unit tests link so
# that they reach what the shared object keeps to itself.

# qz_own(<target>...): targets of this tree, which include from its top and share its options.
function(qz_own)
    foreach(target IN LISTS ARGN)
        target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
        target_link_libraries(${target} PRIVATE qz_build_options)
    endforeach()
endfunction()

# qz_library(<name> <alias> <soname-version>): declares both; folders add files with qz_sources().
function(qz_library name alias)
    add_library(${name}_objects OBJECT)
    qz_own(${name}_objects)
    if(QZ_SANITIZE)  # other builds show which includes are missing
        target_precompile_headers(${name}_objects PRIVATE <algorithm> <array> <functional> <map> <memory>
            <optional> <set> <span> <stdexcept> <string> <string_view> <vector>)
    endif()
    add_library(${name} SHARED)
    add_library(qz::${alias} ALIAS ${name})
    # Static linking of the objects keeps one compilation for both uses.
    target_link_libraries(${name} PRIVATE ${name}_objects qz_build_options)
    set_target_properties(${name} PROPERTIES
        EXPORT_NAME ${alias} LINKER_LANGUAGE CXX
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    if(NOT QZ_SANITIZE)  # then the program brings what the sanitizers need
        target_link_options(${name} PRIVATE -Wl,--no-undefined)
    endif()
endfunction()

# qz_sources(<name> <file>...): adds files of the current folder to a library.
function(qz_sources name)
    target_sources(${name}_objects PRIVATE ${ARGN})
endfunction()

# qz_test(<folder> <file>...): one GoogleTest program a folder, registered test by test.
function(qz_test folder)
    add_executable(${folder}_tests ${ARGN})
    qz_own(${folder}_tests)
    target_link_libraries(${folder}_tests PRIVATE qzappserialization_objects qzplatform_objects
        test_support GTest::gmock GTest::gtest_main)
    gtest_discover_tests(${folder}_tests TEST_PREFIX "${folder}/" DISCOVERY_TIMEOUT 60
        PROPERTIES TIMEOUT 900)
endfunction()
