# The portable build: one file that needs no other. To be included before Qt is
# looked for.

set(target "")
if(CMAKE_CROSSCOMPILING)
    set(target --target "${ZORV_TARGET}")
endif()
execute_process(
    COMMAND "${PROJECT_SOURCE_DIR}/tools/build-qt-static" ${target} --where
    OUTPUT_VARIABLE folder
    OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)
set(ZORV_STATIC_QT "${folder}" CACHE PATH "Static Qt, as tools/build-qt-static makes it")
if(NOT EXISTS "${ZORV_STATIC_QT}/lib/cmake/Qt6/Qt6Config.cmake")
    message(FATAL_ERROR "There is no Qt in ${ZORV_STATIC_QT}: tools/build-qt-static makes one.")
endif()
list(PREPEND CMAKE_PREFIX_PATH "${ZORV_STATIC_QT}")
list(APPEND CMAKE_FIND_ROOT_PATH "${ZORV_STATIC_QT}")

# A static Qt would put its plug-ins into every program, and none needs them.
define_property(TARGET PROPERTY QT_DEFAULT_PLUGINS
    INITIALIZE_FROM_VARIABLE ZORV_QT_DEFAULT_PLUGINS)
set(ZORV_QT_DEFAULT_PLUGINS 0)

# The functions that a launch calls stand side by side in the program, so that few
# of its pages are read and mapped: tools/order-functions has found out which.
find_program(ZORV_LLD ld.lld)
if(NOT ZORV_LLD)
    message(FATAL_ERROR "The portable build is linked by lld, which is not here.")
endif()
if(CMAKE_CROSSCOMPILING)
    # A cross compiler looks in PATH for a linker with its own prefix only.
    file(REAL_PATH "${ZORV_LLD}" linker)
    cmake_path(GET linker PARENT_PATH folder)
    add_link_options("-B${folder}")
endif()
option(ZORV_KEEP_SYMBOLS "Keep the symbols in the portable programs" OFF)
add_compile_options(-ffunction-sections -fdata-sections)
# Not -static-libstdc++ as well: with it, g++ ends the list of libraries with
# -Bdynamic, and the program needs a C library but has no interpreter to load it.
# One segment for code and constants is one mapping less.
# Relative relocations in a RELR section, of which the C library's own start-up code
# takes care since 2.36, are read in one go from two pages instead of sixty.
add_link_options(-fuse-ld=lld $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-static-pie>
    -Wl,--gc-sections -Wl,--no-rosegment -Wl,--pack-dyn-relocs=relr
    "-Wl,--symbol-ordering-file=${PROJECT_SOURCE_DIR}/cmake/portable.order"
    -Wl,--no-warn-symbol-ordering $<$<NOT:$<BOOL:${ZORV_KEEP_SYMBOLS}>>:-s>)
# No library to be looked for, no place to look.
set(CMAKE_INSTALL_RPATH "")
