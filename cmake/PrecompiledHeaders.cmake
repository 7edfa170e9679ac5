# SPDX-License-Identifier: Apache-2.0
# Headers that nearly every source of the product reads, read once. Each source includes what it uses all the same:
# rules.headers compiles them all without this. -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON does the same for a build.

file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/generated/product_headers.cpp CONTENT "")
add_library(product_headers OBJECT ${CMAKE_BINARY_DIR}/generated/product_headers.cpp)
target_link_libraries(product_headers PRIVATE Android::utils)
# None may reach <log/log.h>, by way of <utils/Vector.h> or <utils/Looper.h> either: it gives a LOG_TAG to a source that
# has not named its own yet.
target_precompile_headers(product_headers PRIVATE
    <utils/Condition.h>
    <utils/Errors.h>
    <utils/Mutex.h>
    <utils/RefBase.h>
    <utils/String16.h>
    <utils/String8.h>
    <algorithm>
    <atomic>
    <cerrno>
    <chrono>
    <cstdint>
    <cstdlib>
    <cstring>
    <functional>
    <memory>
    <string>
    <vector>)
# Without it ccache cannot tell what a precompiled header held.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    set(PRECOMPILED_HEADERS_OPTIONS -fpch-preprocess)
endif()

# use_product_headers(LIBRARY...): for libraries, not programs: they have to be compiled alike. A unit's own are left out.
function(use_product_headers)
    foreach(library IN LISTS ARGN)
        get_target_property(imported ${library} IMPORTED)
        if(NOT imported)
            target_precompile_headers(${library} REUSE_FROM product_headers)
            target_compile_options(${library} PRIVATE ${PRECOMPILED_HEADERS_OPTIONS})
        endif()
    endforeach()
endfunction()
