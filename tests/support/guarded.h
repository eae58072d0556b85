// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Memory between pages that nobody may access.
#ifndef TARN_TESTS_SUPPORT_GUARDED_H
#define TARN_TESTS_SUPPORT_GUARDED_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace tarn_test {

// Zeroed bytes between two closed pages. An access before the first byte of a kFront block, or after the last byte of a
// kBack block, ends the test by a fault.
class Guarded {
 public:
  enum End { kFront, kBack };

  explicit Guarded(size_t size, End end = kBack) : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))), size_(size) {
    room_ = (size + page_ - 1) / page_ * page_;
    void *const all = mmap(nullptr, room_ + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (all == MAP_FAILED) abort();
    all_ = static_cast<uint8_t *>(all);
    protect(PROT_READ | PROT_WRITE);
    bytes_ = all_ + page_ + (end == kBack ? room_ - size : 0);
  }
  explicit Guarded(const std::vector<uint8_t> &content, End end = kBack) : Guarded(content.size(), end) {
    std::copy(content.begin(), content.end(), bytes_);
  }
  ~Guarded() { munmap(all_, room_ + 2 * page_); }
  Guarded(const Guarded &) = delete;
  Guarded &operator=(const Guarded &) = delete;

  uint8_t *bytes() const { return bytes_; }
  size_t size() const { return size_; }

  // Protects the bytes themselves: with PROT_READ a write to them is a fault, with PROT_NONE any access is.
  void protect(int protection) const {
    if (room_ != 0 && mprotect(all_ + page_, room_, protection) != 0) abort();
  }

 private:
  const size_t page_;
  const size_t size_;
  size_t room_;
  uint8_t *all_;
  uint8_t *bytes_;
};

}  // namespace tarn_test

#endif
