// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The heap blocks of the library.
#ifndef TARN_TESTS_SUPPORT_HEAP_H
#define TARN_TESTS_SUPPORT_HEAP_H

#include <cstddef>
#include <vector>

namespace tarn_test {

// Records, for a scope, the blocks that the library allocates. Only one may exist at a time.
class HeapWatch {
 public:
  HeapWatch();
  ~HeapWatch();
  HeapWatch(const HeapWatch &) = delete;
  HeapWatch &operator=(const HeapWatch &) = delete;

  // Blocks of the scope that have not been freed.
  size_t live() const;

  // Blocks of the scope that have been freed, in the order of their release.
  std::vector<void *> freed() const;
};

// For the interposed functions.
void note_allocated(void *block);
void note_freed(void *block);

}  // namespace tarn_test

#endif
