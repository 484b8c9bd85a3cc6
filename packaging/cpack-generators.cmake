# Read by CPack once for each kind of package.

# A package of the system has a directory of its own. The tarball has no place: it is
# unpacked anywhere.
if(NOT CPACK_GENERATOR STREQUAL "TGZ")
    set(CPACK_PACKAGING_INSTALL_PREFIX "/opt/velmor/kinnet")
endif()

# The same sources give the same bytes where SOURCE_DATE_EPOCH is set.
set(CPACK_RPM_SPEC_MORE_DEFINE
"%define packager ${CPACK_PACKAGE_CONTACT}
%define _buildhost localhost
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1")
