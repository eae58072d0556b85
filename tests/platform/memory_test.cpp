#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "support/libc.h"
#include "tarn/platform.h"

using namespace tarn_test;

TEST(MuMalloc, GivesZeroedMemory) {
  // Memory that was surely written to before.
  Replace dirty(libc::malloc, [](size_t size) {
    void *block = libc::malloc.real(size);
    memset(block, 0xAA, size);
    return block;
  });
  auto *block = static_cast<uint8_t *>(mu_malloc(1000));
  EXPECT_EQ(std::count(block, block + 1000, 0), 1000);
  mu_free(block);
}

TEST(MuMalloc, AsksForTheSizeWidenedWithItsSign) {
  size_t asked = 0;
  Replace malloc(libc::malloc, [&](size_t size) -> void * {
    asked = size;
    return nullptr;
  });
  EXPECT_EQ(mu_malloc(16), nullptr);
  EXPECT_EQ(asked, 16u);
  EXPECT_EQ(mu_malloc(-1), nullptr);
  EXPECT_EQ(asked, SIZE_MAX);
  EXPECT_EQ(mu_malloc(INT32_MIN), nullptr);
  EXPECT_EQ(asked, SIZE_MAX - INT32_MAX);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they end the process at such a request
TEST(MuMalloc, IsNullForANegativeSize) {
  EXPECT_EQ(mu_malloc(-1), nullptr);
  EXPECT_EQ(mu_malloc(INT32_MIN), nullptr);
}
#endif

TEST(MuMalloc, IsNullWhenMemoryRunsOut) {
  FailingMalloc no_memory(1);
  EXPECT_EQ(mu_malloc(1), nullptr);
}

TEST(MuFree, IgnoresNull) { mu_free(nullptr); }
