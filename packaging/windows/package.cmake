# The zip for Windows: what a program needs to be built with the library and to run, and nothing
# that has to be installed first.
#
#   cmake --build build/windows --target package

install(FILES
    ${CLIENT_IO_WINDOWS_PREFIX}/bin/libACE.dll
    ${CLIENT_IO_WINDOWS_PREFIX}/bin/libgcc_s_seh-1.dll
    ${CLIENT_IO_WINDOWS_PREFIX}/bin/libstdc++-6.dll
    ${CLIENT_IO_WINDOWS_PREFIX}/bin/libwinpthread-1.dll
    DESTINATION ${CMAKE_INSTALL_BINDIR})

# The public headers include these two.
install(DIRECTORY ${CLIENT_IO_WINDOWS_PREFIX}/include/ace ${CLIENT_IO_WINDOWS_PREFIX}/include/nlohmann
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${CLIENT_IO_WINDOWS_PREFIX}/lib/libACE.dll.a DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${CLIENT_IO_WINDOWS_PREFIX}/share/cmake/nlohmann_json
        DESTINATION ${CMAKE_INSTALL_DATADIR}/cmake)

install(DIRECTORY ${CLIENT_IO_WINDOWS_PREFIX}/share/licenses/ DESTINATION licenses)
install(DIRECTORY packaging/windows/sample DESTINATION .)
install(FILES docs/windows.md DESTINATION . RENAME README.md)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME client_io-${PROJECT_VERSION}-windows-x86_64)
set(CPACK_PACKAGE_VENDOR client_io)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
