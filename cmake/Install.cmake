# What `cmake --install` puts where; tests/install proves that it serves.

include(CMakePackageConfigHelpers)
include(PublicHeaders)

install(TARGETS client_io EXPORT client_io_targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# Headers keep their folders below one of the library's own, so that their includes, which are
# written from the root of the project, mean the same in both places.
foreach(header IN LISTS client_io_public_headers)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${PROJECT_SOURCE_DIR}/${header}
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/client_io/${folder})
endforeach()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/client_io)
install(EXPORT client_io_targets NAMESPACE client_io:: DESTINATION ${package_dir})
configure_package_config_file(packaging/client_io-config.cmake.in
    ${PROJECT_BINARY_DIR}/packaging/client_io-config.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/packaging/client_io-config-version.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/packaging/client_io-config.cmake
              ${PROJECT_BINARY_DIR}/packaging/client_io-config-version.cmake
        DESTINATION ${package_dir})

file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(packaging/client_io.pc.in ${PROJECT_BINARY_DIR}/packaging/client_io.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/packaging/client_io.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
