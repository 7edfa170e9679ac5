# SPDX-License-Identifier: Apache-2.0
# Libraries that a unit's own image provides and a workstation does not. The unit's library is taken where it
# is found; otherwise the bundled implementation below platform/ is built. Nothing above platform/ knows which.

set_property(GLOBAL PROPERTY PLATFORM_SUMMARY "")

# find_platform_library(<target> <library name> <header>)
#   Creates the imported target <target> and sets <target>_FOUND when the unit has the library and its header.
function(find_platform_library target library header)
    find_library(${target}_UNIT_LIBRARY ${library} PATH_SUFFIXES android)
    find_path(${target}_UNIT_INCLUDE_DIR ${header} PATH_SUFFIXES android)
    if(${target}_UNIT_LIBRARY AND ${target}_UNIT_INCLUDE_DIR)
        add_library(${target} SHARED IMPORTED GLOBAL)
        set_target_properties(${target} PROPERTIES
            IMPORTED_LOCATION ${${target}_UNIT_LIBRARY}
            INTERFACE_INCLUDE_DIRECTORIES ${${target}_UNIT_INCLUDE_DIR})
        set(${target}_FOUND TRUE PARENT_SCOPE)
        set_property(GLOBAL APPEND PROPERTY PLATFORM_SUMMARY "${target}: the unit's ${${target}_UNIT_LIBRARY}")
    else()
        set(${target}_FOUND FALSE PARENT_SCOPE)
        set_property(GLOBAL APPEND PROPERTY PLATFORM_SUMMARY "${target}: bundled")
    endif()
endfunction()

function(print_platform_summary)
    get_property(lines GLOBAL PROPERTY PLATFORM_SUMMARY)
    foreach(line ${lines})
        message(STATUS "Platform library ${line}")
    endforeach()
endfunction()
