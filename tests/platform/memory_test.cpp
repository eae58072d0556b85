// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mu_malloc, which zeroes, and mu_free.

#include <algorithm>
#include <climits>
#include <cstddef>

#include "platform/fixture.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&mu_malloc), void *(*)(int)>);
static_assert(std::is_same_v<decltype(&mu_free), void (*)(void *)>);
static_assert(std::is_same_v<mu_status_t, int32_t>);

TEST(MuMalloc, ZeroesAllOfTheBlockAndNothingAfterIt) {
  constexpr size_t kAfter = 16;
  Replace dirty(libc::malloc, [](size_t size) { return dirty_block(size + kAfter); });
  for (const int size : {1, 2, 7, 8, 15, 16, 17, 63, 896, 1000, 4096, 4097, 1000000}) {
    SCOPED_TRACE(size);
    auto *block = static_cast<unsigned char *>(mu_malloc(size));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::count(block, block + size, 0), size);
    EXPECT_EQ(std::count(block + size, block + size + kAfter, 0xA5), kAfter);
    mu_free(block);
  }
}

TEST(MuMalloc, ZeroesABlockThatWasUsedBefore) {
  for (int round = 0; round < 100; round++) {
    auto *block = static_cast<unsigned char *>(mu_malloc(16));
    ASSERT_NE(block, nullptr);
    ASSERT_EQ(std::count(block, block + 16, 0), 16);
    memset(block, 0xFF, 16);
    mu_free(block);
  }
}

TEST(MuMalloc, AsksForTheSizeWidenedWithItsSign) {
  const struct {
    int size;
    size_t asked;
  } kRows[] = {
      {0, 0},
      {16, 16},
      {INT_MAX, 0x7FFFFFFF},
      {-1, 0xFFFFFFFFFFFFFFFF},
      {-16, 0xFFFFFFFFFFFFFFF0},
      {INT_MIN, 0xFFFFFFFF80000000},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.size);
    std::vector<size_t> asked;
    Replace no_memory(libc::malloc, [&](size_t size) -> void * {
      asked.push_back(size);
      return nullptr;
    });
    EXPECT_EQ(mu_malloc(row.size), nullptr);
    EXPECT_EQ(asked, std::vector<size_t>{row.asked});
  }
}

TEST(MuMalloc, IsNullForANegativeSize) {
  const Quiet quiet;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  // A sanitizer's allocator reports an impossible request as an error of the program; the system's own refuses it.
  Replace system_limit(libc::malloc, [](size_t size) -> void * {
    if (size <= PTRDIFF_MAX) return libc::malloc.real(size);
    errno = ENOMEM;
    return nullptr;
  });
#endif
  for (const int size : {-1, -2, -4096, INT_MIN}) EXPECT_EQ(mu_malloc(size), nullptr) << size;
}

TEST(MuMalloc, ReturnsWhatLibcGivesForZeroBytes) {
  char place[8] = "as was";
  {
    Replace block(libc::malloc, [&](size_t) -> void * { return place; });
    EXPECT_EQ(mu_malloc(0), place);
  }
  EXPECT_STREQ(place, "as was");
  Replace nothing(libc::malloc, [](size_t) -> void * { return nullptr; });
  EXPECT_EQ(mu_malloc(0), nullptr);
}

TEST(MuMalloc, IsNullWhenMemoryRunsOut) {
  const Quiet quiet;
  FailingMalloc no_memory(1, 3);
  EXPECT_EQ(mu_malloc(16), nullptr);
  EXPECT_EQ(no_memory.seen(), 1);
}

TEST(MuFree, GivesTheBlockBack) {
  HeapWatch heap;
  void *first = mu_malloc(16);
  void *second = mu_malloc(32);
  EXPECT_EQ(heap.live(), 2u);
  mu_free(first);
  EXPECT_EQ(heap.live(), 1u);
  mu_free(second);
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(heap.freed(), (std::vector<void *>{first, second}));
}

TEST(MuFree, IgnoresNull) {
  const Quiet quiet;
  mu_free(nullptr);
}
