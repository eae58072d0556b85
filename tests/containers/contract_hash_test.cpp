// The hash table: its one block, and what puts elements in and takes them out.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "containers/contract_hash.h"
#include "containers/fenced.h"
#include "support/heap.h"
#include "support/libc.h"
#include "tarn/containers.h"

using namespace tarn_test;
using namespace tarn_test::hash_contract;

namespace {

using HashCreateContract = HashContract;
using HashDestroyContract = HashContract;
using HashAddContract = HashContract;
using HashDelContract = HashContract;

}  // namespace

// ---- Creation -------------------------------------------------------------------------------------------------------

TEST_F(HashCreateContract, RefusesNoBucketsAndNullFunctionsWithoutAsking) {
  const FailingMalloc watched(1000);
  EXPECT_EQ(mu_hash_create(0, bucket_of, compare), nullptr);
  EXPECT_EQ(mu_hash_create(4, nullptr, compare), nullptr);
  EXPECT_EQ(mu_hash_create(4, bucket_of, nullptr), nullptr);
  EXPECT_EQ(mu_hash_create(0, nullptr, nullptr), nullptr);
  EXPECT_EQ(watched.seen(), 0);
}

TEST_F(HashCreateContract, StoresWhatItIsGivenAndIsEmpty) {
  EXPECT_EQ(table_->size, kSize);
  EXPECT_EQ(table_->hash_fn, &bucket_of);
  EXPECT_EQ(table_->cmp_fn, &compare);
  EXPECT_EQ(table_->count, 0u);
  EXPECT_NE(table_->lock, nullptr);
  for (uint32_t i = 0; i < kSize; i++) EXPECT_TRUE(in_bucket(i).empty());
}

TEST_F(HashCreateContract, HasItsFieldsAtTheirPlaces) {
  ASSERT_EQ(add(0, 2), 0);
  const auto *const bytes = reinterpret_cast<const char *>(table_);
  const auto at = [bytes](size_t place, auto value) {
    memcpy(&value, bytes + place, sizeof value);  // NOLINT(bugprone-sizeof-expression): a pointer
    return value;
  };
  EXPECT_EQ(at(0, uint32_t{}), kSize);
  EXPECT_EQ(at(8, mu_mutex_t{}), table_->lock);
  EXPECT_EQ(at(16, mu_hash_fn_t{}), &bucket_of);
  EXPECT_EQ(at(24, mu_hash_cmp_fn_t{}), &compare);
  EXPECT_EQ(at(32, uint32_t{}), 1u);
  EXPECT_EQ(at(40 + 2 * 24, static_cast<void *>(nullptr)), node(0)) << "the tail of bucket 2";
  EXPECT_EQ(at(40 + 2 * 24 + 8, static_cast<void *>(nullptr)), node(0)) << "its head";
  EXPECT_EQ(at(40 + 2 * 24 + 16, uint32_t{}), 1u) << "its count";
}

TEST_F(HashCreateContract, InitialisesMarkedMemory) {
  const Replace marked(libc::malloc, [](size_t size) {
    void *const block = libc::malloc.real(size);
    memset(block, 0xa5, size);
    return block;
  });
  mu_hash *const table = mu_hash_create(5, bucket_of, compare);
  EXPECT_EQ(table->count, 0u);
  for (int i = 0; i < 5; i++) {
    EXPECT_EQ(table->buckets[i].first, nullptr);
    EXPECT_EQ(table->buckets[i].last, nullptr);
    EXPECT_EQ(table->buckets[i].count, 0u);
  }
  mu_hash_destroy(table);
}

TEST_F(HashCreateContract, TakesOneBlockOf40BytesAnd24ForEachBucketAndThenTheMutex) {
  for (const uint32_t size : {1u, 2u, 7u, 1000u}) {
    SCOPED_TRACE(size);
    std::vector<size_t> sizes;
    std::vector<void *> blocks;
    const Replace seen(libc::malloc, [&sizes, &blocks](size_t bytes) {
      sizes.push_back(bytes);
      blocks.push_back(libc::malloc.real(bytes));
      return blocks.back();
    });
    mu_hash *const table = mu_hash_create(size, bucket_of, compare);
    ASSERT_EQ(sizes.size(), 2u);
    EXPECT_EQ(sizes[0], 40 + 24 * size);
    EXPECT_EQ(blocks, (std::vector<void *>{table, table->lock}));
    mu_hash_destroy(table);
  }
}

