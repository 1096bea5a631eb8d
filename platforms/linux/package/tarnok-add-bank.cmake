# SPDX-License-Identifier: MIT
# tarnok_add_bank(NAME <name>
#                 SOURCES <file>... | LIST <file> | PROJECT <file> | DIRECTORY <folder>
#                 [FORMAT <format>] [QUALITY <0...100>] [HEADER <file>] [KEY_FILE <file>] [OUTPUT <file>]
#                 [OPTIONS <option>...])
#
# Adds a target <name> that builds a sound bank with tarnok-build, as a part of `all`. It runs only when a sound, the
# list, the project, the key or the settings have changed, or when a file was added to the folder or removed from it. A
# bank or header that stays the same keeps its time, so nothing that depends on it is built again.
#
# Inputs are relative to the current source folder. OUTPUT (default: <name>.tnb) and HEADER are relative to the current
# binary folder. Paths inside a project are relative to the folder of the project. OPTIONS are further options of
# `tarnok-build run`, such as --no-loop. The files of a folder are sorted.
#
# The target has the properties TARNOK_BANK and TARNOK_HEADER: the absolute paths of both files. What reads one of them
# names it in its DEPENDS, or depends on the target (add_dependencies).

cmake_policy(PUSH)
cmake_policy(VERSION 3.21)

get_filename_component(_tarnok_folder "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
find_program(TARNOK_BUILD_EXECUTABLE tarnok-build
    HINTS "${_tarnok_folder}/bin" NO_CMAKE_FIND_ROOT_PATH DOC "The program that builds sound banks")
unset(_tarnok_folder)

function(tarnok_add_bank)
    cmake_parse_arguments(PARSE_ARGV 0 BANK ""
        "NAME;LIST;PROJECT;DIRECTORY;FORMAT;QUALITY;HEADER;KEY_FILE;OUTPUT" "SOURCES;OPTIONS")
    if(BANK_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "tarnok_add_bank: unknown arguments: ${BANK_UNPARSED_ARGUMENTS}")
    endif()
    if(BANK_KEYWORDS_MISSING_VALUES)
        message(FATAL_ERROR "tarnok_add_bank: no value for: ${BANK_KEYWORDS_MISSING_VALUES}")
    endif()
    if(NOT BANK_NAME)
        message(FATAL_ERROR "tarnok_add_bank: NAME is missing")
    endif()
    if(NOT TARNOK_BUILD_EXECUTABLE)
        message(FATAL_ERROR "tarnok_add_bank: tarnok-build was not found; set TARNOK_BUILD_EXECUTABLE")
    endif()

    set(inputs "")
    set(kinds "")
    set(working_folder "${CMAKE_CURRENT_SOURCE_DIR}")
    foreach(kind SOURCES LIST PROJECT DIRECTORY)
        if(BANK_${kind})
            list(APPEND kinds ${kind})
        endif()
        foreach(input IN LISTS BANK_${kind})
            get_filename_component(input "${input}" ABSOLUTE)
            list(APPEND inputs "${input}")
            if(kind STREQUAL "PROJECT")
                get_filename_component(working_folder "${input}" DIRECTORY)
            endif()
        endforeach()
    endforeach()
    list(LENGTH kinds count)
    if(NOT count EQUAL 1)
        message(FATAL_ERROR "tarnok_add_bank: exactly one of SOURCES, LIST, PROJECT and DIRECTORY is needed")
    endif()

    if(NOT BANK_OUTPUT)
        set(BANK_OUTPUT "${BANK_NAME}.tnb")
    endif()
    get_filename_component(bank "${BANK_OUTPUT}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_BINARY_DIR}")
    set(outputs "${bank}")
    set(depends ${inputs})
    if(kinds STREQUAL "DIRECTORY")
        set(depends "")
    endif()
    set(arguments --output "${bank}" --sort --keep-unchanged --quiet)
    if(BANK_HEADER)
        get_filename_component(header "${BANK_HEADER}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_BINARY_DIR}")
        list(APPEND outputs "${header}")
        list(APPEND arguments --header "${header}")
    endif()
    if(BANK_KEY_FILE)
        get_filename_component(key "${BANK_KEY_FILE}" ABSOLUTE)
        list(APPEND depends "${key}")
        list(APPEND arguments --key-file "${key}")
    endif()
    if(BANK_FORMAT)
        list(APPEND arguments --format "${BANK_FORMAT}")
    endif()
    if(DEFINED BANK_QUALITY)
        list(APPEND arguments --quality "${BANK_QUALITY}")
    endif()
    list(APPEND arguments ${BANK_OPTIONS})

    # The bank itself may keep its time, so the time of another file tells the build system when the command last ran.
    # With the inputs in a file, the length of a command line doesn't limit their number. Make doesn't run a command
    # again when it has changed, but when a file has.
    set(state "${CMAKE_CURRENT_BINARY_DIR}/CMakeFiles/${BANK_NAME}.bank")
    string(REPLACE ";" "\n" input_lines "${inputs}")
    string(REPLACE ";" "\n" argument_lines "${arguments}")
    file(GENERATE OUTPUT "${state}/inputs.txt" CONTENT "${input_lines}\n")
    file(GENERATE OUTPUT "${state}/arguments.txt" CONTENT "${argument_lines}\n")
    # Ninja knows the bank as an output of this command. Make must be told to look whether it is still there. For make,
    # CMake collects the dependencies of all earlier runs in a file; as long as that names a removed sound, the command
    # would run every time.
    set(forget "")
    if(CMAKE_GENERATOR MATCHES "Makefiles")
        list(APPEND arguments --depfile-outputs)
        set(forget COMMAND "${CMAKE_COMMAND}" -E rm -f
            "${CMAKE_CURRENT_BINARY_DIR}/CMakeFiles/${BANK_NAME}.dir/compiler_depend.internal")
    endif()
    add_custom_command(
        OUTPUT "${state}/built"
        BYPRODUCTS ${outputs}
        COMMAND "${TARNOK_BUILD_EXECUTABLE}" run --input-list "${state}/inputs.txt" ${arguments}
            --depfile "${state}/built.d" --depfile-target "${state}/built"
        COMMAND "${CMAKE_COMMAND}" -E touch "${state}/built"
        ${forget}
        DEPENDS ${depends} "${state}/inputs.txt" "${state}/arguments.txt" "${TARNOK_BUILD_EXECUTABLE}"
        DEPFILE "${state}/built.d"
        WORKING_DIRECTORY "${working_folder}"
        COMMENT "Building sound bank ${BANK_NAME}"
        VERBATIM)
    add_custom_target(${BANK_NAME} ALL DEPENDS "${state}/built")
    set_target_properties(${BANK_NAME} PROPERTIES TARNOK_BANK "${bank}" TARNOK_HEADER "${header}")
endfunction()

cmake_policy(POP)
