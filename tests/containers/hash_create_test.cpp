// The hash table's creation and release.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

#include "containers/hash_element.h"
#include "support/heap.h"
#include "support/libc.h"
#include "tarn/containers.h"

using namespace tarn_test;

TEST(HashCreate, MakesAnEmptyTable) {
  // Memory that is not zero by chance.
  const Replace malloc(libc::malloc, [](size_t bytes) {
    void *block = libc::malloc.real(bytes);
    return block == nullptr ? block : memset(block, 0xA5, bytes);
  });
  for (const uint32_t size : {1u, 2u, 7u, 1000u}) {
    SCOPED_TRACE(size);
    const OwnedHash table = table_of(size);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->size, size);
    EXPECT_NE(table->lock, nullptr);
    EXPECT_EQ(table->hash_fn, own_bucket);
    EXPECT_EQ(table->cmp_fn, differs);
    EXPECT_EQ(table->count, 0u);
    for (uint32_t bucket = 0; bucket < size; bucket++) {
      EXPECT_EQ(table->buckets[bucket].first, nullptr);
      EXPECT_EQ(table->buckets[bucket].last, nullptr);
      EXPECT_EQ(table->buckets[bucket].count, 0u);
    }
  }
}

TEST(HashCreate, AsksForOneBlockOf40BytesAnd24ABucketBeforeTheMutex) {
  for (const uint32_t size : {1u, 2u, 7u, 1000u}) {
    SCOPED_TRACE(size);
    std::vector<size_t> sizes;
    const Replace malloc(libc::malloc, [&](size_t bytes) {
      sizes.push_back(bytes);
      return libc::malloc.real(bytes);
    });
    const OwnedHash table = table_of(size);
    ASSERT_EQ(sizes.size(), 2u);
    EXPECT_EQ(sizes[0], 40 + 24 * size);
  }
}

TEST(HashCreate, RefusesNoBucketsAndNullFunctionsWithoutAllocating) {
  const FailingMalloc memory(INT_MAX);  // fails nothing, counts
  EXPECT_EQ(mu_hash_create(0, own_bucket, differs), nullptr);
  EXPECT_EQ(mu_hash_create(4, nullptr, differs), nullptr);
  EXPECT_EQ(mu_hash_create(4, own_bucket, nullptr), nullptr);
  EXPECT_EQ(mu_hash_create(0, nullptr, nullptr), nullptr);
  EXPECT_EQ(memory.seen(), 0);
}

TEST(HashCreate, GivesNullWhenThereIsNoMemoryForTheTable) {
  const HeapWatch heap;
  const FailingMalloc memory(1);
  EXPECT_EQ(mu_hash_create(4, own_bucket, differs), nullptr);
  EXPECT_EQ(memory.seen(), 1);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(HashCreate, FreesTheTableWhenThereIsNoMemoryForTheMutex) {
  const HeapWatch heap;
  const FailingMalloc memory(2);
  EXPECT_EQ(mu_hash_create(4, own_bucket, differs), nullptr);
  EXPECT_EQ(memory.seen(), 2);
  EXPECT_EQ(heap.freed().size(), 1u);
  EXPECT_EQ(heap.live(), 0u);
}

// 89478483 buckets make the largest table whose size fits an int. In 32 bits, 178956969 would make one of 0 bytes, and
// 178956970 one of 24.
TEST(HashCreate, RefusesATableWhoseSizePassesAnInt) {
  const struct {
    uint32_t size;
    bool asks_for_memory;
  } rows[] = {{89478483, true},   {89478484, false},  {0x80000000, false},
              {178956969, false}, {178956970, false}, {UINT32_MAX, false}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.size);
    const FailingMalloc memory(1, INT_MAX - 1);
    EXPECT_EQ(mu_hash_create(row.size, own_bucket, differs), nullptr);
    EXPECT_EQ(memory.seen(), row.asks_for_memory ? 1 : 0);
  }
}

TEST(HashDestroy, ReleasesTheMutexAndTheTable) {
  const HeapWatch heap;
  mu_hash *const table = mu_hash_create(4, own_bucket, differs);
  ASSERT_NE(table, nullptr);
  const std::vector<void *> blocks = {table->lock, table};
  EXPECT_EQ(heap.live(), 2u);
  EXPECT_EQ(mu_hash_destroy(table), 0);
  EXPECT_EQ(heap.freed(), blocks);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(HashDestroy, LeavesTheElementsAlone) {
  Element a{{}, 1, 10};
  Element b{{}, 1, 11};
  mu_hash *const table = mu_hash_create(4, own_bucket, differs);
  mu_hash_add(table, &a.node);
  mu_hash_add(table, &b.node);
  EXPECT_EQ(mu_hash_destroy(table), 0);
  EXPECT_EQ(a.node.prev, nullptr);
  EXPECT_EQ(a.node.next, &b.node);
  EXPECT_EQ(b.node.prev, &a.node);
  EXPECT_EQ(b.node.next, nullptr);
  EXPECT_EQ(a.key, 10);
  EXPECT_EQ(b.bucket, 1u);
}

TEST(HashDestroy, OfNullGivesOne) { EXPECT_EQ(mu_hash_destroy(nullptr), 1); }
