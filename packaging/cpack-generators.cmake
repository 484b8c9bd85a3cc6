# CPack reads this file once for each type of package.

# Packages for a package manager install to a fixed directory. The tarball has no fixed one.
if(NOT CPACK_GENERATOR STREQUAL "TGZ")
    set(CPACK_PACKAGING_INSTALL_PREFIX "/opt/velmor/kinnet")
endif()

# With SOURCE_DATE_EPOCH, the same sources give the same bytes.
set(CPACK_RPM_SPEC_MORE_DEFINE
"%define packager ${CPACK_PACKAGE_CONTACT}
%define _buildhost localhost
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1")
