# SPDX-License-Identifier: MIT
# find_package(tarnok): tarnok::engine opens and plays sound files and banks (kess.h, kess.hpp), tarnok::bank does it for
# banks alone, tarnok::builder builds banks (tarnok.h), and tarnok_add_bank() builds a bank as a part of the project
# (CMake 3.21 or later).
include("${CMAKE_CURRENT_LIST_DIR}/tarnok-targets.cmake")
include("${CMAKE_CURRENT_LIST_DIR}/tarnok-bank.cmake")
if(CMAKE_VERSION VERSION_GREATER_EQUAL 3.21)
    include("${CMAKE_CURRENT_LIST_DIR}/tarnok-add-bank.cmake")
endif()
