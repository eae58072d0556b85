// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Zeroed allocation: every heap block of the library above the OS layer comes from here.

#include <cstdlib>
#include <cstring>

#include "tarn/platform.h"

void *mu_malloc(int size) {
  // Widened with its sign: a negative size becomes an impossible request.
  const auto bytes = static_cast<size_t>(static_cast<ssize_t>(size));
  void *block = malloc(bytes);
  if (block != nullptr) memset(block, 0, bytes);
  return block;
}

void mu_free(void *block) { free(block); }
