// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The definition of a function that comes after the shim's own: libc's, or a sanitizer's.
#ifndef TARN_SIM_NEXT_H
#define TARN_SIM_NEXT_H

#include <dlfcn.h>

namespace tarn_sim {

template <typename Function>
Function next(Function *cache, const char *name) {
  Function found = __atomic_load_n(cache, __ATOMIC_RELAXED);
  if (found == nullptr) {
    found = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
    __atomic_store_n(cache, found, __ATOMIC_RELAXED);
  }
  return found;
}

}  // namespace tarn_sim

// `signature` is passed as a type: in this code the name means the shim's own function.
#define NEXT(name, signature)                        \
  [] {                                               \
    static signature cache;                          \
    return tarn_sim::next<signature>(&cache, #name); \
  }()

#endif
