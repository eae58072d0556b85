// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "support/library.h"

#include <link.h>

#include <cstdint>
#include <cstring>

namespace tarn_test {

namespace {

// Written before main runs, so without a lock. Both are zero until then: no address is in the library yet.
uintptr_t g_begin;
uintptr_t g_end;

int note_library(dl_phdr_info *object, size_t, void *) {
  if (strstr(object->dlpi_name, "libtarn.so") == nullptr) return 0;
  for (int i = 0; i < object->dlpi_phnum; i++) {
    const auto &segment = object->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
    g_begin = object->dlpi_addr + segment.p_vaddr;
    g_end = g_begin + segment.p_memsz;
  }
  return 1;
}

__attribute__((constructor)) void find_library() { dl_iterate_phdr(note_library, nullptr); }

}  // namespace

bool is_in_library(const void *address) {
  const auto number = reinterpret_cast<uintptr_t>(address);
  return number >= g_begin && number < g_end;
}

}  // namespace tarn_test
