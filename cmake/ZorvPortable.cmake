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
set(Qt6_DIR "${ZORV_STATIC_QT}/lib/cmake/Qt6" CACHE PATH "" FORCE)

add_compile_options(-ffunction-sections -fdata-sections)
add_link_options(-s -Wl,--gc-sections -static-libgcc -static-libstdc++)
