# `cmake --install`: headers, both shared objects, the tools, and two packages: qzappserialization
# (qz::appserialization) and, when it is built here, qzplatform (qz::platform).

include(CMakePackageConfigHelpers)

# Each object finds its neighbour in the installed tree as in the build tree.
set_target_properties(qzappserialization PROPERTIES INSTALL_RPATH "$ORIGIN")

# qz_install_package(<name> <target>): the CMake package of one library.
function(qz_install_package name target)
    set(folder ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
    install(TARGETS ${target} EXPORT ${name}Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    install(EXPORT ${name}Targets NAMESPACE qz:: DESTINATION ${folder})
    configure_package_config_file(cmake/${name}Config.cmake.in ${name}Config.cmake
        INSTALL_DESTINATION ${folder})
    write_basic_package_version_file(${name}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake
        ${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake DESTINATION ${folder})
endfunction()

qz_install_package(qzappserialization qzappserialization)
install(DIRECTORY public/appserialization DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.hpp")

# The prefix is found from where the file lies, so that an installed tree may be moved.
file(RELATIVE_PATH prefix_from_pkgconfig
    /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/qzappserialization.pc.in qzappserialization.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qzappserialization.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(QZ_BUNDLED_PLATFORM)
    qz_install_package(qzplatform qzplatform)
    set(platform_headers ${CMAKE_INSTALL_INCLUDEDIR}/qzplatform)
    install(DIRECTORY platform/foundation/fl DESTINATION ${platform_headers}
        FILES_MATCHING PATTERN "*.hpp")
    foreach(library foundation messages opc quillcode hvarray tarvo)
        install(DIRECTORY platform/${library} DESTINATION ${platform_headers}
            FILES_MATCHING PATTERN "*.hpp"
            PATTERN "foundation/fl" EXCLUDE PATTERN "opc/zip" EXCLUDE PATTERN "opc/xml" EXCLUDE
            PATTERN "hvarray/ArrayData.hpp" EXCLUDE)
    endforeach()
endif()

foreach(tool qzapp qzhost)
    if(TARGET ${tool})
        set_target_properties(${tool} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
        install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    endif()
endforeach()
