// The hash table in its order: walks, the search, the removal of the first element, and the count.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "containers/contract_hash.h"
#include "tarn/containers.h"

using namespace tarn_test;
using namespace tarn_test::hash_contract;

namespace {

using HashFirstContract = HashContract;
using HashNextContract = HashContract;
using HashWalkContract = HashContract;
using HashFindContract = HashContract;
using HashGetContract = HashContract;
using HashCountContract = HashContract;

}  // namespace

// ---- First ----------------------------------------------------------------------------------------------------------

TEST_F(HashFirstContract, LeavesTheOutputsOfAnEmptyTable) {
  out_ = node(7);
  EXPECT_EQ(mu_hash_first(table_, &out_, &bucket_), -1);
  EXPECT_EQ(out_, node(7));
  EXPECT_EQ(bucket_, kUntouched);
}

TEST_F(HashFirstContract, LeavesTheOutputsWithoutATable) {
  out_ = node(7);
  EXPECT_EQ(mu_hash_first(nullptr, &out_, &bucket_), -1);
  EXPECT_EQ(out_, node(7));
  EXPECT_EQ(bucket_, kUntouched);
}

TEST_F(HashFirstContract, GivesTheFirstNodeOfTheLowestBucketInUse) {
  int number = 0;
  for (uint32_t bucket = kSize; bucket-- > 0;) {
    const int first = number;
    ASSERT_EQ(add(number++, bucket), 0);
    ASSERT_EQ(add(number++, bucket), 0);
    EXPECT_EQ(mu_hash_first(table_, &out_, &bucket_), 0);
    EXPECT_EQ(out_, node(first));
    EXPECT_EQ(bucket_, bucket);
  }
}

// ---- Next -----------------------------------------------------------------------------------------------------------

TEST_F(HashNextContract, StaysInTheBucketWhileItHasMore) {
  ASSERT_EQ(add(0, 2), 0);
  ASSERT_EQ(add(1, 2), 0);
  ASSERT_EQ(add(2, 3), 0);
  EXPECT_EQ(mu_hash_next(table_, node(0), 2, &out_, &bucket_), 0);
  EXPECT_EQ(out_, node(1));
  EXPECT_EQ(bucket_, 2u);
}

TEST_F(HashNextContract, TellsTheBucketThatItWasGivenForTheNextOfABucket) {
  ASSERT_EQ(add(0, 2), 0);
  ASSERT_EQ(add(1, 2), 0);
  for (const uint32_t bucket : {0u, 3u, kSize, 77u, 0xffffffffu}) {
    EXPECT_EQ(mu_hash_next(table_, node(0), bucket, &out_, &bucket_), 0);
    EXPECT_EQ(out_, node(1));
    EXPECT_EQ(bucket_, bucket);
  }
}

TEST_F(HashNextContract, SkipsEmptyBuckets) {
  ASSERT_EQ(add(0, 0), 0);
  ASSERT_EQ(add(1, 3), 0);
  ASSERT_EQ(add(2, 3), 0);
  EXPECT_EQ(mu_hash_next(table_, node(0), 0, &out_, &bucket_), 0);
  EXPECT_EQ(out_, node(1));
  EXPECT_EQ(bucket_, 3u);
}

TEST_F(HashNextContract, GoesOnBehindTheBucketThatItWasGiven) {
  ASSERT_EQ(add(0, 0), 0);
  ASSERT_EQ(add(1, 1), 0);
  ASSERT_EQ(add(2, 2), 0);
  EXPECT_EQ(mu_hash_next(table_, node(0), 1, &out_, &bucket_), 0);
  EXPECT_EQ(out_, node(2));
  EXPECT_EQ(bucket_, 2u);
}

TEST_F(HashNextContract, StoresNullBehindTheLastNodeAndLeavesTheBucket) {
  for (uint32_t bucket = 0; bucket < kSize; bucket++) {
    SCOPED_TRACE(bucket);
    ASSERT_EQ(add(0, bucket), 0);
    out_ = node(7);
    EXPECT_EQ(mu_hash_next(table_, node(0), bucket, &out_, &bucket_), -1);
    EXPECT_EQ(out_, nullptr);
    EXPECT_EQ(bucket_, kUntouched);
    ASSERT_EQ(mu_hash_del(table_, node(0)), 0);
  }
}

// From `size` on there is nothing behind; the greatest number must not wrap to bucket 0.
TEST_F(HashNextContract, FindsNothingBehindABucketBeyondTheTable) {
  ASSERT_EQ(add(0, 0), 0);
  ASSERT_EQ(add(1, 3), 0);
  for (const uint32_t bucket : {kSize - 1, kSize, kSize + 1, 0x80000000u, 0xfffffffeu, 0xffffffffu}) {
    SCOPED_TRACE(bucket);
    out_ = node(7);
    EXPECT_EQ(mu_hash_next(table_, node(1), bucket, &out_, &bucket_), -1);
    EXPECT_EQ(out_, nullptr);
    EXPECT_EQ(bucket_, kUntouched);
  }
}

