# SPDX-License-Identifier: Apache-2.0
# Read by CPack when it makes the packages, so that `cpack -D CPACK_DEBIAN_PACKAGE_RELEASE=2` gives packages of a higher
# version that require one another in that version. Daemon and library of one version share more than the interface.
set(house_version ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

# depend(COMPONENT ON...): the packages of the components ON, of the same version.
macro(depend component)
    foreach(other ${ARGN})
        list(APPEND house_depends_${component} "${CPACK_HOUSE_NAME_${other}} (= ${house_version})")
    endforeach()
    list(APPEND house_depends_${component} ${CPACK_HOUSE_DEPENDS_${component}})
    list(JOIN house_depends_${component} ", " house_joined)
    string(TOUPPER ${component} house_upper)
    set(CPACK_DEBIAN_${house_upper}_PACKAGE_DEPENDS "${house_joined}")
endmacro()

depend(daemon library devicectl)
depend(development library)
depend(devicectl library)
if(CPACK_HOUSE_NAME_servicemanager)
    depend(servicemanager library)
    # A unit may have a service manager of its own.
    set(CPACK_DEBIAN_DAEMON_PACKAGE_RECOMMENDS ${CPACK_HOUSE_NAME_servicemanager})
endif()
