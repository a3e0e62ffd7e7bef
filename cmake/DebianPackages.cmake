# Debian packages: libqzappserialization1 to run programs, libqzappserialization-dev to build them.
# scripts/package configures a tree for them and makes them.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qzappserialization)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The qzappserialization authors <authors@qzappserialization.org>")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(runtime_package libqzappserialization${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "files of interactive apps, library and tools
 The library through which a numerical-computing host reads and writes
 packaged apps (.kvpkg) and text apps (.k); qzapp, the command-line tool for
 these files; and qzhost, a small host that loads the library.")

set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqzappserialization-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libboost-dev (>= 1.74), libxerces-c-dev (>= 3.2)")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "files of interactive apps, development files
 The headers, the CMake and pkg-config packages and the links to build programs
 with that read and write packaged apps (.kvpkg) and text apps (.k).")

# What Debian wants of each package's documentation.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    string(TIMESTAMP PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
    foreach(component RUNTIME DEVELOPMENT)
        set(PACKAGE_NAME ${CPACK_DEBIAN_${component}_PACKAGE_NAME})
        set(documents ${CMAKE_CURRENT_BINARY_DIR}/debian/${PACKAGE_NAME})
        configure_file(cmake/debian/changelog.in ${documents}/changelog)
        file(ARCHIVE_CREATE OUTPUT ${documents}/changelog.gz PATHS ${documents}/changelog
            FORMAT raw COMPRESSION GZip COMPRESSION_LEVEL 9)
        string(TOLOWER ${component} component)
        install(FILES ${documents}/changelog.gz cmake/debian/copyright COMPONENT ${component}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${PACKAGE_NAME})
    endforeach()
endif()

include(CPack)
