# The properties of all targets: language standard, warnings, Qt definitions and, as an option,
# the sanitizers. The function zorv_add_library() for all libraries.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

add_library(zorv_strict INTERFACE)
target_compile_definitions(zorv_strict INTERFACE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_KEYWORDS
    QT_NO_FOREACH
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)
target_compile_options(zorv_strict INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wconversion
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast>
    # Qt's macros use this extension; clang 19 and later count it among those of C++20.
    $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>
    $<$<CXX_COMPILER_ID:Clang>:-Wno-c++20-extensions>)
target_include_directories(zorv_strict INTERFACE "${PROJECT_SOURCE_DIR}")
if(ZORV_SANITIZE)
    target_compile_options(zorv_strict INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(zorv_strict INTERFACE -fsanitize=address,undefined)
endif()
if(ZORV_BUILD_FUZZERS)
    target_compile_options(zorv_strict INTERFACE -fsanitize=fuzzer-no-link)
endif()
add_library(Zorv::Strict ALIAS zorv_strict)

# zorv_add_library(<target> <Alias> [WHOLE] SOURCES <file>... LIBRARIES <library>...)
#
# Adds a static library with the alias Zorv::<Alias>. With WHOLE, each program that links to
# it, directly or not, contains all of it; from an archive, the linker would take only the
# objects that are referred to. The target <target>_objects compiles such a library.
function(zorv_add_library target alias)
    cmake_parse_arguments(PARSE_ARGV 2 arg "WHOLE" "" "SOURCES;LIBRARIES")
    set(compiled ${target})
    if(arg_WHOLE)
        set(compiled ${target}_objects)
        add_library(${compiled} OBJECT ${arg_SOURCES})
        add_library(${target} INTERFACE)
        target_link_libraries(${target} INTERFACE
            $<TARGET_OBJECTS:${compiled}> Zorv::Strict Qt6::Core ${arg_LIBRARIES})
    else()
        add_library(${compiled} STATIC ${arg_SOURCES})
    endif()
    add_library(Zorv::${alias} ALIAS ${target})
    set_target_properties(${compiled} PROPERTIES AUTOMOC ON)
    target_link_libraries(${compiled} PUBLIC Zorv::Strict Qt6::Core ${arg_LIBRARIES})
endfunction()
