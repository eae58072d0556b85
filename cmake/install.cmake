# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# `cmake --install`: headers, both libraries, the CMake package (find_package(tarn)) and the pkg-config files.

include(CMakePackageConfigHelpers)

install(DIRECTORY include/tarn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(TARGETS tarn tarn_static EXPORT tarn-targets)

if(TARN_SPLIT_DEBUG)
  install(FILES ${PROJECT_BINARY_DIR}/.debug/$<TARGET_FILE_NAME:tarn>.debug
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/.debug COMPONENT debug)
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarn)
install(EXPORT tarn-targets NAMESPACE tarn:: DESTINATION ${package_dir})
configure_package_config_file(cmake/tarn-config.cmake.in tarn-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(tarn-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tarn-config.cmake ${PROJECT_BINARY_DIR}/tarn-config-version.cmake
        DESTINATION ${package_dir})

# The paths in the file are relative to its own place, so an installation may be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_INCLUDEDIR
           BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE tarn_pc_include_dir)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
           BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE tarn_pc_prefix)
foreach(package tarn tarn-static)
  configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
