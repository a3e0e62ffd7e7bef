# `cmake --install`: headers, both shared objects, the tools with their man pages, completions and
# desktop entries, documents and examples, and two packages: qzappserialization (qz::appserialization)
# and, when it is built here, qzplatform (qz::platform). What programs need to run is the component
# `runtime`, what only their builds and authors need is `development`, `tools` is qzapp and qzhost, and
# `python` is the package for Python.

include(CMakePackageConfigHelpers)

# Each object finds its neighbour in the installed tree as in the build tree, by one search path: one
# that is edited at installation ends in a separator until then, which has programs look for shared
# libraries in the directory that they are run in.
set_target_properties(qzappserialization PROPERTIES
    INSTALL_RPATH "$ORIGIN" BUILD_WITH_INSTALL_RPATH ON)
if(TARGET qzplatform)
    set_target_properties(qzplatform PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
endif()
set(tool_search_path "$ORIGIN/../lib" "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
list(REMOVE_DUPLICATES tool_search_path)

# qz_install_package(<name> <target>): the CMake package of one library.
function(qz_install_package name target)
    set(folder ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
    install(TARGETS ${target} EXPORT ${name}Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT runtime NAMELINK_COMPONENT development)
    install(EXPORT ${name}Targets NAMESPACE qz:: DESTINATION ${folder} COMPONENT development)
    configure_package_config_file(cmake/${name}Config.cmake.in ${name}Config.cmake
        INSTALL_DESTINATION ${folder})
    write_basic_package_version_file(${name}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake
        ${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake
        DESTINATION ${folder} COMPONENT development)
endfunction()

qz_install_package(qzappserialization qzappserialization)
install(DIRECTORY public/appserialization DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development FILES_MATCHING PATTERN "*.hpp")

# The prefix is found from where the file lies, so that an installed tree may be moved.
file(RELATIVE_PATH prefix_from_pkgconfig
    /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/qzappserialization.pc.in qzappserialization.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qzappserialization.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(QZ_BUNDLED_PLATFORM)
    qz_install_package(qzplatform qzplatform)
    set(platform_headers ${CMAKE_INSTALL_INCLUDEDIR}/qzplatform)
    foreach(library IN LISTS QZ_PLATFORM_LIBRARIES)
        install(DIRECTORY platform/${library}/include/ DESTINATION ${platform_headers}
            COMPONENT development)
    endforeach()
endif()

# The documents refer to each other, and to examples/, which can be built where it is installed.
install(DIRECTORY docs/ examples COMPONENT development
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/qzappserialization
    PATTERN Doxyfile EXCLUDE PATTERN __pycache__ EXCLUDE)

foreach(tool qzapp qzhost)
    if(TARGET ${tool})
        set_target_properties(${tool} PROPERTIES
            INSTALL_RPATH "${tool_search_path}" BUILD_WITH_INSTALL_RPATH ON)
        install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    endif()
endforeach()

if(TARGET qzapp_python)
    # Debian's python3 looks in one folder for packages of the distribution and in another for those of
    # /usr/local; a virtual environment has a third. Which it is depends on the prefix, which is known when
    # it is installed. All of them are three folders below the prefix.
    install(CODE "set(QZ_PYTHON_VERSION ${QZ_PYTHON_VERSION})" COMPONENT python)
    install(CODE [[
        if(CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
            set(QZ_PYTHON_FOLDER lib/python3/dist-packages)
        elseif(EXISTS "${CMAKE_INSTALL_PREFIX}/pyvenv.cfg")
            set(QZ_PYTHON_FOLDER lib/python${QZ_PYTHON_VERSION}/site-packages)
        else()
            set(QZ_PYTHON_FOLDER lib/python${QZ_PYTHON_VERSION}/dist-packages)
        endif()]] COMPONENT python)
    set_target_properties(qzapp_python PROPERTIES BUILD_WITH_INSTALL_RPATH ON
        INSTALL_RPATH "$ORIGIN/../../lib;$ORIGIN/../../..;$ORIGIN/../../../../${CMAKE_INSTALL_LIBDIR}")
    install(TARGETS qzapp_python LIBRARY COMPONENT python DESTINATION \${QZ_PYTHON_FOLDER}/qzapp)
    install(FILES ${QZ_PYTHON_MODULES} COMPONENT python
        DESTINATION \${QZ_PYTHON_FOLDER}/qzapp)
endif()

if(TARGET qzapp)
    set(share tools/qzapp/share)
    install(FILES ${share}/completions/qzapp.bash COMPONENT tools RENAME qzapp
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    # Where zsh looks depends on the prefix, which is known when it is installed.
    install(CODE [[
        if(CMAKE_INSTALL_PREFIX MATCHES "/usr/?$")
            set(QZ_ZSH_FOLDER vendor-completions)
        else()
            set(QZ_ZSH_FOLDER site-functions)
        endif()]] COMPONENT tools)
    install(FILES ${share}/completions/qzapp.zsh COMPONENT tools RENAME _qzapp
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/\${QZ_ZSH_FOLDER})
    install(FILES ${share}/completions/qzapp.fish COMPONENT tools
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
    install(FILES ${share}/desktop/qzapp.xml COMPONENT tools
        DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages)
    install(FILES ${share}/desktop/qzapp.thumbnailer COMPONENT tools
        DESTINATION ${CMAKE_INSTALL_DATADIR}/thumbnailers)

    # The tools' own help, made into pages, so that the two cannot differ.
    set(man_pages ${CMAKE_CURRENT_BINARY_DIR}/man)
    # For packages the programs are built without a search path.
    add_custom_command(OUTPUT ${man_pages}/made
        COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${CMAKE_LIBRARY_OUTPUT_DIRECTORY}
            ${PROJECT_SOURCE_DIR}/scripts/lib/man-pages ${man_pages}
            $<TARGET_FILE:qzapp> $<TARGET_FILE:qzhost>
        COMMAND ${CMAKE_COMMAND} -E touch ${man_pages}/made
        DEPENDS qzapp qzhost scripts/lib/man-pages scripts/lib/man-page.awk VERBATIM)
    add_custom_target(man ALL DEPENDS ${man_pages}/made)
    install(DIRECTORY ${man_pages}/ COMPONENT tools
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 FILES_MATCHING PATTERN "*.1.gz")
endif()
