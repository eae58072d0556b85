# What the command-line programs are built with: CLI11 and nlohmann-json. Both are headers alone, so a cross build takes
# this machine's. They are linked into a folder of their own: the other headers beside them are not for another processor.
#
#   tool_include  the folder
#   tool_missing  what was not found, a list; empty when all is there

set(tool_include ${PROJECT_BINARY_DIR}/tool_headers)
file(MAKE_DIRECTORY ${tool_include})
set(tool_missing "")
foreach(header CLI/CLI.hpp nlohmann/json.hpp)
  cmake_path(GET header PARENT_PATH name)
  find_path(TARN_${name}_DIR ${header} NO_CMAKE_FIND_ROOT_PATH)
  mark_as_advanced(TARN_${name}_DIR)
  if(TARN_${name}_DIR)
    file(CREATE_LINK ${TARN_${name}_DIR}/${name} ${tool_include}/${name} SYMBOLIC)
  else()
    list(APPEND tool_missing ${header})
  endif()
endforeach()

# The installed programs find the library of their own installation, wherever that is moved to.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR}
           OUTPUT_VARIABLE tool_library_path)
