# Settings of the portable build, which links everything statically. Include this file before
# find_package(Qt6).

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

# Otherwise a static Qt links its plug-ins into every program. None needs them.
define_property(TARGET PROPERTY QT_DEFAULT_PLUGINS
    INITIALIZE_FROM_VARIABLE ZORV_QT_DEFAULT_PLUGINS)
set(ZORV_QT_DEFAULT_PLUGINS 0)

# Places the functions and data that a launch uses next to each other, so that few pages of the
# program are read and mapped. tools/order-symbols has written the list.
find_program(ZORV_LLD ld.lld)
if(NOT ZORV_LLD)
    message(FATAL_ERROR "The portable build is linked by lld, which is not here.")
endif()
if(CMAKE_CROSSCOMPILING)
    # A cross compiler searches PATH only for linkers with its own prefix.
    file(REAL_PATH "${ZORV_LLD}" linker)
    cmake_path(GET linker PARENT_PATH folder)
    add_link_options("-B${folder}")
endif()
option(ZORV_KEEP_SYMBOLS "Keep the symbols in the portable programs" OFF)
add_compile_options(-ffunction-sections -fdata-sections)
# -static-libstdc++ must not be added: with it, g++ ends the list of libraries with -Bdynamic,
# and the program needs a C library without having a loader for it.
# --no-rosegment: one segment for code and constants saves one mapping.
# --pack-dyn-relocs=relr: relative relocations take two pages instead of sixty. The start-up
# code of the C library supports them since 2.36.
add_link_options(-fuse-ld=lld $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-static-pie>
    -Wl,--gc-sections -Wl,--no-rosegment -Wl,--pack-dyn-relocs=relr
    "-Wl,--symbol-ordering-file=${PROJECT_SOURCE_DIR}/cmake/portable.order"
    -Wl,--no-warn-symbol-ordering $<$<NOT:$<BOOL:${ZORV_KEEP_SYMBOLS}>>:-s>)
# Static programs have no library path.
set(CMAKE_INSTALL_RPATH "")
