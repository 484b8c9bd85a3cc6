# Writes hgid_c.c from what the source control says at build time. Run by
# cmake -P with sourceDir, outputFile and version set; rewrites the file only
# when its content changes.

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

# A checkout of something else above an unpacked source tree says nothing
# about this one.
set(changeset "000000000000")
set(tag "unknown")
if(EXISTS "${sourceDir}/.git")
    ask_git(changeset "${changeset}" rev-parse --verify HEAD)
    string(SUBSTRING "${changeset}" 0 12 changeset)
    ask_git(tag "${tag}" describe --tags --abbrev=0)
endif()
configure_file("${CMAKE_CURRENT_LIST_DIR}/hgid_c.c.in" "${outputFile}" @ONLY)
