// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The hash table: its single block, adding and removing elements.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "containers/fixture.h"
#include "support/console.h"
#include "support/heap.h"

using namespace tarn_test;

namespace {

using HashCreate = HashTest;
using HashDestroy = HashTest;
using HashAdd = HashTest;
using HashDel = HashTest;
using HashQuiet = HashTest;

}  // namespace

// ---- Creation -------------------------------------------------------------------------------------------------------

TEST_F(HashCreate, MakesAnEmptyTable) {
  const MarkedMemory marked;
  for (const uint32_t size : {1u, 2u, 5u, 7u, 1000u}) {
    SCOPED_TRACE(size);
    mu_hash *const table = mu_hash_create(size, bucket_of, compare);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->size, size);
    EXPECT_NE(table->lock, nullptr);
    EXPECT_EQ(table->hash_fn, bucket_of);
    EXPECT_EQ(table->cmp_fn, compare);
    EXPECT_EQ(table->count, 0u);
    for (uint32_t bucket = 0; bucket < size; bucket++) EXPECT_EQ(numbers_of(table->buckets[bucket]), Numbers{});
    EXPECT_EQ(mu_hash_destroy(table), 0);
  }
}

TEST_F(HashCreate, HasItsFieldsAtTheirPlaces) {
  fill({2});
  const auto *const bytes = reinterpret_cast<const char *>(table_);
  const auto at = [bytes](size_t place, auto value) {
    memcpy(&value, bytes + place, sizeof value);  // NOLINT(bugprone-sizeof-expression): a pointer
    return value;
  };
  EXPECT_EQ(at(0, uint32_t{}), kSize);
  EXPECT_EQ(at(8, mu_mutex_t{}), table_->lock);
  EXPECT_EQ(at(16, mu_hash_fn_t{}), noted_bucket);
  EXPECT_EQ(at(24, mu_hash_cmp_fn_t{}), noted_compare);
  EXPECT_EQ(at(32, uint32_t{}), 1u);
  EXPECT_EQ(at(40 + 2 * 24, static_cast<void *>(nullptr)), node(0)) << "the tail of bucket 2";
  EXPECT_EQ(at(40 + 2 * 24 + 8, static_cast<void *>(nullptr)), node(0)) << "its head";
  EXPECT_EQ(at(40 + 2 * 24 + 16, uint32_t{}), 1u) << "its count";
}

TEST_F(HashCreate, AsksForOneBlockOf40BytesAnd24ABucketBeforeTheMutex) {
  for (const uint32_t size : {1u, 2u, 7u, 1000u}) {
    SCOPED_TRACE(size);
    const HeapWatch heap;
    const NotedSizes noted;
    mu_hash *const table = mu_hash_create(size, bucket_of, compare);
    ASSERT_EQ(noted.sizes.size(), 2u);
    EXPECT_EQ(noted.sizes[0], 40 + 24 * size);
    const std::vector<void *> blocks{table->lock, table};
    EXPECT_EQ(heap.live(), 2u);
    EXPECT_EQ(mu_hash_destroy(table), 0);
    EXPECT_EQ(heap.freed(), blocks) << "the mutex and then the table";
    EXPECT_EQ(heap.live(), 0u);
  }
}

TEST_F(HashCreate, RefusesNoBucketsAndNullFunctionsWithoutAllocating) {
  const FailingMalloc watched(INT_MAX);  // only counts, nothing fails
  EXPECT_EQ(mu_hash_create(0, bucket_of, compare), nullptr);
  EXPECT_EQ(mu_hash_create(4, nullptr, compare), nullptr);
  EXPECT_EQ(mu_hash_create(4, bucket_of, nullptr), nullptr);
  EXPECT_EQ(mu_hash_create(0, nullptr, nullptr), nullptr);
  EXPECT_EQ(watched.seen(), 0);
}

TEST_F(HashCreate, FreesWhatItHasWhenMemoryRunsOut) {
  for (const int nth : {1, 2}) {  // the table; the mutex
    SCOPED_TRACE(nth);
    const HeapWatch heap;
    const FailingMalloc no_memory(nth, 1000);
    EXPECT_EQ(mu_hash_create(4, bucket_of, compare), nullptr);
    EXPECT_EQ(no_memory.seen(), nth);
    EXPECT_EQ(heap.freed().size(), static_cast<size_t>(nth) - 1);
    EXPECT_EQ(heap.live(), 0u);
  }
}

