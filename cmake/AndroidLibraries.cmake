# SPDX-License-Identifier: Apache-2.0
# The Android utility libraries as imported targets: Android::utils, Android::cutils, Android::log.
# Distributions keep them in a folder `android` below the multiarch library folder, without pkg-config files.

find_path(ANDROID_INCLUDE_DIR utils/RefBase.h PATH_SUFFIXES android REQUIRED)

foreach(name log cutils utils)
    find_library(ANDROID_${name}_LIBRARY ${name} PATH_SUFFIXES android REQUIRED)
    add_library(Android::${name} SHARED IMPORTED)
    # Imported targets' include folders are system folders: their headers warn with g++.
    set_target_properties(Android::${name} PROPERTIES
        IMPORTED_LOCATION ${ANDROID_${name}_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_INCLUDE_DIR})
    get_filename_component(ANDROID_LIBRARY_DIR ${ANDROID_${name}_LIBRARY} DIRECTORY)
    # The libraries find one another beside themselves, at link time too.
    target_link_options(Android::${name} INTERFACE -Wl,-rpath-link,${ANDROID_LIBRARY_DIR})
endforeach()
target_link_libraries(Android::utils INTERFACE Android::cutils Android::log)
target_link_libraries(Android::cutils INTERFACE Android::log)
