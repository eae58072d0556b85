# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# cmake -DOUTPUT=FILE "-DSOURCES=A;B;..." -P batch.cmake
#
# Writes one source file that compiles like all of SOURCES. Loading the headers and instantiating their templates takes
# most of a test's compile time; this way a few files share it. Each file gets a namespace of its own, so their names do
# not meet; all that they include comes first, outside of these.
set(includes "")
set(bodies "")
foreach(source IN LISTS SOURCES)
  file(STRINGS ${source} lines REGEX "^#include ")
  list(APPEND includes ${lines})
  cmake_path(GET source STEM name)
  string(APPEND bodies "namespace ${name} {\n#include \"${source}\"\n}\n")
endforeach()
list(REMOVE_DUPLICATES includes)
set(head "")
foreach(include IN LISTS includes)
  string(REGEX REPLACE "^#include " "" header "${include}")
  string(APPEND head "#if __has_include(${header})\n#include ${header}\n#endif\n")
endforeach()
# GCC wants anonymous namespaces only in the main file.
set(quiet "#pragma GCC diagnostic ignored \"-Wsubobject-linkage\"\n")
file(WRITE ${OUTPUT} "${head}\n#if !defined(__clang__)\n${quiet}#endif\n${bodies}")
