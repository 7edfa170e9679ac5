# SPDX-License-Identifier: Apache-2.0
# Where things are installed, how installed programs find the libraries, and what the client library exports.
#
# Components: `daemon` (with the store and the vendor data if these are bundled), `library` (the client library, with
# libbinder if that is bundled), `development`, `devicectl`, `servicemanager`.

# The platform's libraries keep the names under which a unit has them, so that programs link either without knowing. The
# bundled ones therefore live in a folder of their own: a file or a SONAME of this name in the system's folders is
# another library, which must neither be overwritten nor be found by its users in this one's place.
set(DEVICE_SERVICE_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/device-service)
set(DEVICE_SERVICE_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/deviceservice)
set(DEVICE_SERVICE_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/deviceservice)

# install_house_programs(COMPONENT FOLDER TARGETS...): FOLDER is CMAKE_INSTALL_BINDIR or CMAKE_INSTALL_SBINDIR.
# Libraries are found relative to the program, so that a staged or moved tree runs as it is.
function(install_house_programs component folder)
    string(REPLACE INSTALL_ INSTALL_FULL_ full ${folder})
    file(RELATIVE_PATH libraries ${${full}} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(${ARGN} PROPERTIES
        INSTALL_RPATH "$ORIGIN/${libraries}/device-service;$ORIGIN/${libraries}")
    install(TARGETS ${ARGN} RUNTIME DESTINATION ${${folder}} COMPONENT ${component})
endfunction()

# install_platform_library(COMPONENT TARGET): a bundled library that only the component's own programs link.
function(install_platform_library component target)
    install(TARGETS ${target}
        LIBRARY DESTINATION ${DEVICE_SERVICE_PRIVATE_LIBDIR} COMPONENT ${component} NAMELINK_SKIP)
endfunction()

# limit_exports(TARGET MAP): hides what the version map does not name.
function(limit_exports target map)
    target_link_options(${target} PRIVATE LINKER:--version-script=${map})
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
endfunction()

# client_headers(FILES...): headers of this folder that the client library installs. Each declares the class of its name
# in the namespace of its folder, and the library exports the members of these classes.
function(client_headers)
    list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE files)
    target_sources(deviceservice PUBLIC FILE_SET HEADERS BASE_DIRS ${CMAKE_SOURCE_DIR} FILES ${files})
    get_filename_component(folder ${CMAKE_CURRENT_SOURCE_DIR} NAME)
    list(TRANSFORM ARGN REPLACE "(.*)\\.h$" "${folder}::\\1" OUTPUT_VARIABLE classes)
    set_property(GLOBAL APPEND PROPERTY CLIENT_CLASSES ${classes})
endfunction()

# client_internals(NAMES...): what the daemon and the tests of this version use of the client library beside its
# interface: classes, or functions with "(" as their last character.
function(client_internals)
    set_property(GLOBAL APPEND PROPERTY CLIENT_INTERNALS ${ARGN})
endfunction()

# Sets <variable> to the patterns of a version map that match the members of the classes and the functions <names>.
function(export_patterns variable)
    set(patterns "")
    foreach(name ${ARGN})
        if(name MATCHES "\\($")
            # A pattern in quotes knows no wildcards, one without them neither blanks nor brackets.
            string(REPLACE "(" "?" pattern ${name})
            string(APPEND patterns "        ${pattern}*;\n")
        else()
            string(APPEND patterns
                "        ${name}::*;\n"
                "        *thunk?to?${name}::*;\n"
                "        vtable?for?${name};\n"
                "        VTT?for?${name};\n"
                "        typeinfo?for?${name};\n"
                "        typeinfo?name?for?${name};\n"
                "        vtable?for?${name}::*;\n"
                "        typeinfo?for?${name}::*;\n"
                "        typeinfo?name?for?${name}::*;\n")
        endif()
    endforeach()
    set(${variable} "${patterns}" PARENT_SCOPE)
endfunction()

