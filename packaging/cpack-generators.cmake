# Read by CPack once for each kind of package.

# The suite has a directory of its own on a system. The tarball has no place: it
# is unpacked anywhere.
if(CPACK_GENERATOR STREQUAL "DEB")
    set(CPACK_PACKAGING_INSTALL_PREFIX "/opt/velmor/kinnet")
endif()
