# SPDX-License-Identifier: MIT
# The files and destinations of `cmake --install` and of the package. The programs are installed in an application
# folder, with their libraries in its subfolder lib/, as in the build folder. bin/ contains links to the programs.

set(TARNOK_APPLICATION lib/tarnok)
set(TARNOK_LIBRARIES ${TARNOK_APPLICATION}/lib)
set(TARNOK_HEADERS include/tarnok)

install(TARGETS tarnokex tarnokexcl tarnok_build tnb tarnokex_open RUNTIME DESTINATION ${TARNOK_APPLICATION})
install(TARGETS kess tarnok EXPORT tarnok-targets LIBRARY DESTINATION ${TARNOK_LIBRARIES})
if(TARGET kess_ffmpeg)
    install(TARGETS kess_ffmpeg LIBRARY DESTINATION ${TARNOK_LIBRARIES})
endif()
file(MAKE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/links")
foreach(program tarnokex tarnokex-open tarnokexcl tarnok-build tnb)
    set(link "${CMAKE_CURRENT_BINARY_DIR}/links/${program}")
    file(CREATE_LINK ../${TARNOK_APPLICATION}/${program} "${link}" SYMBOLIC)
    install(FILES "${link}" DESTINATION bin)
endforeach()

# Headers and package files, for programs that play or build banks.
install(FILES
    ${CMAKE_SOURCE_DIR}/engine/include/kess.h
    ${CMAKE_SOURCE_DIR}/engine/include/kess.hpp
    ${CMAKE_SOURCE_DIR}/builder/include/tarnok.h
    ${CMAKE_SOURCE_DIR}/builder/include/tarnok_encoder.h
    DESTINATION ${TARNOK_HEADERS})
include(CMakePackageConfigHelpers)
set(package "${CMAKE_CURRENT_BINARY_DIR}/package")
write_basic_package_version_file("${package}/tarnok-config-version.cmake" COMPATIBILITY SameMajorVersion)
install(FILES package/tarnok-config.cmake package/tarnok-add-bank.cmake "${package}/tarnok-config-version.cmake"
    DESTINATION lib/cmake/tarnok)
install(EXPORT tarnok-targets NAMESPACE tarnok:: DESTINATION lib/cmake/tarnok)
foreach(library kess tarnok)
    configure_file(package/${library}.pc.in "${package}/${library}.pc" @ONLY)
    install(FILES "${package}/${library}.pc" DESTINATION lib/pkgconfig)
endforeach()

# Desktop entry, AppStream data, MIME types and icons.
install(FILES desktop/org.tarnok.tarnokex.desktop DESTINATION share/applications)
set(metainfo org.tarnok.tarnokex.metainfo.xml)
configure_file(desktop/${metainfo} desktop/${metainfo} @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/desktop/${metainfo}" DESTINATION share/metainfo)
install(FILES desktop/tarnok.xml DESTINATION share/mime/packages)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/resources/theme/hicolor DESTINATION share/icons)
foreach(icon tarnokex:apps/tarnokex project:mimetypes/application-x-tarnok-project
        profile:mimetypes/application-x-tarnok-profile soundbank:mimetypes/application-x-tarnok-bank)
    string(REGEX MATCH "^(.*):(.*)/(.*)$" parts ${icon})
    install(FILES ${CMAKE_SOURCE_DIR}/resources/svg/${CMAKE_MATCH_1}.svg
        DESTINATION share/icons/hicolor/scalable/${CMAKE_MATCH_2} RENAME ${CMAKE_MATCH_3}.svg)
endforeach()

# Documents and completions. Manual pages are compressed without name and time, so that builds are reproducible.
find_program(GZIP gzip REQUIRED)
foreach(page tarnokex tarnokex-open tarnokexcl tarnok-build tnb)
    set(configured "${CMAKE_CURRENT_BINARY_DIR}/man/${page}.1")
    set(compressed "${configured}.gz")
    configure_file("${CMAKE_SOURCE_DIR}/docs/${page}.1" "${configured}" @ONLY)
    add_custom_command(OUTPUT "${compressed}"
        COMMAND "${GZIP}" -9nc "${configured}" > "${compressed}"
        DEPENDS "${configured}")
    list(APPEND pages "${compressed}")
    install(FILES "${compressed}" DESTINATION share/man/man1)
endforeach()
set(changelog "${CMAKE_CURRENT_BINARY_DIR}/man/changelog.gz")
add_custom_command(OUTPUT "${changelog}"
    COMMAND "${GZIP}" -9nc "${CMAKE_SOURCE_DIR}/CHANGELOG" > "${changelog}"
    DEPENDS "${CMAKE_SOURCE_DIR}/CHANGELOG" ${pages})
add_custom_target(tarnok_documents ALL DEPENDS ${pages} "${changelog}")
install(FILES "${changelog}" DESTINATION share/doc/tarnok)
install(FILES ${CMAKE_SOURCE_DIR}/LICENSE DESTINATION share/doc/tarnok RENAME copyright)
install(FILES
    ${CMAKE_SOURCE_DIR}/docs/build-systems.md ${CMAKE_SOURCE_DIR}/docs/console.md ${CMAKE_SOURCE_DIR}/docs/quality.md
    ${CMAKE_SOURCE_DIR}/docs/tnb-format.md
    DESTINATION share/doc/tarnok)
install(FILES ${CMAKE_SOURCE_DIR}/docs/quality.csv DESTINATION share/doc/tarnok)
install(FILES ${CMAKE_SOURCE_DIR}/docs/images/quality.svg DESTINATION share/doc/tarnok/images)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/schemas DESTINATION share/doc/tarnok)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/examples DESTINATION share/doc/tarnok PATTERN __pycache__ EXCLUDE)
install(FILES completions/tarnokexcl completions/tarnok-build completions/tnb DESTINATION share/bash-completion/completions)

# The package: cpack -G DEB in the build folder.
set(CPACK_PACKAGE_NAME tarnok)
set(CPACK_PACKAGE_VENDOR KESS)
set(CPACK_PACKAGE_CONTACT "KESS <tarnok@kess.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "sound bank compiler for games")
set(CPACK_PACKAGE_DESCRIPTION
"Compiles audio files into sound banks (.tnb): single files that the audio
runtime of a game loads. Sounds are encoded as PCM, KADPCM, Vorbis or Opus,
and loop without an audible seam. A cache keeps encoded sounds, so a build
encodes only what has changed.

This package contains the desktop program, the console tools, and libraries
and headers for programs that build or play banks.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(CPack)
