// Memory with nothing before it and nothing behind it.
#ifndef TARN_TESTS_CONTAINERS_FENCED_H
#define TARN_TESTS_CONTAINERS_FENCED_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace tarn_test {

// Zeroed bytes that no access may leave: it would be a fault. One end of them stands at a page that is closed.
class Fenced {
 public:
  enum End { kFront, kBack };

  Fenced(size_t size, End end) : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
    room_ = (size + page_ - 1) / page_ * page_;
    void *const all = mmap(nullptr, room_ + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (all == MAP_FAILED) abort();
    all_ = static_cast<uint8_t *>(all);
    protect(PROT_READ | PROT_WRITE);
    bytes_ = all_ + page_ + (end == kBack ? room_ - size : 0);
  }
  ~Fenced() { munmap(all_, room_ + 2 * page_); }
  Fenced(const Fenced &) = delete;
  Fenced &operator=(const Fenced &) = delete;

  uint8_t *bytes() const { return bytes_; }

  // For the bytes themselves: PROT_READ lets nobody write them, PROT_NONE nobody touch them.
  void protect(int protection) const {
    if (mprotect(all_ + page_, room_, protection) != 0) abort();
  }

 private:
  const size_t page_;
  size_t room_;
  uint8_t *all_;
  uint8_t *bytes_;
};

}  // namespace tarn_test

#endif
