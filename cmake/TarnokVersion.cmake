# SPDX-License-Identifier: MIT
# Reads version and date of the release from the newest entry of CHANGELOG, the only file that contains them. Sets
# TARNOK_VERSION (such as 1.2.3) and TARNOK_RELEASE_DATE (such as 2026-01-31).

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/CHANGELOG")
file(READ "${CMAKE_SOURCE_DIR}/CHANGELOG" changelog)

if(NOT changelog MATCHES "^tarnok \\(([0-9]+\\.[0-9]+\\.[0-9]+)\\)")
    message(FATAL_ERROR "CHANGELOG must begin with 'tarnok (MAJOR.MINOR.PATCH)'")
endif()
set(TARNOK_VERSION ${CMAKE_MATCH_1})

set(months Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec)
if(NOT changelog MATCHES "\n -- [^\n]*>  [A-Z][a-z][a-z], ([0-9][0-9]) ([A-Z][a-z][a-z]) ([0-9][0-9][0-9][0-9]) ")
    message(FATAL_ERROR "CHANGELOG: the newest entry must end with ' -- NAME <ADDRESS>  DATE', as Debian writes it")
endif()
set(day ${CMAKE_MATCH_1})
set(year ${CMAKE_MATCH_3})
list(FIND months ${CMAKE_MATCH_2} month)
math(EXPR month "${month} + 101")
string(SUBSTRING ${month} 1 2 month)
set(TARNOK_RELEASE_DATE ${year}-${month}-${day})
