# What `cmake --install` lays down: library, headers, the command, and the ways to find them.
include(CMakePackageConfigHelpers)

set(HALVTIV_CMAKE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/halvtiv)

install(TARGETS halvtiv EXPORT halvtiv-targets)
install(DIRECTORY include/halvtiv DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT halvtiv-targets NAMESPACE halvtiv:: DESTINATION ${HALVTIV_CMAKE_FOLDER})

configure_package_config_file(cmake/halvtiv-config.cmake.in halvtiv-config.cmake
    INSTALL_DESTINATION ${HALVTIV_CMAKE_FOLDER})
write_basic_package_version_file(halvtiv-config-version.cmake COMPATIBILITY SameMinorVersion)
# Relative, so that the package may be installed under any prefix.
file(RELATIVE_PATH HALVTIV_PREFIX_FROM_PC ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/halvtiv.pc.in halvtiv.pc @ONLY)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/halvtiv-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/halvtiv-config-version.cmake
    DESTINATION ${HALVTIV_CMAKE_FOLDER})
if(HALVTIV_BUILD_EXPORTERS)
    install(TARGETS halvtiv_exporters EXPORT halvtiv-exporters-targets)
    install(DIRECTORY exporters/include/halvtiv_exporters DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(EXPORT halvtiv-exporters-targets NAMESPACE halvtiv:: DESTINATION ${HALVTIV_CMAKE_FOLDER})
    configure_file(cmake/halvtiv-exporters.pc.in halvtiv-exporters.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/halvtiv-exporters.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/halvtiv.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
