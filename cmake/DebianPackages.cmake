# Debian packages: libqzappserialization1 to run programs, libqzappserialization-dev to build them, qzapp with
# the tools, and python3-qzapp. scripts/package configures a tree for them and makes them.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qzappserialization)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The qzappserialization authors <authors@qzappserialization.org>")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqzappserialization${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# The trigger suffices: CPack adds scripts that call ldconfig, too, unless scripts of these names are given,
# and packs none if they do not exist.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers
    /nonexistent/postinst /nonexistent/postrm)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "files of interactive apps, shared libraries
 The libraries through which a numerical-computing host reads and writes
 packaged apps (.kvpkg) and text apps (.k).")

set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqzappserialization-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libboost-dev (>= 1.74), libxerces-c-dev (>= 3.2)")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "cmake (>= 3.25), pkg-config")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "files of interactive apps, development files
 The headers, the CMake and pkg-config packages and the links to build programs
 with that read and write packaged apps (.kvpkg) and text apps (.k); a guide,
 examples and the description of the formats.")

if(QZ_BUILD_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tools)
    set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qzapp)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
    # The libraries of the other package are found where they were built.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "chafa, git")
    set(CPACK_COMPONENT_TOOLS_DESCRIPTION "make, change, read and check the files of interactive apps
 qzapp is the command-line tool for packaged apps (.kvpkg) and text apps (.k):
 it shows, compares, edits, checks, repairs and unpacks them. With it come man
 pages, completions for bash, zsh and fish, a thumbnailer, and qzhost, a small
 host that loads the library as a real one would.")
endif()

if(TARGET qzapp_python)
    list(APPEND CPACK_COMPONENTS_ALL python)
    set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-qzapp)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
    # The extension module is for one minor version.
    string(REGEX REPLACE ".*\\." "" minor ${QZ_PYTHON_VERSION})
    math(EXPR next_minor "${minor} + 1")
    set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
        "python3 (>= ${QZ_PYTHON_VERSION}), python3 (<< 3.${next_minor})")
    set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-pandas, qzapp")
    set(CPACK_COMPONENT_PYTHON_DESCRIPTION "files of interactive apps, Python package
 Reads, makes, changes and checks packaged apps (.kvpkg) and text apps (.k)
 from Python, and reads folders of them on all cores.")
endif()

# What Debian wants of each package's documentation.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    string(TIMESTAMP PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
    foreach(component IN LISTS CPACK_COMPONENTS_ALL)
        string(TOUPPER ${component} key)
        set(PACKAGE_NAME ${CPACK_DEBIAN_${key}_PACKAGE_NAME})
        set(documents ${CMAKE_CURRENT_BINARY_DIR}/debian/${PACKAGE_NAME})
        configure_file(cmake/debian/changelog.in ${documents}/changelog)
        file(ARCHIVE_CREATE OUTPUT ${documents}/changelog.gz PATHS ${documents}/changelog
            FORMAT raw COMPRESSION GZip COMPRESSION_LEVEL 9)
        install(FILES ${documents}/changelog.gz cmake/debian/copyright COMPONENT ${component}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${PACKAGE_NAME})
    endforeach()
endif()

include(CPack)
