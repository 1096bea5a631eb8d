# SPDX-License-Identifier: MIT
# Shared by all targets of the project: language level, warnings, sanitizers, output folders.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Programs find the libraries in lib/ beside them, both in the build folder and when installed.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/archive")

add_library(tarnok_options INTERFACE)
target_compile_options(tarnok_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow)
if(TARNOK_WARNINGS_AS_ERRORS)
    target_compile_options(tarnok_options INTERFACE -Werror)
endif()
target_link_options(tarnok_options INTERFACE -Wl,--no-undefined)
if(TARNOK_SANITIZE)
    target_compile_options(tarnok_options INTERFACE
        -fsanitize=${TARNOK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 -g)
    target_link_options(tarnok_options INTERFACE -fsanitize=${TARNOK_SANITIZE} -fno-sanitize-recover=all)
    # With clang, the program that loads a shared library provides the sanitizer's symbols.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        target_link_options(tarnok_options INTERFACE -Wl,--undefined-version -Wl,-z,undefs)
    endif()
endif()
if(TARNOK_COVERAGE)
    target_compile_options(tarnok_options INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(tarnok_options INTERFACE --coverage)
endif()

# A shared library of the product. It exports only what both its headers and lib<output>.map export. Without the map,
# each instantiated template of the standard library would be part of its interface. It always calls its own functions:
# a program that exports those of the static library for banks would replace some of them.
function(tarnok_add_shared_library target output)
    add_library(${target} SHARED ${ARGN})
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME ${output} VERSION 14 SOVERSION 14
        BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "$ORIGIN")
    target_link_libraries(${target} PRIVATE tarnok_options)
    set(map "${CMAKE_CURRENT_SOURCE_DIR}/lib${output}.map")
    target_link_options(${target} PRIVATE "-Wl,--version-script=${map}" -Wl,-Bsymbolic-functions)
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${map}")
endfunction()

# A program of the product. It finds its libraries in $ORIGIN/lib. The target "programs" builds all of them.
add_custom_target(programs)
function(tarnok_add_program target)
    add_executable(${target} ${ARGN})
    add_dependencies(programs ${target})
    set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "$ORIGIN/lib")
    target_link_libraries(${target} PRIVATE tarnok_options)
endfunction()