# install_client_library(): after all folders have said what they contribute to it.
function(install_client_library)
    get_property(classes GLOBAL PROPERTY CLIENT_CLASSES)
    get_property(internals GLOBAL PROPERTY CLIENT_INTERNALS)
    export_patterns(CLIENT_PATTERNS ${classes})
    export_patterns(INTERNAL_PATTERNS ${internals})
    set(map ${CMAKE_BINARY_DIR}/deviceservice.map)
    configure_file(${CMAKE_SOURCE_DIR}/cmake/deviceservice.map.in ${map} @ONLY)
    limit_exports(deviceservice ${map})

    set_target_properties(deviceservice PROPERTIES INSTALL_RPATH "$ORIGIN/device-service")
    install(TARGETS deviceservice EXPORT deviceserviceTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        FILE_SET HEADERS DESTINATION ${DEVICE_SERVICE_INCLUDEDIR} COMPONENT development)
    get_target_property(imported binder IMPORTED)
    if(imported)
        set(bundled FALSE)
    else()
        set(bundled TRUE)
        install(TARGETS binder EXPORT deviceserviceTargets
            LIBRARY DESTINATION ${DEVICE_SERVICE_PRIVATE_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
            FILE_SET HEADERS DESTINATION ${DEVICE_SERVICE_INCLUDEDIR} COMPONENT development)
    endif()
    install_cmake_package(${bundled})
    install_pkg_config_file(${bundled})
    # To begin one's own from: each program, what they share, and the lines that build them.
    install(DIRECTORY ${CMAKE_SOURCE_DIR}/examples
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libdeviceservice-dev COMPONENT development
        FILES_MATCHING PATTERN "*.cpp" PATTERN "*.h" PATTERN CMakeLists.txt)
endfunction()

function(install_cmake_package DEVICE_SERVICE_BUNDLED_BINDER)
    include(CMakePackageConfigHelpers)
    set(config ${CMAKE_BINARY_DIR}/package-config)
    configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/deviceserviceConfig.cmake.in
        ${config}/deviceserviceConfig.cmake INSTALL_DESTINATION ${DEVICE_SERVICE_CMAKEDIR})
    write_basic_package_version_file(${config}/deviceserviceConfigVersion.cmake COMPATIBILITY SameMinorVersion)
    install(FILES ${config}/deviceserviceConfig.cmake ${config}/deviceserviceConfigVersion.cmake
        ${CMAKE_SOURCE_DIR}/cmake/AndroidLibraries.cmake
        DESTINATION ${DEVICE_SERVICE_CMAKEDIR} COMPONENT development)
    install(EXPORT deviceserviceTargets NAMESPACE deviceservice::
        DESTINATION ${DEVICE_SERVICE_CMAKEDIR} COMPONENT development)
endfunction()

function(install_pkg_config_file bundled)
    set(folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    if(bundled)
        set(PC_BINDER_INCLUDE "")
        set(PC_BINDER_LIBDIR "\${libdir}/device-service")
    else()
        get_target_property(include binder INTERFACE_INCLUDE_DIRECTORIES)
        get_target_property(location binder IMPORTED_LOCATION)
        get_filename_component(PC_BINDER_LIBDIR ${location} DIRECTORY)
        set(PC_BINDER_INCLUDE " -I${include}")
    endif()
    # The prefix is the installation's, which `cmake --install --prefix` may have chosen. Relative to this file it would
    # lead applications' run paths through a folder that only machines with the development files have.
    set(PC_PREFIX "@PC_PREFIX@")
    set(file ${CMAKE_BINARY_DIR}/deviceservice.pc)
    configure_file(${CMAKE_SOURCE_DIR}/cmake/deviceservice.pc.in ${file}.in @ONLY)
    install(CODE "
        set(PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
        configure_file(\"${file}.in\" \"${file}\" @ONLY)"
        COMPONENT development)
    install(FILES ${file} DESTINATION ${folder} COMPONENT development)
endfunction()
