// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The order of the hash table: walks, the search, the removal of the first element, the count, and a comparison with
// plain sequences.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "containers/fixture.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

// A failing call does not change its outputs.
class HashWalk : public HashTest {
 protected:
  void expect_outputs(const mu_lst_node *node, uint32_t bucket) const {
    EXPECT_EQ(out_, node);
    EXPECT_EQ(bucket_, bucket);
  }
};

using HashFirst = HashWalk;
using HashNext = HashWalk;
using HashFind = HashWalk;
using HashGet = HashWalk;
using HashCount = HashWalk;

constexpr int kKey = 0;

}  // namespace

// ---- First ----------------------------------------------------------------------------------------------------------

TEST_F(HashFirst, OfAnEmptyOrNullTableFailsAndLeavesTheOutputsAsTheyWere) {
  for (mu_hash *const table : {table_, static_cast<mu_hash *>(nullptr)}) {
    EXPECT_EQ(mu_hash_first(table, &out_, &bucket_), -1);
    expect_outputs(&untouched_, kUntouched);
  }
}

TEST_F(HashFirst, FindsTheFirstElementOfTheLowestFilledBucket) {
  int number = 0;
  for (uint32_t bucket = kSize; bucket-- > 0;) {
    const int first = number;
    ASSERT_EQ(add(number++, bucket), 0);
    ASSERT_EQ(add(number++, bucket), 0);
    EXPECT_EQ(mu_hash_first(table_, &out_, &bucket_), 0);
    expect_outputs(node(first), bucket);
  }
}

// ---- Next -----------------------------------------------------------------------------------------------------------

TEST_F(HashNext, GoesOnInTheBucketAndGivesTheBucketThatItWasGiven) {
  fill({2, 2, 3});
  for (const uint32_t bucket : {2u, 0u, 3u, kSize, 77u, UINT32_MAX}) {
    EXPECT_EQ(mu_hash_next(table_, node(0), bucket, &out_, &bucket_), 0);
    expect_outputs(node(1), bucket);
  }
}

TEST_F(HashNext, GoesOnInTheNextFilledBucketAfterTheOneThatItWasGiven) {
  fill({0, 1, 3, 3});
  for (const uint32_t bucket : {0u, 1u, 2u}) {
    SCOPED_TRACE(bucket);
    EXPECT_EQ(mu_hash_next(table_, node(0), bucket, &out_, &bucket_), 0);
    expect_outputs(node(bucket == 0 ? 1 : 2), bucket == 0 ? 1 : 3);
  }
}

TEST_F(HashNext, AfterTheLastElementStoresNullAndLeavesTheBucketAsItWas) {
  for (uint32_t bucket = 0; bucket < kSize; bucket++) {
    SCOPED_TRACE(bucket);
    ASSERT_EQ(add(0, bucket), 0);
    ASSERT_EQ(add(1, bucket), 0);
    out_ = &untouched_;
    EXPECT_EQ(mu_hash_next(table_, node(1), bucket, &out_, &bucket_), -1);
    expect_outputs(nullptr, kUntouched);
    for (const int i : {0, 1}) ASSERT_EQ(mu_hash_del(table_, node(i)), 0);
  }
}

// From `size` on no bucket follows; the greatest number must not wrap to bucket 0.
TEST_F(HashNext, FindsNoBucketAfterOneThatTheTableDoesNotHave) {
  fill({0, 3});
  for (const uint32_t bucket : {kSize - 1, kSize, kSize + 1, 0x80000000u, 0xfffffffeu, UINT32_MAX}) {
    SCOPED_TRACE(bucket);
    out_ = &untouched_;
    EXPECT_EQ(mu_hash_next(table_, node(1), bucket, &out_, &bucket_), -1);
    expect_outputs(nullptr, kUntouched);
  }
}

TEST_F(HashNext, OfNullFailsAndLeavesTheOutputsAsTheyWere) {
  fill({1, 1});
  EXPECT_EQ(mu_hash_next(nullptr, node(0), 1, &out_, &bucket_), -1);
  expect_outputs(&untouched_, kUntouched);
}

// ---- Walk -----------------------------------------------------------------------------------------------------------