// 89478483 buckets make the largest table whose size fits an int. In 32 bits, 178956969 would make one of 0 bytes, and
// 178956970 one of 24.
TEST_F(HashCreate, RefusesATableWhoseSizePassesAnInt) {
  constexpr uint32_t kLargest = 89478483;
  const NotedSizes noted;
  for (const uint32_t size :
       {kLargest + 1, 178956969u, 178956970u, 178956971u, uint32_t{INT_MAX}, 0x80000000u, UINT32_MAX}) {
    EXPECT_EQ(mu_hash_create(size, bucket_of, compare), nullptr) << size;
    EXPECT_TRUE(noted.sizes.empty());
  }
  EXPECT_EQ(mu_hash_create(kLargest, bucket_of, compare), nullptr) << "only because there is no memory";
  EXPECT_EQ(noted.sizes, std::vector<size_t>{2147483632});
}

// ---- Release --------------------------------------------------------------------------------------------------------

TEST_F(HashDestroy, OfNullGivesOne) { EXPECT_EQ(mu_hash_destroy(nullptr), 1); }

TEST_F(HashDestroy, DoesNotTouchTheElements) {
  const Guarded memory(2 * sizeof(Element));
  auto *const elements = reinterpret_cast<Element *>(memory.bytes());
  mu_hash *const table = mu_hash_create(3, bucket_of, compare);
  for (int i = 0; i < 2; i++) EXPECT_EQ(mu_hash_add(table, &elements[i].links), 0);
  memory.protect(PROT_NONE);
  EXPECT_EQ(mu_hash_destroy(table), 0);
  memory.protect(PROT_READ);
  EXPECT_EQ(elements[0].links.next, &elements[1].links);
  EXPECT_EQ(elements[1].links.prev, &elements[0].links);
}

// ---- Add ------------------------------------------------------------------------------------------------------------

TEST_F(HashAdd, AppendsToTheBucketThatTheFunctionGives) {
  const uint32_t buckets[] = {3, 0, 3, 1, 3, 0};  // the first one and the last one too
  for (int i = 0; i < 6; i++) {
    EXPECT_EQ(add(i, buckets[i]), 0);
    EXPECT_EQ(table_->count, static_cast<uint32_t>(i) + 1);
  }
  EXPECT_EQ(in_bucket(0), (Numbers{1, 5}));
  EXPECT_EQ(in_bucket(1), (Numbers{3}));
  EXPECT_EQ(in_bucket(2), (Numbers{}));
  EXPECT_EQ(in_bucket(3), (Numbers{0, 2, 4}));
}

TEST_F(HashAdd, AsksForTheBucketOnceAndComparesNothing) {
  fill({1, 1});
  EXPECT_EQ(hashed_, (Numbers{0, 1}));
  EXPECT_TRUE(compared_.empty());
}

TEST_F(HashAdd, TakesTwoElementsOfOneKey) {
  elements_[1].number = elements_[0].number;
  fill({2, 2});
  EXPECT_EQ(in_bucket(2), (Numbers{0, 0}));
  EXPECT_EQ(table_->count, 2u);
}

TEST_F(HashAdd, RefusesANullTableOrNodeWithoutAskingForABucket) {
  fill({0});
  hashed_.clear();
  const std::string before = image();
  EXPECT_EQ(mu_hash_add(nullptr, node(1)), -1);
  EXPECT_EQ(mu_hash_add(table_, nullptr), -1);
  EXPECT_EQ(mu_hash_add(nullptr, nullptr), -1);
  EXPECT_EQ(image(), before);
  EXPECT_TRUE(hashed_.empty());
}

TEST_F(HashAdd, RefusesABucketFromSizeOnAndChangesNothing) {
  fill({0});
  for (const uint32_t bucket : {kSize, kSize + 1, 0x7fffffffu, 0x80000000u, UINT32_MAX}) {
    elements_[1].bucket = bucket;
    const std::string before = image();
    EXPECT_EQ(mu_hash_add(table_, node(1)), -1) << bucket;
    EXPECT_EQ(image(), before);
  }
}

// On these processors the upper half of a 32-bit result in a register is undefined: a function may fill it.
TEST_F(HashAdd, UsesTheLow32BitsOfTheFunctionsResultAsDelDoes) {
#if defined(__x86_64__) || defined(__aarch64__)
  using Wide = uint64_t (*)(const mu_lst_node *);
  const Wide wide = [](const mu_lst_node *) -> uint64_t { return 0xffffffff00000002; };
  table_->hash_fn = reinterpret_cast<mu_hash_fn_t>(reinterpret_cast<void (*)()>(wide));
  EXPECT_EQ(mu_hash_add(table_, node(0)), 0);
  EXPECT_EQ(table_->buckets[2].first, node(0));
  EXPECT_EQ(mu_hash_del(table_, node(0)), 0);
#else
  GTEST_SKIP() << "a 32-bit result fills the register here";
#endif
}