TEST_F(HashNextContract, LeavesTheOutputsWithoutATable) {
  out_ = node(7);
  EXPECT_EQ(mu_hash_next(nullptr, node(0), 0, &out_, &bucket_), -1);
  EXPECT_EQ(out_, node(7));
  EXPECT_EQ(bucket_, kUntouched);
}

// ---- Walk -----------------------------------------------------------------------------------------------------------

TEST_F(HashWalkContract, GoesByBucketAndThenByTheOrderOfTheAdds) {
  const uint32_t buckets[] = {3, 1, 3, 0, 1, 3, 0, 1};
  for (int i = 0; i < 8; i++) ASSERT_EQ(add(i, buckets[i]), 0);
  std::vector<uint32_t> met;
  EXPECT_EQ(walk(table_, &met), (Numbers{3, 6, 1, 4, 7, 0, 2, 5}));
  EXPECT_EQ(met, (std::vector<uint32_t>{0, 0, 1, 1, 1, 3, 3, 3}));
}

TEST_F(HashWalkContract, MeetsWhatIsAddedBehindItsPlaceAndNotWhatIsAddedBefore) {
  ASSERT_EQ(add(0, 1), 0);
  ASSERT_EQ(mu_hash_first(table_, &out_, &bucket_), 0);
  ASSERT_EQ(add(1, 0), 0);  // before
  ASSERT_EQ(add(2, 1), 0);  // behind, in the same bucket
  ASSERT_EQ(add(3, 2), 0);  // behind, in a later one
  ASSERT_EQ(mu_hash_next(table_, out_, bucket_, &out_, &bucket_), 0);
  EXPECT_EQ(out_, node(2));
  ASSERT_EQ(mu_hash_next(table_, out_, bucket_, &out_, &bucket_), 0);
  EXPECT_EQ(out_, node(3));
  EXPECT_EQ(mu_hash_next(table_, out_, bucket_, &out_, &bucket_), -1);
}