TEST_F(HashWalk, GoesByBucketAndThenByTheOrderOfTheAddsWithoutAskingTheFunctions) {
  fill({3, 1, 3, 0, 1, 3, 0, 1});
  hashed_.clear();
  std::vector<uint32_t> met;
  EXPECT_EQ(walk(table_, &met), (Numbers{3, 6, 1, 4, 7, 0, 2, 5}));
  EXPECT_EQ(met, (std::vector<uint32_t>{0, 0, 1, 1, 1, 3, 3, 3}));
  EXPECT_TRUE(hashed_.empty());
  EXPECT_TRUE(compared_.empty());
}

TEST_F(HashWalk, MeetsWhatIsAddedAfterItsPlaceAndNotWhatIsAddedBefore) {
  ASSERT_EQ(add(0, 1), 0);
  ASSERT_EQ(mu_hash_first(table_, &out_, &bucket_), 0);
  ASSERT_EQ(add(1, 0), 0);  // before
  ASSERT_EQ(add(2, 1), 0);  // after, in the same bucket
  ASSERT_EQ(add(3, 2), 0);  // after, in a later one
  Numbers met;
  while (mu_hash_next(table_, out_, bucket_, &out_, &bucket_) == 0) met.push_back(number_of(out_));
  EXPECT_EQ(met, (Numbers{2, 3}));
}