TEST_F(HashCreateContract, GivesNothingBackWithoutMemoryForTheTable) {
  const HeapWatch heap;
  const FailingMalloc no_memory(1, 1000);
  EXPECT_EQ(mu_hash_create(4, bucket_of, compare), nullptr);
  EXPECT_EQ(no_memory.seen(), 1) << "the mutex is not asked for";
  EXPECT_EQ(heap.live(), 0u);
}

TEST_F(HashCreateContract, FreesTheTableWithoutMemoryForTheMutex) {
  const HeapWatch heap;
  const FailingMalloc no_memory(2);
  EXPECT_EQ(mu_hash_create(4, bucket_of, compare), nullptr);
  EXPECT_EQ(no_memory.seen(), 2);
  EXPECT_EQ(heap.freed().size(), 1u);
  EXPECT_EQ(heap.live(), 0u);
}

// 89478484 buckets pass an int; 178956970 pass 2^32 by 24 bytes, and would be given 24 of them.
TEST_F(HashCreateContract, RefusesASizeThatPassesAnInt) {
  const HeapWatch heap;
  int asked = 0;
  const Replace seen(libc::malloc, [&asked](size_t size) -> void * {
    asked++;
    return size <= 4096 ? libc::malloc.real(size) : nullptr;
  });
  for (const uint32_t size : {89478484u, 178956969u, 178956970u, 178956971u, 0x80000000u, 0xffffffffu}) {
    EXPECT_EQ(mu_hash_create(size, bucket_of, compare), nullptr) << size;
  }
  EXPECT_EQ(asked, 0);
  EXPECT_EQ(heap.live(), 0u);
}

TEST_F(HashCreateContract, AsksForTheBlockOfTheGreatestSize) {
  std::vector<size_t> sizes;
  const Replace seen(libc::malloc, [&sizes](size_t size) -> void * {
    sizes.push_back(size);
    return nullptr;
  });
  EXPECT_EQ(mu_hash_create(89478483, bucket_of, compare), nullptr) << "only because there is no memory";
  EXPECT_EQ(sizes, std::vector<size_t>{2147483632});
}

// ---- Release --------------------------------------------------------------------------------------------------------

TEST_F(HashDestroyContract, RefusesNull) { EXPECT_EQ(mu_hash_destroy(nullptr), 1); }

TEST_F(HashDestroyContract, FreesTheMutexAndThenTheTable) {
  const HeapWatch heap;
  mu_hash *const table = mu_hash_create(3, bucket_of, compare);
  mu_mutex_t const lock = table->lock;
  EXPECT_EQ(heap.live(), 2u);
  EXPECT_EQ(mu_hash_destroy(table), 0);
  EXPECT_EQ(heap.freed(), (std::vector<void *>{lock, table}));
  EXPECT_EQ(heap.live(), 0u);
}

