# SPDX-License-Identifier: MIT
# tarnok::bank: the static library that opens and plays banks (kess.h, kess.hpp). It needs the codecs' development files.
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
    pkg_check_modules(TARNOK_BANK_CODECS QUIET IMPORTED_TARGET vorbis ogg opus libsodium libxxhash)
endif()
if(TARNOK_BANK_CODECS_FOUND AND NOT TARGET tarnok::bank)
    get_filename_component(prefix "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
    add_library(tarnok::bank STATIC IMPORTED)
    set_target_properties(tarnok::bank PROPERTIES
        IMPORTED_LOCATION "${prefix}/lib/tarnok/lib/libkess_bank.a"
        IMPORTED_LINK_INTERFACE_LANGUAGES CXX
        INTERFACE_INCLUDE_DIRECTORIES "${prefix}/include/tarnok"
        INTERFACE_LINK_LIBRARIES "PkgConfig::TARNOK_BANK_CODECS;m")
endif()