// A delete does not change the node's own links.
TEST_F(HashWalk, GoesOnFromANodeThatItsOwnThreadDeleted) {
  fill({0, 0, 1, 1, 2, 2});
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

TEST_F(HashFind, FindsEachElementAndLeavesItInTheTable) {
  fill({0, 1, 2, 3, 0, 1, 2, 3});
  const std::string before = image();
  for (int key = 0; key < 8; key++) EXPECT_EQ(mu_hash_find(table_, &key), node(key));
  EXPECT_EQ(image(), before);
}

TEST_F(HashFind, GivesNullWhenNothingMatchesOrThereIsNoTable) {
  const int key = 6;
  EXPECT_EQ(mu_hash_find(nullptr, &key), nullptr);
  EXPECT_EQ(mu_hash_find(table_, &key), nullptr) << "empty";
  EXPECT_TRUE(compared_.empty());
  fill({0, 1, 2, 3, 0, 1});
  EXPECT_EQ(mu_hash_find(table_, &key), nullptr);
  EXPECT_EQ(compared_.size(), 6u);
}

TEST_F(HashFind, GivesTheFirstOfEqualsByBucketAndThenByAdd) {
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

// Any result of the compare function other than 0 is not a match. A null key is passed on like any other.
TEST_F(HashFind, ComparesInTheOrderOfAWalkUntilTheFirstZero) {
  static Numbers compared;
  static const void *expected_key;
  static int result;  // for all but the element 5
  table_->cmp_fn = [](const mu_lst_node *node, const void *key) {
    compared.push_back(number_of(node));
    EXPECT_EQ(key, expected_key);
    return number_of(node) == 5 ? 0 : result;
  };
  fill({3, 1, 3, 0, 1, 3, 0, 1});
  for (const void *key : {static_cast<const void *>(&kKey), static_cast<const void *>(nullptr)}) {
    expected_key = key;
    for (const int row : {1, -1, 2, 0x100, 0x10000, INT_MAX, INT_MIN}) {
      SCOPED_TRACE(row);
      compared.clear();
      result = row;
      EXPECT_EQ(mu_hash_find(table_, key), node(5));
      EXPECT_EQ(compared, (Numbers{3, 6, 1, 4, 7, 0, 2, 5}));
    }
    result = 0;
    compared.clear();
    EXPECT_EQ(mu_hash_find(table_, key), node(3));
    EXPECT_EQ(compared, Numbers{3}) << "no further than the match";
  }
}

// The bucket function would now return another bucket, but is not called.
TEST_F(HashFind, FindsAnElementInABucketThatIsNotItsKeys) {
  fill({3});
  hashed_.clear();
  for (const uint32_t bucket : {0u, kSize + 5, UINT32_MAX}) {
    elements_[0].bucket = bucket;
    EXPECT_EQ(mu_hash_find(table_, &kKey), node(0));
  }
  EXPECT_TRUE(hashed_.empty());
}

// ---- Get and count --------------------------------------------------------------------------------------------------

TEST_F(HashGet, TakesTheElementsInTheOrderOfAWalkAndLeavesTheirLinks) {
  fill({3, 1, 3, 0, 1});
  hashed_.clear();
  uint32_t left = 5;
  for (const int expected : {3, 1, 4, 0, 2}) {
    const mu_lst_node links = *node(expected);
    EXPECT_EQ(mu_hash_get(table_), node(expected));
    EXPECT_EQ(table_->count, --left);
    EXPECT_EQ(node(expected)->prev, links.prev);
    EXPECT_EQ(node(expected)->next, links.next);
    for (uint32_t bucket = 0; bucket < kSize; bucket++) in_bucket(bucket);  // for its checks
  }
  EXPECT_EQ(mu_hash_get(table_), nullptr);
  for (uint32_t bucket = 0; bucket < kSize; bucket++) EXPECT_EQ(in_bucket(bucket), Numbers{});
  EXPECT_TRUE(hashed_.empty());
}

TEST_F(HashGet, OfAnEmptyOrNullTableIsNullAndChangesNothing) {
  EXPECT_EQ(mu_hash_get(nullptr), nullptr);
  const std::string before = image();
  EXPECT_EQ(mu_hash_get(table_), nullptr);
  EXPECT_EQ(image(), before);
}

TEST_F(HashCount, FollowsAddDelAndGet) {
  EXPECT_EQ(mu_hash_count(nullptr), 0u);
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
  table_->count = 0xfffffffe;
  EXPECT_EQ(mu_hash_count(table_), 0xfffffffe) << "the field, whatever it holds";
}

// ---- The whole ------------------------------------------------------------------------------------------------------

// A sequence for each bucket.
TEST(HashModel, AgreesWithPlainSequencesOverRandomCalls) {
  constexpr int kElements = 40;
  for (const uint32_t size : {1u, 2u, 5u, 17u}) {
    Random random(size);
    mu_hash *const table = mu_hash_create(size, bucket_of, compare);
    Element elements[kElements] = {};
    for (int i = 0; i < kElements; i++) elements[i].number = i % 20;  // two of each
    std::vector<bool> is_in(kElements);
    std::vector<std::vector<int>> model(size);  // places in `elements`
    const auto take = [&](int i) {
      std::erase(model[elements[i].bucket], i);
      is_in[static_cast<size_t>(i)] = false;
    };
    for (int step = 0; step < 2000; step++) {
      SCOPED_TRACE(testing::Message() << size << " buckets, step " << step);
      const auto i = static_cast<int>(random.below(kElements));
      Element &element = elements[i];
      if (random.below(8) == 0) {
        const auto bucket = std::find_if(model.begin(), model.end(), [](const auto &some) { return !some.empty(); });
        ASSERT_EQ(mu_hash_get(table), bucket == model.end() ? nullptr : &elements[bucket->front()].links);
        if (bucket != model.end()) take(bucket->front());
      } else if (is_in[static_cast<size_t>(i)]) {
        ASSERT_EQ(mu_hash_del(table, &element.links), 0);
        take(i);
      } else {
        element.bucket = static_cast<uint32_t>(random.below(size + 1));  // one too many: never accepted
        const bool fits = element.bucket < size;
        ASSERT_EQ(mu_hash_add(table, &element.links), fits ? 0 : -1);
        if (fits) model[element.bucket].push_back(i);
        if (!fits) {
          ASSERT_EQ(mu_hash_del(table, &element.links), -1);
        }
        is_in[static_cast<size_t>(i)] = fits;
      }
      Numbers all;
      std::vector<uint32_t> of;
      const mu_lst_node *first_match = nullptr;
      for (uint32_t bucket = 0; bucket < size; bucket++) {
        for (const int place : model[bucket]) {
          all.push_back(elements[place].number);
          of.push_back(bucket);
          if (first_match == nullptr && all.back() == element.number) first_match = &elements[place].links;
        }
      }
      std::vector<uint32_t> buckets;
      ASSERT_EQ(walk(table, &buckets), all);
      ASSERT_EQ(buckets, of);
      ASSERT_EQ(mu_hash_count(table), all.size());
      ASSERT_EQ(mu_hash_find(table, &element.number), first_match);
    }
    mu_hash_destroy(table);
  }
}
