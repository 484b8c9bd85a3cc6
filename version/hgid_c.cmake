# Writes hgid_c.c at build time, with the changeset and the tag that Git reports. Run it
# with cmake -P and set sourceDir, outputFile and version. Changes the file only when its
# content changes.

function(ask_git result default)
    find_program(git git)
    set(answer "")
    if(git)
        execute_process(COMMAND "${git}" ${ARGN}
            WORKING_DIRECTORY "${sourceDir}"
            OUTPUT_VARIABLE answer
            OUTPUT_STRIP_TRAILING_WHITESPACE
            ERROR_QUIET)
    endif()
    if(answer STREQUAL "")
        set(answer "${default}")
    endif()
    set(${result} "${answer}" PARENT_SCOPE)
endfunction()

# Git would also find a checkout of another project above an unpacked source tree.
set(changeset "000000000000")
set(tag "unknown")
if(EXISTS "${sourceDir}/.git")
    ask_git(changeset "${changeset}" rev-parse --verify HEAD)
    string(SUBSTRING "${changeset}" 0 12 changeset)
    ask_git(tag "${tag}" describe --tags --abbrev=0)
endif()
configure_file("${CMAKE_CURRENT_LIST_DIR}/hgid_c.c.in" "${outputFile}" @ONLY)
