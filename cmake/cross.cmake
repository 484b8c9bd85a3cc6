# Toolchain file of the portable builds for other architectures. ZORV_TARGET is the name that
# uname -m prints there. Uses Debian's cross compilers and, for the tests, its user-mode
# emulators. To add an architecture, add a line to the list.

set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZORV_TARGET)

# uname -m, the compilers' prefix, the emulator
set(ZORV_TARGETS
    "aarch64 aarch64-linux-gnu qemu-aarch64-static"
    "ppc64le powerpc64le-linux-gnu qemu-ppc64le-static")

set(triplet "")
foreach(row IN LISTS ZORV_TARGETS)
    if(row MATCHES "^${ZORV_TARGET} ([^ ]+) ([^ ]+)$")
        set(triplet "${CMAKE_MATCH_1}")
        set(emulator "${CMAKE_MATCH_2}")
    endif()
endforeach()
if(triplet STREQUAL "")
    message(FATAL_ERROR "'${ZORV_TARGET}' is no target of ${CMAKE_CURRENT_LIST_FILE}.")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR "${ZORV_TARGET}")
set(CMAKE_C_COMPILER "${triplet}-gcc")
set(CMAKE_CXX_COMPILER "${triplet}-g++")
set(CMAKE_LIBRARY_ARCHITECTURE "${triplet}")
set(CMAKE_CROSSCOMPILING_EMULATOR "${emulator}")
set(CMAKE_FIND_ROOT_PATH "/usr/${triplet}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# The build runs the moc and rcc of this machine's Qt.
set(QT_HOST_PATH /usr CACHE PATH "Qt whose tools the build runs")
execute_process(COMMAND gcc -print-multiarch OUTPUT_VARIABLE machine
    OUTPUT_STRIP_TRAILING_WHITESPACE)
set(QT_HOST_PATH_CMAKE_DIR "/usr/lib/${machine}/cmake" CACHE PATH "Its CMake files")
