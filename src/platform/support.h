// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by every subsystem above the OS layer: short names of the fixed-width types, scoped locks over the mutex
// handles, and owned blocks of mu_malloc.
#ifndef TARN_PLATFORM_SUPPORT_H
#define TARN_PLATFORM_SUPPORT_H

#include <climits>
#include <cstring>
#include <memory>
#include <string_view>

#include "tarn/platform.h"

namespace tarn {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using i32 = std::int32_t;
using i64 = std::int64_t;

// Holds a mutex for a scope. A null handle locks nothing.
class ScopedLock {
 public:
  explicit ScopedLock(mu_mutex_t mutex) : mutex_(mutex) { mu_mutex_lock(mutex_); }
  ~ScopedLock() { mu_mutex_unlock(mutex_); }
  ScopedLock(const ScopedLock &) = delete;
  ScopedLock &operator=(const ScopedLock &) = delete;

 private:
  mu_mutex_t mutex_;
};

// Releases, for a scope, a mutex that the thread holds.
class ScopedUnlock {
 public:
  explicit ScopedUnlock(mu_mutex_t mutex) : mutex_(mutex) { mu_mutex_unlock(mutex_); }
  ~ScopedUnlock() { mu_mutex_lock(mutex_); }
  ScopedUnlock(const ScopedUnlock &) = delete;
  ScopedUnlock &operator=(const ScopedUnlock &) = delete;

 private:
  mu_mutex_t mutex_;
};

struct Free {
  void operator()(void *block) const noexcept { mu_free(block); }
};

// A block of mu_malloc that goes back through mu_free unless it is released.
template <typename T>
using Owned = std::unique_ptr<T, Free>;

// Zeroed room for `count` objects of `size` bytes; null when memory runs out or the total exceeds the int that
// mu_malloc accepts.
inline void *allocate_bytes(u64 count, u64 size) {
  if (count > INT_MAX / size) return nullptr;
  return mu_malloc(static_cast<int>(count * size));
}

template <typename T>
Owned<T> allocate(u64 count = 1) {
  return Owned<T>(static_cast<T *>(allocate_bytes(count, sizeof(T))));  // NOLINT(bugprone-sizeof-expression): a pointer
}

// The part of `text` from `begin` on, at most `length` characters, cut at its end. Replaces substr and copy of the
// standard view: they throw, and need the C++ run-time library unless the compiler proves the range.
constexpr std::string_view slice(std::string_view text, size_t begin, size_t length = std::string_view::npos) {
  const size_t from = begin < text.size() ? begin : text.size();
  const size_t rest = text.size() - from;
  return {text.data() + from, length < rest ? length : rest};
}

// Copies a text, which must not be a null view, and returns the end of the copy.
inline char *copy_text(char *to, std::string_view text) {
  memcpy(to, text.data(), text.size());
  return to + text.size();
}

// Fields that are read or written without their lock. The public records keep plain types and therefore their layout.
template <typename T>
T load_relaxed(const T &field) {
  return __atomic_load_n(&field, __ATOMIC_RELAXED);
}
template <typename T>
void store_relaxed(T &field, T value) {
  __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

// Flags that show other threads that data is ready.
template <typename T>
T load_acquire(const T &flag) {
  return __atomic_load_n(&flag, __ATOMIC_ACQUIRE);
}
template <typename T>
void store_release(T &flag, T value) {
  __atomic_store_n(&flag, value, __ATOMIC_RELEASE);
}

}  // namespace tarn

#endif
