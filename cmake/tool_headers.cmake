# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# The libraries of the command-line programs: CLI11 and nlohmann-json. Both consist of headers only, so a cross build
# uses this machine's. A separate folder links to them, because the headers beside them are not for another processor.
#
#   tool_include      the folder
#   tool_missing      the list of libraries that were not found
#   tool_big_headers  compile options of the files that include one of them
#
# ON is an error if the programs cannot be built. AUTO builds those that can be built.

set(tool_include ${PROJECT_BINARY_DIR}/tool_headers)
file(MAKE_DIRECTORY ${tool_include})
set(tool_missing "")
foreach(needed "CLI/CLI.hpp|CLI11 (Debian: libcli11-dev)"
               "nlohmann/json.hpp|nlohmann-json (Debian: nlohmann-json3-dev)")
  string(REGEX REPLACE "[|].*" "" header "${needed}")
  string(REGEX REPLACE ".*[|]" "" package "${needed}")
  cmake_path(GET header PARENT_PATH name)
  find_path(TARN_${name}_DIR ${header} NO_CMAKE_FIND_ROOT_PATH)
  mark_as_advanced(TARN_${name}_DIR)
  if(TARN_${name}_DIR)
    file(CREATE_LINK ${TARN_${name}_DIR}/${name} ${tool_include}/${name} SYMBOLIC)
  else()
    list(APPEND tool_missing "${package}")
  endif()
endforeach()

if(tool_missing)
  list(JOIN tool_missing ", " packages)
  foreach(option TARN_BUILD_SIM TARN_BUILD_TOOLS)
    if(${option} AND NOT "${${option}}" STREQUAL "AUTO")
      message(FATAL_ERROR "${option} is ${${option}}, but this was not found: ${packages}. "
                          "Install it, or configure with -D${option}=AUTO or OFF.")
    endif()
  endforeach()
endif()

# The installed programs find the library of their own installation, even after it is moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR}
           OUTPUT_VARIABLE tool_library_path)

# For the few files that include CLI11 or nlohmann-json. Optimisation, more debug information than lines, and the checks of
# the undefined-behaviour sanitizer would each take most of the compile time: a command line is read once and JSON rarely.
set(tool_big_headers -Og -g1)
if(TARN_SANITIZE MATCHES "undefined")
  list(APPEND tool_big_headers -fno-sanitize=undefined)
endif()

# Their own headers and the standard library's take most of the time that the programs' other files need. The files of a
# program are therefore compiled as one; OFF is for tools that look at each file.
option(TARN_BUILD_TOGETHER "Compile the files of a command-line program together" ON)
