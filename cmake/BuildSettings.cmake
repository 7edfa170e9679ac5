# SPDX-License-Identifier: Apache-2.0
# Language level, warnings, sanitizers, output folders and ccache, for every target of the tree.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # What ccache has to be told before it looks at sources with precompiled headers.
    set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
endif()

add_compile_options(-Wall -Wextra)
if(DEVICE_SERVICE_WERROR)
    add_compile_options(-Werror)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    add_compile_options(-Wthread-safety)
endif()

# An off_t of 32 bits would fail on files over 2 GiB on the 32-bit units.
add_compile_definitions(_FILE_OFFSET_BITS=64)

find_package(Threads REQUIRED)
link_libraries(Threads::Threads)

if(DEVICE_SERVICE_SANITIZE)
    add_compile_options(-fsanitize=${DEVICE_SERVICE_SANITIZE} -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${DEVICE_SERVICE_SANITIZE})
    if(DEVICE_SERVICE_SANITIZE MATCHES undefined)
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
endif()

include_directories(${CMAKE_SOURCE_DIR})
