# SPDX-License-Identifier: MIT
# find_package(tarnok): tarnok::engine opens and plays banks (kess.hpp), tarnok::builder builds them (tarnok.h).
include("${CMAKE_CURRENT_LIST_DIR}/tarnok-targets.cmake")
