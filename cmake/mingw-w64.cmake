# Builds for 64-bit Windows on Linux, with MinGW-w64 and POSIX threads, and runs what was built
# under Wine.
#
#   export CLIENT_IO_WINDOWS_PREFIX=$(packaging/windows/build_dependencies.sh)
#   cmake --preset windows

set(CLIENT_IO_WINDOWS_PREFIX "$ENV{CLIENT_IO_WINDOWS_PREFIX}" CACHE PATH
    "Where the dependencies built for Windows are")
if(NOT IS_DIRECTORY "${CLIENT_IO_WINDOWS_PREFIX}")
    message(FATAL_ERROR
        "CLIENT_IO_WINDOWS_PREFIX, \"${CLIENT_IO_WINDOWS_PREFIX}\", is no folder. Set the variable "
        "of CMake or of the environment to what packaging/windows/build_dependencies.sh prints.")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CLIENT_IO_WINDOWS_PREFIX)

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# Programs of the build come from this system; headers and libraries never do. They may come from
# further folders that the command line gives, such as an installed copy of the library.
list(APPEND CMAKE_FIND_ROOT_PATH "${CLIENT_IO_WINDOWS_PREFIX}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "${CLIENT_IO_WINDOWS_PREFIX}/lib/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")
set(OPENSSL_USE_STATIC_LIBS ON)

set(CMAKE_CROSSCOMPILING_EMULATOR
    "${CMAKE_CURRENT_LIST_DIR}/../packaging/windows/run_under_wine.sh"
    -L "${CLIENT_IO_WINDOWS_PREFIX}/bin" -L "${CMAKE_BINARY_DIR}/client_io")
