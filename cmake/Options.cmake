# Build options and the compiler settings that every target of the project shares.

option(CLIENT_IO_TESTS "Build the tests and examples" ON)
option(CLIENT_IO_BENCHMARKS "Build the micro benchmarks" OFF)
option(CLIENT_IO_FUZZ "Build the fuzz targets (Clang; see docs/fuzzing.md)" OFF)
option(CLIENT_IO_LZOP "Build the lzop codec, which needs liblzo2 (GPL)" ON)
option(CLIENT_IO_WERROR "Treat warnings as errors" ON)
set(CLIENT_IO_SANITIZE "" CACHE STRING "Sanitizers to build with, e.g. address,undefined")
option(CLIENT_IO_COVERAGE "Record which lines run" OFF)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Which of the siblings name_posix.cpp and name_windows.cpp is compiled.
if(WIN32)
    set(system windows)
else()
    set(system posix)
endif()

# An installed program finds the library beside it, wherever the prefix was moved to.
file(RELATIVE_PATH libdir_from_bindir
     ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(CMAKE_INSTALL_RPATH $ORIGIN/${libdir_from_bindir})

# Every target of the project links this; it is not installed.
add_library(project_settings INTERFACE)
target_include_directories(project_settings INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(project_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<BOOL:${CLIENT_IO_WERROR}>:-Werror>
    # GCC 12 sees overlaps in std::string that are none (its bug 105329).
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
    # Log messages name source files by their place in the project.
    -fmacro-prefix-map=${CMAKE_SOURCE_DIR}=backup)
if(CLIENT_IO_SANITIZE)
    target_compile_options(project_settings INTERFACE
        -fsanitize=${CLIENT_IO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(project_settings INTERFACE -fsanitize=${CLIENT_IO_SANITIZE})
endif()
if(CLIENT_IO_COVERAGE)
    target_compile_options(project_settings INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(project_settings INTERFACE --coverage)
endif()
