# CPack runs this file before it creates a package. Adds the files that Debian's policy requires
# outside of /opt to the Debian package: the copyright file, the change logs, and lintian's
# overrides.

if(NOT CPACK_GENERATOR STREQUAL "DEB")
    return()
endif()

set(source "${CPACK_RESOURCE_FILE_LICENSE}")
cmake_path(GET source PARENT_PATH source)
set(root "${CPACK_TEMPORARY_DIRECTORY}")
set(documents "${root}/usr/share/doc/zorv-mpirun")

# Policy 12.5: the licences of the programs and of the libraries in them.
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
