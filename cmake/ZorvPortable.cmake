# The portable build: one file that needs nothing but the C library. To be
# included before Qt is looked for.

execute_process(
    COMMAND "${PROJECT_SOURCE_DIR}/tools/build-qt-static" --where
    OUTPUT_VARIABLE folder
    OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)
set(ZORV_STATIC_QT "${folder}" CACHE PATH "Static Qt, as tools/build-qt-static makes it")
if(NOT EXISTS "${ZORV_STATIC_QT}/lib/cmake/Qt6/Qt6Config.cmake")
    message(FATAL_ERROR "There is no Qt in ${ZORV_STATIC_QT}: tools/build-qt-static makes one.")
endif()
list(PREPEND CMAKE_PREFIX_PATH "${ZORV_STATIC_QT}")

# A static Qt would put its plug-ins into every program, and none needs them.
define_property(TARGET PROPERTY QT_DEFAULT_PLUGINS
    INITIALIZE_FROM_VARIABLE ZORV_QT_DEFAULT_PLUGINS)
set(ZORV_QT_DEFAULT_PLUGINS 0)

add_compile_options(-ffunction-sections -fdata-sections)
add_link_options(-s -Wl,--gc-sections -static-libgcc -static-libstdc++)
# No library to be looked for, no place to look.
set(CMAKE_INSTALL_RPATH "")