// The node's own links stay as they were when it goes.
TEST_F(HashWalkContract, GoesOnFromANodeThatItsOwnThreadDeleted) {
  for (int i = 0; i < 6; i++) ASSERT_EQ(add(i, static_cast<uint32_t>(i) / 2), 0);
  Numbers met;
  for (int r = mu_hash_first(table_, &out_, &bucket_); r == 0;
       r = mu_hash_next(table_, out_, bucket_, &out_, &bucket_)) {
    met.push_back(number_of(out_));
    EXPECT_EQ(mu_hash_del(table_, out_), 0);
  }
  EXPECT_EQ(met, (Numbers{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(mu_hash_count(table_), 0u);
}

// ---- Find -----------------------------------------------------------------------------------------------------------

namespace {

Numbers g_compared;
const void *g_key;
int g_result;  // for all but the element 5

}  // namespace

TEST_F(HashFindContract, GivesNullWithoutATable) {
  const int key = 0;
  EXPECT_EQ(mu_hash_find(nullptr, &key), nullptr);
}

TEST_F(HashFindContract, GivesNullWhenNothingMatches) {
  const int key = 6;
  EXPECT_EQ(mu_hash_find(table_, &key), nullptr) << "empty";
  for (int i = 0; i < 6; i++) ASSERT_EQ(add(i, static_cast<uint32_t>(i) % kSize), 0);
  EXPECT_EQ(mu_hash_find(table_, &key), nullptr);
}

TEST_F(HashFindContract, FindsEachNode) {
  for (int i = 0; i < 8; i++) ASSERT_EQ(add(i, static_cast<uint32_t>(i) % kSize), 0);
  for (int key = 0; key < 8; key++) EXPECT_EQ(mu_hash_find(table_, &key), node(key));
}

TEST_F(HashFindContract, GivesTheFirstOfEqualsByBucketAndThenByAdd) {
  for (Element &element : elements_) element.number = 42;
  const int key = 42;
  ASSERT_EQ(add(0, 3), 0);
  EXPECT_EQ(mu_hash_find(table_, &key), node(0));
  ASSERT_EQ(add(1, 1), 0);
  EXPECT_EQ(mu_hash_find(table_, &key), node(1));
  ASSERT_EQ(add(2, 1), 0);
  EXPECT_EQ(mu_hash_find(table_, &key), node(1));
  ASSERT_EQ(add(3, 0), 0);
  EXPECT_EQ(mu_hash_find(table_, &key), node(3));
}

// Deliberate: a full scan in bucket order, until the first 0; whatever else the compare function gives is no match.
TEST_F(HashFindContract, ComparesEveryNodeInOrderUntilTheFirstZero) {
  mu_hash *const table = mu_hash_create(kSize, bucket_of, [](const mu_lst_node *node, const void *key) {
    g_compared.push_back(number_of(node));
    EXPECT_EQ(key, g_key);
    return number_of(node) == 5 ? 0 : g_result;
  });
  const uint32_t buckets[] = {3, 1, 3, 0, 1, 3, 0, 1};
  for (int i = 0; i < 8; i++) {
    elements_[i].bucket = buckets[i];
    ASSERT_EQ(mu_hash_add(table, node(i)), 0);
  }
  const int unused = 0;
  for (const void *key : {static_cast<const void *>(&unused), static_cast<const void *>(nullptr)}) {
    for (const int result : {1, -1, INT_MIN, INT_MAX, 256, 0x10000}) {
      g_compared.clear();
      g_key = key;  // null too
      g_result = result;
      EXPECT_EQ(mu_hash_find(table, key), node(5));
      EXPECT_EQ(g_compared, (Numbers{3, 6, 1, 4, 7, 0, 2, 5}));
    }
    g_result = 0;
    g_compared.clear();
    EXPECT_EQ(mu_hash_find(table, key), node(3));
    EXPECT_EQ(g_compared, Numbers{3}) << "no further than the match";
  }
  mu_hash_destroy(table);
}

// Deliberate: the bucket function is not asked, so a node is found wherever it is.
TEST_F(HashFindContract, FindsANodeOutsideTheBucketThatIsToldNow) {
  ASSERT_EQ(add(0, 3), 0);
  elements_[0].bucket = 0;
  const int key = 0;
  EXPECT_EQ(mu_hash_find(table_, &key), node(0));
  elements_[0].bucket = kSize + 5;
  EXPECT_EQ(mu_hash_find(table_, &key), node(0));
}

TEST_F(HashFindContract, DoesNotCallTheBucketFunction) {
  static int calls;
  calls = 0;
  mu_hash *const table = mu_hash_create(
      2,
      [](const mu_lst_node *) -> uint32_t {
        calls++;
        return 1;
      },
      compare);
  ASSERT_EQ(mu_hash_add(table, node(0)), 0);
  EXPECT_EQ(calls, 1) << "the add";
  for (const int key : {0, 1}) mu_hash_find(table, &key);
  walk(table);
  mu_hash_get(table);
  EXPECT_EQ(calls, 1);
  mu_hash_destroy(table);
}

// ---- Get and count --------------------------------------------------------------------------------------------------

TEST_F(HashGetContract, GivesNullForAnEmptyTableAndForNone) {
  EXPECT_EQ(mu_hash_get(nullptr), nullptr);
  const std::string before = image();
  EXPECT_EQ(mu_hash_get(table_), nullptr);
  EXPECT_EQ(image(), before);
}

TEST_F(HashGetContract, TakesTheFirstOfTheLowestBucketInUse) {
  const uint32_t buckets[] = {3, 1, 3, 0, 1};
  for (int i = 0; i < 5; i++) ASSERT_EQ(add(i, buckets[i]), 0);
  uint32_t left = 5;
  for (const int expected : {3, 1, 4, 0, 2}) {
    EXPECT_EQ(mu_hash_get(table_), node(expected));
    EXPECT_EQ(table_->count, --left);
  }
  EXPECT_EQ(mu_hash_get(table_), nullptr);
  EXPECT_EQ(table_->count, 0u);
  for (uint32_t bucket = 0; bucket < kSize; bucket++) EXPECT_TRUE(in_bucket(bucket).empty());
}

TEST_F(HashGetContract, LeavesTheLinksOfTheNode) {
  for (int i = 0; i < 3; i++) ASSERT_EQ(add(i, 2), 0);
  EXPECT_EQ(mu_hash_get(table_), node(0));
  EXPECT_EQ(node(0)->prev, nullptr);
  EXPECT_EQ(node(0)->next, node(1));
  EXPECT_EQ(in_bucket(2), (Numbers{1, 2}));
}

TEST_F(HashCountContract, IsZeroForNoTable) { EXPECT_EQ(mu_hash_count(nullptr), 0u); }

TEST_F(HashCountContract, FollowsAddDelAndGet) {
  EXPECT_EQ(mu_hash_count(table_), 0u);
  for (int i = 0; i < 4; i++) {
    add(i, static_cast<uint32_t>(i));
    EXPECT_EQ(mu_hash_count(table_), static_cast<uint32_t>(i) + 1);
  }
  add(4, kSize);  // refused
  EXPECT_EQ(mu_hash_count(table_), 4u);
  mu_hash_del(table_, node(2));
  EXPECT_EQ(mu_hash_count(table_), 3u);
  mu_hash_get(table_);
  EXPECT_EQ(mu_hash_count(table_), 2u);
}
