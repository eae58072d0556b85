// Bytes right before memory that nobody may touch.
#ifndef TARN_TESTS_CRYPTO_PROTECTED_BYTES_H
#define TARN_TESTS_CRYPTO_PROTECTED_BYTES_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "crypto/reference.h"

namespace crypto_test {

class ProtectedBytes {
 public:
  // `size`: what is writable, at most; rounded up to pages.
  explicit ProtectedBytes(size_t size) : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
    size_ = (size + page_ - 1) / page_ * page_;
    start_ = static_cast<uint8_t *>(
        mmap(nullptr, size_ + page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(start_ + size_, page_, PROT_NONE);
  }
  ~ProtectedBytes() { munmap(start_, size_ + page_); }
  ProtectedBytes(const ProtectedBytes &) = delete;
  ProtectedBytes &operator=(const ProtectedBytes &) = delete;

  // The last `size` bytes.
  uint8_t *last(size_t size) { return start_ + size_ - size; }

  // Puts bytes at the very end.
  uint8_t *put(const Bytes &bytes) { return std::copy_backward(bytes.begin(), bytes.end(), start_ + size_); }

 private:
  size_t page_;
  size_t size_;
  uint8_t *start_;
};

}  // namespace crypto_test

#endif
