# SPDX-License-Identifier: MIT
# The files and destinations of `cmake --install` and of the packages, each of which is a component. The programs are
# installed in an application folder, with their libraries in its subfolder lib/, as in the build folder. bin/ contains
# links to the programs.

# Installing builds nothing, so that packages can be made without the tests. Build the target "programs" first.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME desktop)

set(TARNOK_APPLICATION lib/tarnok)
set(TARNOK_LIBRARIES ${TARNOK_APPLICATION}/lib)
set(TARNOK_HEADERS include/tarnok)

# The programs of a component, each with a link, a manual page and, for the console, a completion.
set(desktop_programs tarnokex tarnokex-open)
set(console_programs tarnokexcl tarnok-build tnb)

install(TARGETS tarnokex tarnokex_open RUNTIME DESTINATION ${TARNOK_APPLICATION} COMPONENT desktop)
install(TARGETS tarnokexcl tarnok_build tnb RUNTIME DESTINATION ${TARNOK_APPLICATION} COMPONENT console)
foreach(library kess tarnok)
    install(TARGETS ${library} EXPORT tarnok-targets
        LIBRARY DESTINATION ${TARNOK_LIBRARIES} COMPONENT ${library} NAMELINK_COMPONENT development)
endforeach()
if(TARGET kess_ffmpeg)
    install(TARGETS kess_ffmpeg LIBRARY DESTINATION ${TARNOK_LIBRARIES} COMPONENT kess_ffmpeg)
endif()
file(MAKE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/links")
foreach(component desktop console)
    foreach(program ${${component}_programs})
        set(link "${CMAKE_CURRENT_BINARY_DIR}/links/${program}")
        file(CREATE_LINK ../${TARNOK_APPLICATION}/${program} "${link}" SYMBOLIC)
        install(FILES "${link}" DESTINATION bin COMPONENT ${component})
    endforeach()
endforeach()

# Headers and package files, for programs that play or build banks.
install(FILES
    ${CMAKE_SOURCE_DIR}/engine/include/kess.h
    ${CMAKE_SOURCE_DIR}/engine/include/kess.hpp
    ${CMAKE_SOURCE_DIR}/builder/include/tarnok.h
    ${CMAKE_SOURCE_DIR}/builder/include/tarnok_encoder.h
    DESTINATION ${TARNOK_HEADERS} COMPONENT development)
include(CMakePackageConfigHelpers)
set(package "${CMAKE_CURRENT_BINARY_DIR}/package")
write_basic_package_version_file("${package}/tarnok-config-version.cmake" COMPATIBILITY SameMajorVersion)
install(FILES package/tarnok-config.cmake package/tarnok-add-bank.cmake package/tarnok-bank.cmake
    "${package}/tarnok-config-version.cmake"
    DESTINATION lib/cmake/tarnok COMPONENT development)
install(EXPORT tarnok-targets NAMESPACE tarnok:: DESTINATION lib/cmake/tarnok COMPONENT development)
install(FILES "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/libkess_bank.a" DESTINATION ${TARNOK_LIBRARIES} COMPONENT development)
foreach(library kess kess-bank tarnok)
    configure_file(package/${library}.pc.in "${package}/${library}.pc" @ONLY)
    install(FILES "${package}/${library}.pc" DESTINATION share/pkgconfig COMPONENT development)
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
foreach(component desktop console)
    foreach(page ${${component}_programs})
        set(configured "${CMAKE_CURRENT_BINARY_DIR}/man/${page}.1")
        set(compressed "${configured}.gz")
        configure_file("${CMAKE_SOURCE_DIR}/docs/${page}.1" "${configured}" @ONLY)
        add_custom_command(OUTPUT "${compressed}"
            COMMAND "${GZIP}" -9nc "${configured}" > "${compressed}"
            DEPENDS "${configured}")
        list(APPEND pages "${compressed}")
        install(FILES "${compressed}" DESTINATION share/man/man1 COMPONENT ${component})
    endforeach()
endforeach()
set(changelog "${CMAKE_CURRENT_BINARY_DIR}/man/changelog.gz")
add_custom_command(OUTPUT "${changelog}"
    COMMAND "${GZIP}" -9nc "${CMAKE_SOURCE_DIR}/CHANGELOG" > "${changelog}"
    DEPENDS "${CMAKE_SOURCE_DIR}/CHANGELOG" ${pages})
add_custom_target(tarnok_documents ALL DEPENDS ${pages} "${changelog}")
add_dependencies(programs tarnok_documents kess_bank_archive)
install(FILES completions/tarnokexcl completions/tarnok-build completions/tnb
    DESTINATION share/bash-completion/completions COMPONENT console)

# All documents are in one folder, whichever packages are installed.
set(documents share/doc/tarnok)
install(FILES
    ${CMAKE_SOURCE_DIR}/docs/build-systems.md ${CMAKE_SOURCE_DIR}/docs/console.md ${CMAKE_SOURCE_DIR}/docs/quality.md
    ${CMAKE_SOURCE_DIR}/docs/quality.csv
    DESTINATION ${documents} COMPONENT console)
install(FILES ${CMAKE_SOURCE_DIR}/docs/images/quality.svg DESTINATION ${documents}/images COMPONENT console)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/schemas DESTINATION ${documents} COMPONENT console)
install(FILES ${CMAKE_SOURCE_DIR}/docs/games.md ${CMAKE_SOURCE_DIR}/docs/tnb-format.md
    DESTINATION ${documents} COMPONENT development)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/examples
    DESTINATION ${documents} COMPONENT development PATTERN __pycache__ EXCLUDE)

include(packages.cmake)