// ---- Del ------------------------------------------------------------------------------------------------------------

TEST_F(HashDel, UnlinksFromEachPlaceInABucketAndLeavesTheLinksOfTheNode) {
  for (int gone = 0; gone < 3; gone++) {
    SCOPED_TRACE(gone);
    fill({1, 1, 1, 3});
    const mu_lst_node links = *node(gone);
    hashed_.clear();
    EXPECT_EQ(mu_hash_del(table_, node(gone)), 0);
    EXPECT_EQ(hashed_, Numbers{gone}) << "asked once";
    EXPECT_TRUE(compared_.empty());
    Numbers expected{0, 1, 2};
    expected.erase(expected.begin() + gone);
    EXPECT_EQ(in_bucket(1), expected);
    EXPECT_EQ(in_bucket(3), Numbers{3}) << "the others stay";
    EXPECT_EQ(table_->count, 3u);
    EXPECT_EQ(node(gone)->prev, links.prev);
    EXPECT_EQ(node(gone)->next, links.next);
    while (mu_hash_get(table_) != nullptr) {
    }
  }
}

TEST_F(HashDel, OfTheOnlyNodeLeavesTheBucketWithoutEnds) {
  fill({0, 3});
  EXPECT_EQ(mu_hash_del(table_, node(1)), 0);
  EXPECT_EQ(table_->buckets[3].first, nullptr);
  EXPECT_EQ(table_->buckets[3].last, nullptr);
  EXPECT_EQ(table_->buckets[3].count, 0u);
  EXPECT_EQ(in_bucket(0), Numbers{0});
  EXPECT_EQ(table_->count, 1u);
}

TEST_F(HashDel, RefusesANullTableOrNodeWithoutAskingForABucket) {
  fill({0});
  hashed_.clear();
  const std::string before = image();
  EXPECT_EQ(mu_hash_del(nullptr, node(0)), -1);
  EXPECT_EQ(mu_hash_del(table_, nullptr), -1);
  EXPECT_EQ(mu_hash_del(nullptr, nullptr), -1);
  EXPECT_EQ(image(), before);
  EXPECT_TRUE(hashed_.empty());
}

TEST_F(HashDel, RefusesABucketFromSizeOnAndChangesNothing) {
  fill({0, 0});
  for (const uint32_t bucket : {kSize, kSize + 1, 0x7fffffffu, 0x80000000u, UINT32_MAX}) {
    elements_[0].bucket = bucket;
    const std::string before = image();
    EXPECT_EQ(mu_hash_del(table_, node(0)), -1) << bucket;
    EXPECT_EQ(image(), before);
  }
}

TEST_F(HashDel, LetsTheNodeBeAddedAgainToThatBucketOrAnother) {
  fill({1, 1, 1});
  for (const uint32_t bucket : {1u, 3u}) {
    EXPECT_EQ(mu_hash_del(table_, node(0)), 0);
    EXPECT_EQ(add(0, bucket), 0);
    EXPECT_EQ(walk(table_), (Numbers{1, 2, 0}));
    EXPECT_EQ(table_->buckets[bucket].last, node(0));
  }
}

// ---- Quiet ----------------------------------------------------------------------------------------------------------

TEST_F(HashQuiet, PrintsNothingAndAllocatesNothingAfterCreation) {
  Console console;
  {
    const FailingMalloc no_memory(1, 1000);
    fill({0});
    EXPECT_EQ(add(1, kSize), -1);
    EXPECT_EQ(mu_hash_add(nullptr, nullptr), -1);
    EXPECT_EQ(walk(table_), Numbers{0});
    const int key = 0;
    EXPECT_EQ(mu_hash_find(table_, &key), node(0));
    EXPECT_EQ(mu_hash_del(table_, node(0)), 0);
    EXPECT_EQ(mu_hash_get(table_), nullptr);
    EXPECT_EQ(mu_hash_first(nullptr, &out_, &bucket_), -1);
    EXPECT_EQ(mu_hash_destroy(nullptr), 1);
    EXPECT_EQ(no_memory.seen(), 0);
  }
  for (const int nth : {1, 2}) {
    const FailingMalloc no_memory(nth);
    EXPECT_EQ(mu_hash_create(1, bucket_of, compare), nullptr);
  }
  EXPECT_EQ(mu_hash_create(0, bucket_of, compare), nullptr);
  EXPECT_EQ(console.take(), "");
}
