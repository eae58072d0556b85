# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Compiler and linker flags: lists for the targets that need them. No flag is global.
#
#   tarn_warnings       for every target of the project
#   tarn_library_flags  the features of C++ that the library does not use, and the symbols that it hides
#   tarn_hardening      for everything that ships; needs an optimised build for FORTIFY
#   tarn_link_flags     for the shared objects
#   tarn_start_files    for the library, which runs nothing at load time
#   tarn_coverage       instrumentation of the library, empty unless TARN_COVERAGE is on

option(TARN_COVERAGE "Instrument the library for gcov" OFF)
option(TARN_UNWIND_TABLES "Debuggers, backtrace(3), profilers and pthread_cancel get through the library" ON)
option(TARN_SPLIT_DEBUG "Make and install the debug information of libtarn.so as a file of its own" OFF)
set(TARN_SANITIZE "" CACHE STRING "Sanitizers for the library and its tests: address,undefined or thread")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(tarn_warnings
    -Wall
    -Wextra
    -Wpedantic
    -Wcast-align
    -Wcast-qual
    -Wconversion
    -Wformat=2
    -Wmissing-declarations
    -Wshadow
    -Wsign-conversion
    -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
    $<$<COMPILE_LANGUAGE:CXX>:-Wextra-semi>
    $<$<BOOL:${TARN_WERROR}>:-Werror>)

set(tarn_library_flags
    -D_GNU_SOURCE
    -fvisibility=hidden
    -fvisibility-inlines-hidden
    -fno-exceptions
    -fno-rtti
    -fno-threadsafe-statics
    # The checks of the standard containers, which some distributions turn on, call the C++ run-time library.
    -U_GLIBCXX_ASSERTIONS
    -D_GLIBCXX_NO_ASSERTIONS
    # Exported functions may be inlined into one another; a function's address stays the one that the program sees.
    -fno-semantic-interposition
    # An interposed malloc must see every allocation: without this, malloc and a zero fill become one calloc.
    -fno-builtin-malloc
    -ffunction-sections
    -fdata-sections)
# Only the tables: code without exceptions has no personality routine, so the unwinder passes through its frames without
# running code for them. The tables take about a tenth of the file.
set(tarn_unwind_tables -fasynchronous-unwind-tables)
if(TARN_UNWIND_TABLES)
  list(APPEND tarn_library_flags ${tarn_unwind_tables})
else()
  list(APPEND tarn_library_flags -fno-asynchronous-unwind-tables -fno-unwind-tables)
endif()
if(TARN_SPLIT_DEBUG)
  list(APPEND tarn_library_flags -g)
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
  # The out-of-line atomics of libgcc would add a constructor, and a call for each atomic access.
  list(APPEND tarn_library_flags -mno-outline-atomics)
endif()

set(tarn_link_flags LINKER:--no-undefined LINKER:--as-needed LINKER:--gc-sections LINKER:-O1)

if(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
  # The linker's default, 65536, would fill the file with zeros up to that size.
  set(TARN_MAX_PAGE_SIZE 16384 CACHE STRING "Largest page size of the kernels that shall load the library")
  list(APPEND tarn_link_flags LINKER:-z,max-page-size=${TARN_MAX_PAGE_SIZE})
endif()

set(tarn_hardening "")
if(TARN_SANITIZE STREQUAL "")
  set(tarn_hardening -fstack-protector-strong -fstack-clash-protection
                     $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  list(APPEND tarn_link_flags LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    list(APPEND tarn_hardening -fcf-protection)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    list(APPEND tarn_hardening -mbranch-protection=standard)
  endif()
else()
  set(tarn_sanitize -fsanitize=${TARN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_compile_options(${tarn_sanitize})
  add_link_options(${tarn_sanitize})
endif()

# The start files would add functions that run at load time and do nothing here. They are built without the marks of
# control flow integrity, so the linked library would lose these marks too. The instrumented builds need them.
set(tarn_start_files "")
if(TARN_SANITIZE STREQUAL "" AND NOT TARN_COVERAGE)
  set(tarn_start_files -nostartfiles)
endif()

set(tarn_coverage "")
if(TARN_COVERAGE)
  set(tarn_coverage --coverage -fprofile-update=atomic)
endif()

# Turns "192.168.1.254" into 3232236030u; anything else is a configuration error.
function(tarn_ipv4_to_number text result)
  if(NOT text MATCHES "^([0-9]+)\\.([0-9]+)\\.([0-9]+)\\.([0-9]+)$")
    message(FATAL_ERROR "TARN_LOG_SERVER_IP: '${text}' is not an IPv4 address")
  endif()
  set(number 0)
  foreach(octet ${CMAKE_MATCH_1} ${CMAKE_MATCH_2} ${CMAKE_MATCH_3} ${CMAKE_MATCH_4})
    if(octet GREATER 255)
      message(FATAL_ERROR "TARN_LOG_SERVER_IP: '${text}' is not an IPv4 address")
    endif()
    math(EXPR number "${number} * 256 + ${octet}")
  endforeach()
  set(${result} ${number}u PARENT_SCOPE)
endfunction()
