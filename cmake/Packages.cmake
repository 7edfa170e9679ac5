# SPDX-License-Identifier: Apache-2.0
# Debian packages, one for each component of the installation: `cmake --workflow --preset package`.

set(PACKAGE_NAME_daemon device-service)
set(PACKAGE_NAME_library libdeviceservice${PROJECT_VERSION_MAJOR})
set(PACKAGE_NAME_development libdeviceservice-dev)
set(PACKAGE_NAME_devicectl devicectl)
set(PACKAGE_NAME_servicemanager device-service-servicemanager)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME device-service)
set(CPACK_PACKAGE_VENDOR "Device Service")
set(CPACK_PACKAGE_CONTACT "Device Service Maintainers <maintainers@device-service.invalid>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL daemon library development devicectl)
if(TARGET servicemanager)
    list(APPEND CPACK_COMPONENTS_ALL servicemanager)
endif()
# What depends on the version is computed when packages are made: see there.
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/PackageVersion.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The project's own libraries, while its packages are not installed.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
# An application's package asks for the version that it was built with, or a later one of the same SONAME.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The daemon runs programs through the shell: ifconfig, insmod, blockdev, find; its units mount's umount; libusb hears of devices through udev.
set(PACKAGE_DEPENDS_daemon "findutils, kmod, mount, net-tools, passwd, udev, util-linux")
set(PACKAGE_DEPENDS_development "android-liblog-dev, android-libcutils-dev, android-libutils-dev")

set(PACKAGE_SECTION_daemon admin)
set(PACKAGE_SECTION_library libs)
set(PACKAGE_SECTION_development libdevel)
set(PACKAGE_SECTION_devicectl admin)
set(PACKAGE_SECTION_servicemanager admin)

set(PACKAGE_SUMMARY_daemon "daemon that watches a unit's devices, USB and volumes")
set(PACKAGE_TEXT_daemon
    "Watches card and USB controllers, USB devices and removable media, mounts volumes, and tells applications through
three binder services.")
set(PACKAGE_SUMMARY_library "client library of the device service")
set(PACKAGE_TEXT_library
    "What applications need at run time to ask the device service about devices, USB and volumes, and to hear of changes.")
set(PACKAGE_SUMMARY_development "client library of the device service - development files")
set(PACKAGE_TEXT_development
    "Headers, CMake package and pkg-config file for applications that talk to the device service.")
set(PACKAGE_SUMMARY_devicectl "command-line client of the device service")
set(PACKAGE_TEXT_devicectl
    "Shows devices, USB and volumes of a unit, live if wanted, and starts and stops the managers of the device service.")
set(PACKAGE_SUMMARY_servicemanager "directory of binder services")
set(PACKAGE_TEXT_servicemanager
    "The context manager of the binder driver, with which services register and where clients find them. Only for units
whose image brings none: there is one on a driver.")

# What a distribution's package has to bring, and what a private prefix has no use for.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    find_program(GZIP gzip REQUIRED)
    set(changelog ${CMAKE_BINARY_DIR}/changelog.Debian.gz)
    execute_process(COMMAND ${GZIP} -9nc ${CMAKE_SOURCE_DIR}/packaging/debian/changelog OUTPUT_FILE ${changelog}
        COMMAND_ERROR_IS_FATAL ANY)
    set(papers ${CMAKE_SOURCE_DIR}/packaging/debian/copyright ${changelog})
endif()

foreach(component ${CPACK_COMPONENTS_ALL})
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${PACKAGE_NAME_${component}})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${PACKAGE_SECTION_${component}})
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${PACKAGE_SUMMARY_${component}}\n${PACKAGE_TEXT_${component}}")
    # The scripts around installation and removal.
    file(GLOB scripts CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/packaging/debian/${component}/*)
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${scripts})
    if(papers)
        install(FILES ${papers} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${PACKAGE_NAME_${component}}
            COMPONENT ${component})
    endif()
endforeach()

# For PackageVersion.cmake, which sees nothing but names with this prefix.
foreach(component ${CPACK_COMPONENTS_ALL})
    set(CPACK_HOUSE_NAME_${component} ${PACKAGE_NAME_${component}})
    set(CPACK_HOUSE_DEPENDS_${component} "${PACKAGE_DEPENDS_${component}}")
endforeach()

include(CPack)
