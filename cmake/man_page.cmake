# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# The man pages. The version comes from the public header, the date from the brackets in the newest entry of the change
# log: the day of its release, or that it is not released yet.
include_guard(GLOBAL)

set(change_log ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${change_log})
file(STRINGS ${change_log} newest REGEX "^## " LIMIT_COUNT 1)
string(REGEX REPLACE "^[^(]*\\(([^)]*)\\).*" "\\1" tarn_man_date "${newest}")
set_property(GLOBAL PROPERTY TARN_MAN_DATE "${tarn_man_date}")

# tarn_man_page(PAGE): makes the page with version and date in man/ of the build, and installs it.
function(tarn_man_page page)
  get_property(TARN_MAN_DATE GLOBAL PROPERTY TARN_MAN_DATE)
  cmake_path(GET page FILENAME name)
  configure_file(${page} ${PROJECT_BINARY_DIR}/man/${name} @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/man/${name} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()
