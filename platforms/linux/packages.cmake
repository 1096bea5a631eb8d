# SPDX-License-Identifier: MIT
# The Debian packages, one for each component of install.cmake. scripts/package.sh makes them.

set(CPACK_PACKAGE_NAME tarnok)
set(CPACK_PACKAGE_VENDOR KESS)
set(CPACK_PACKAGE_CONTACT "KESS <tarnok@kess.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(introduction
"Tarnok compiles audio files into sound banks (.tnb): single files that the
audio runtime of a game loads. Sounds are encoded as PCM, KADPCM, Vorbis or
Opus, and loop without an audible seam.
")

# tarnok_add_package(COMPONENT PACKAGE SECTION SUMMARY DESCRIPTION [DEPENDS ...] [RECOMMENDS ...] [SUGGESTS ...]): what the
# programs and libraries of the component link to is added to DEPENDS. The packages belong together, so a dependency on
# another one is on the same version.
function(tarnok_add_package component package section summary description)
    cmake_parse_arguments(ARG "" "" "DEPENDS;RECOMMENDS;SUGGESTS" ${ARGN})
    string(TOUPPER ${component} upper)
    list(TRANSFORM ARG_DEPENDS REPLACE "^(libkess14|libkess14-ffmpeg|libtarnok14|tarnok-console)$" "\\1 (= ${PROJECT_VERSION})")
    foreach(field DEPENDS RECOMMENDS SUGGESTS)
        list(JOIN ARG_${field} ", " names)
        set(CPACK_DEBIAN_${upper}_PACKAGE_${field} "${names}" PARENT_SCOPE)
    endforeach()
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${introduction}\n${description}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS ON PARENT_SCOPE)
    if(NOT package STREQUAL tarnok)
        # Before 2.4.0, and in development builds of it, one package contained everything.
        set(CPACK_DEBIAN_${upper}_PACKAGE_BREAKS "tarnok (<< 2.4.0)" PARENT_SCOPE)
        set(CPACK_DEBIAN_${upper}_PACKAGE_REPLACES "tarnok (<< 2.4.1~)" PARENT_SCOPE)
    endif()
    install(FILES "${changelog}" DESTINATION share/doc/${package} COMPONENT ${component})
    install(FILES ${CMAKE_SOURCE_DIR}/LICENSE DESTINATION share/doc/${package} RENAME copyright COMPONENT ${component})
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
endfunction()

tarnok_add_package(kess libkess14 libs "audio engine that plays sound banks"
"This package contains the engine, a shared library that opens sound banks and
decodes their sounds and most other sound files."
    SUGGESTS libkess14-ffmpeg)
tarnok_add_package(tarnok libtarnok14 libs "sound bank builder"
"This package contains the builder, a shared library that encodes sounds and
writes banks. A cache keeps encoded sounds, so a build encodes only what has
changed."
    DEPENDS libkess14)
tarnok_add_package(console tarnok-console sound "sound bank compiler for games - console tools"
"This package contains the console tools: tarnokexcl compiles banks, and tnb
lists, checks, compares and extracts them. They need no window system."
    DEPENDS libkess14 libtarnok14 RECOMMENDS libkess14-ffmpeg)
tarnok_add_package(desktop tarnok sound "sound bank compiler for games"
"This package contains the desktop program, and installs the console tools."
    DEPENDS tarnok-console libkess14 libtarnok14 libkess14-ffmpeg qt6-qpa-plugins SUGGESTS libtarnok-dev)
tarnok_add_package(development libtarnok-dev libdevel "sound bank compiler for games - development files"
"This package contains headers, documents and examples for programs that build
or play banks, and their files for pkg-config and CMake."
    DEPENDS libkess14 libtarnok14)
if(TARGET kess_ffmpeg)
    tarnok_add_package(kess_ffmpeg libkess14-ffmpeg libs "audio engine that plays sound banks - FFmpeg module"
"This package contains the engine's module that decodes WMA, AAC, ALAC and other
formats with FFmpeg. The engine works without it."
        DEPENDS libkess14)
endif()
include(CPack)