TEST_F(HashDestroyContract, DoesNotTouchTheElements) {
  const Fenced memory(2 * sizeof(Element), Fenced::kBack);
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

TEST_F(HashAddContract, AppendsToTheBucketThatTheFunctionTells) {
  const uint32_t buckets[] = {3, 0, 3, 1, 3, 0};
  for (int i = 0; i < 6; i++) {
    EXPECT_EQ(add(i, buckets[i]), 0);
    EXPECT_EQ(table_->count, static_cast<uint32_t>(i) + 1);
  }
  EXPECT_EQ(in_bucket(0), (Numbers{1, 5}));
  EXPECT_EQ(in_bucket(1), (Numbers{3}));
  EXPECT_EQ(in_bucket(2), (Numbers{}));
  EXPECT_EQ(in_bucket(3), (Numbers{0, 2, 4}));
}

TEST_F(HashAddContract, RefusesNullPointers) {
  ASSERT_EQ(add(0, 0), 0);
  const std::string before = image();
  EXPECT_EQ(mu_hash_add(nullptr, node(1)), -1);
  EXPECT_EQ(mu_hash_add(table_, nullptr), -1);
  EXPECT_EQ(mu_hash_add(nullptr, nullptr), -1);
  EXPECT_EQ(image(), before);
}

TEST_F(HashAddContract, RefusesABucketFromSizeOnAndChangesNothing) {
  ASSERT_EQ(add(0, 0), 0);
  for (const uint32_t bucket : {kSize, kSize + 1, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
    elements_[1].bucket = bucket;
    const std::string before = image();
    EXPECT_EQ(mu_hash_add(table_, node(1)), -1) << bucket;
    EXPECT_EQ(image(), before);
  }
  EXPECT_EQ(add(1, kSize - 1), 0);
}

TEST_F(HashAddContract, DoesNotLookForDuplicates) {
  elements_[1].number = elements_[0].number;
  EXPECT_EQ(add(0, 2), 0);
  EXPECT_EQ(add(1, 2), 0);
  EXPECT_EQ(table_->count, 2u);
}

// The registers of these processors leave the upper half of a 32-bit result open: a function may fill it.
TEST_F(HashAddContract, UsesTheLow32BitsOfTheBucket) {
#if defined(__x86_64__) || defined(__aarch64__)
  using Wide = uint64_t (*)(const mu_lst_node *);
  const Wide wide = [](const mu_lst_node *) -> uint64_t { return 0xffffffff00000002; };
  const auto narrow = reinterpret_cast<mu_hash_fn_t>(reinterpret_cast<void (*)()>(wide));
  mu_hash *const table = mu_hash_create(3, narrow, compare);
  EXPECT_EQ(mu_hash_add(table, node(0)), 0);
  EXPECT_EQ(table->buckets[2].first, node(0));
  EXPECT_EQ(mu_hash_del(table, node(0)), 0);
  mu_hash_destroy(table);
#else
  GTEST_SKIP() << "a 32-bit result fills the register here";
#endif
}

// ---- Delete ---------------------------------------------------------------------------------------------------------

TEST_F(HashDelContract, TakesEachOfABucketsNodes) {
  for (int gone = 0; gone < 3; gone++) {
    SCOPED_TRACE(gone);
    for (int i = 0; i < 3; i++) ASSERT_EQ(add(i, 1), 0);
    const mu_lst_node links = *node(gone);
    EXPECT_EQ(mu_hash_del(table_, node(gone)), 0);
    Numbers expected{0, 1, 2};
    expected.erase(expected.begin() + gone);
    EXPECT_EQ(in_bucket(1), expected);
    EXPECT_EQ(table_->count, 2u);
    EXPECT_EQ(node(gone)->prev, links.prev) << "the links stay";
    EXPECT_EQ(node(gone)->next, links.next);
    while (mu_hash_get(table_) != nullptr) {
    }
  }
}

TEST_F(HashDelContract, OfTheOnlyNodeLeavesTheBucketWithoutEnds) {
  ASSERT_EQ(add(0, 0), 0);
  ASSERT_EQ(add(1, 3), 0);
  EXPECT_EQ(mu_hash_del(table_, node(1)), 0);
  EXPECT_EQ(table_->buckets[3].first, nullptr);
  EXPECT_EQ(table_->buckets[3].last, nullptr);
  EXPECT_EQ(table_->buckets[3].count, 0u);
  EXPECT_EQ(in_bucket(0), (Numbers{0})) << "the others stay";
  EXPECT_EQ(table_->count, 1u);
}

TEST_F(HashDelContract, RefusesNullPointers) {
  ASSERT_EQ(add(0, 0), 0);
  const std::string before = image();
  EXPECT_EQ(mu_hash_del(nullptr, node(0)), -1);
  EXPECT_EQ(mu_hash_del(table_, nullptr), -1);
  EXPECT_EQ(mu_hash_del(nullptr, nullptr), -1);
  EXPECT_EQ(image(), before);
}

TEST_F(HashDelContract, RefusesABucketFromSizeOnAndChangesNothing) {
  ASSERT_EQ(add(0, 0), 0);
  for (const uint32_t bucket : {kSize, kSize + 1, 0x80000000u, 0xffffffffu}) {
    elements_[0].bucket = bucket;
    const std::string before = image();
    EXPECT_EQ(mu_hash_del(table_, node(0)), -1) << bucket;
    EXPECT_EQ(image(), before);
  }
}

TEST_F(HashDelContract, LetsTheNodeBeAddedAgain) {
  for (int i = 0; i < 3; i++) ASSERT_EQ(add(i, 1), 0);
  EXPECT_EQ(mu_hash_del(table_, node(0)), 0);
  EXPECT_EQ(add(0, 1), 0);
  EXPECT_EQ(in_bucket(1), (Numbers{1, 2, 0}));
}
