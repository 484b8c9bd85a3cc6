# Lists the libraries in the portable programs: the notices that their licences require, and an
# SPDX document (SPDX 2.3, ISO/IEC 5962).

set(attributions "${ZORV_STATIC_QT}/share/attributions")

# attributed_version(<result> <id>): the version of a library in Qt's source.
function(attributed_version result id)
    file(STRINGS "${attributions}/${id}.json" lines REGEX "\"Version\"" LIMIT_COUNT 1)
    string(REGEX REPLACE ".*\"Version\": *\"([^\"+]*).*" "\\1" version "${lines}")
    set(${result} "${version}" PARENT_SCOPE)
endfunction()

attributed_version(ZORV_PCRE2_VERSION pcre2)
attributed_version(ZORV_ZLIB_VERSION zlib)
attributed_version(ZORV_DOUBLE_CONVERSION_VERSION double-conversion)
execute_process(COMMAND "${CMAKE_C_COMPILER}" -dM -E -include features.h -x c /dev/null
    OUTPUT_VARIABLE macros COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE ".*#define __GLIBC__ ([0-9]+).*" "\\1" major "${macros}")
string(REGEX REPLACE ".*#define __GLIBC_MINOR__ ([0-9]+).*" "\\1" minor "${macros}")
set(ZORV_GLIBC_VERSION "${major}.${minor}")
string(TIMESTAMP ZORV_BUILD_TIME UTC)

configure_file(spdx.json.in zorv-mpirun.spdx.json @ONLY)
configure_file(THIRD-PARTY-NOTICES.in THIRD-PARTY-NOTICES @ONLY)
# The texts of the licences, from the distribution's packages of the libraries.
set(gcc "${CMAKE_CXX_COMPILER_VERSION}")
string(REGEX REPLACE "\\..*" "" gcc "${gcc}")
foreach(file IN ITEMS "${attributions}/copyright" /usr/share/doc/libc6-dev/copyright
        "/usr/share/doc/gcc-${gcc}-base/copyright")
    file(READ "${file}" text)
    file(APPEND "${CMAKE_CURRENT_BINARY_DIR}/THIRD-PARTY-NOTICES"
        "\n==============================================================================\n\n${text}")
endforeach()
install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/THIRD-PARTY-NOTICES"
    "${CMAKE_CURRENT_BINARY_DIR}/zorv-mpirun.spdx.json"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}")
