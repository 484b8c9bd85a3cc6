# Run by CPack before it makes a package. Adds to the Debian package what Debian's
# policy expects outside of /opt: the copyright file, the change logs, and the reasons
# for which lintian's objections do not apply.

if(NOT CPACK_GENERATOR STREQUAL "DEB")
    return()
endif()

set(source "${CPACK_RESOURCE_FILE_LICENSE}")
cmake_path(GET source PARENT_PATH source)
set(root "${CPACK_TEMPORARY_DIRECTORY}")
set(documents "${root}/usr/share/doc/zorv-mpirun")

# Policy 12.5: the licence, and those of the libraries that are linked in.
file(READ "${source}/LICENSE" copyright)
set(notices "${CPACK_TEMPORARY_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX}/share/doc/zorv-mpirun/THIRD-PARTY-NOTICES")
if(EXISTS "${notices}")
    file(READ "${notices}" third_party)
    string(APPEND copyright "\n${third_party}")
endif()
file(WRITE "${documents}/copyright" "${copyright}")

# Policy 12.7 and 4.4.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE "${documents}/changelog.Debian"
"zorv-mpirun (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Package of version ${CPACK_PACKAGE_VERSION}; see changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
configure_file("${source}/CHANGELOG.md" "${documents}/changelog" COPYONLY)
execute_process(COMMAND gzip -9nf "${documents}/changelog.Debian" "${documents}/changelog"
    COMMAND_ERROR_IS_FATAL ANY)

configure_file("${CMAKE_CURRENT_LIST_DIR}/lintian-overrides"
    "${root}/usr/share/lintian/overrides/zorv-mpirun" COPYONLY)
