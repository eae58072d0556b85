// The hash table's operations, on one thread.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "containers/hash_element.h"
#include "support/console.h"
#include "support/libc.h"
#include "tarn/containers.h"

using namespace tarn_test;

namespace {

constexpr uint32_t kBuckets = 4;

using Met = std::vector<const Element *>;

// Calls of the functions of the table that is under test.
Met g_hashed;
std::vector<std::pair<const Element *, const void *>> g_compared;
int g_result;

uint32_t noted_bucket(const mu_lst_node *node) {
  g_hashed.push_back(&element_of(node));
  return own_bucket(node);
}

int noted_difference(const mu_lst_node *node, const void *key) {
  g_compared.emplace_back(&element_of(node), key);
  return key == nullptr ? g_result : differs(node, key);
}

mu_lst_node *nowhere() { return reinterpret_cast<mu_lst_node *>(0x10); }

// A table of four buckets, and elements for it.
class Hash : public testing::Test {
 protected:
  Hash() {
    g_hashed.clear();
    g_compared.clear();
    g_result = 0;
  }

  void add(std::initializer_list<Element *> elements) {
    for (Element *element : elements) ASSERT_EQ(mu_hash_add(table_.get(), &element->node), 0);
  }

  // The table with its buckets, to see that nothing is changed.
  std::vector<uint8_t> bytes() const {
    const auto *begin = reinterpret_cast<const uint8_t *>(table_.get());
    return {begin, begin + 40 + size_t{24} * kBuckets};
  }

  const OwnedHash table_ = table_of(kBuckets, noted_bucket, noted_difference);
  Element a_{{nowhere(), nowhere()}, 1, 10};
  Element b_{{nowhere(), nowhere()}, 1, 11};
  Element c_{{nowhere(), nowhere()}, 1, 12};
  Element d_{{nowhere(), nowhere()}, 3, 13};
};

using HashAdd = Hash;
using HashDel = Hash;
using HashFirst = Hash;
using HashNext = Hash;
using HashFind = Hash;
using HashGet = Hash;
using HashCount = Hash;

}  // namespace

// ---- Add ------------------------------------------------------------------------------------------------------------

TEST_F(HashAdd, AppendsToTheBucketThatTheFunctionTells) {
  add({&a_, &d_, &b_});
  EXPECT_EQ(table_->count, 3u);
  EXPECT_EQ(table_->buckets[0].count, 0u);
  EXPECT_EQ(table_->buckets[1].count, 2u);
  EXPECT_EQ(table_->buckets[2].count, 0u);
  EXPECT_EQ(table_->buckets[3].count, 1u);
  EXPECT_EQ(table_->buckets[1].first, &a_.node);
  EXPECT_EQ(table_->buckets[1].last, &b_.node);
  EXPECT_EQ(a_.node.prev, nullptr);
  EXPECT_EQ(a_.node.next, &b_.node);
  EXPECT_EQ(b_.node.prev, &a_.node);
  EXPECT_EQ(b_.node.next, nullptr);
  EXPECT_EQ(table_->buckets[3].first, &d_.node);
  EXPECT_EQ(table_->buckets[3].last, &d_.node);
}

TEST_F(HashAdd, AsksForTheBucketOnceAndComparesNothing) {
  add({&a_, &b_});
  EXPECT_EQ(g_hashed, (Met{&a_, &b_}));
  EXPECT_TRUE(g_compared.empty());
}

TEST_F(HashAdd, TakesTwoElementsOfOneKey) {
  b_.key = a_.key;
  add({&a_, &b_});
  EXPECT_EQ(walk(table_), (Met{&a_, &b_}));
}

TEST_F(HashAdd, NeedsNoMemory) {
  const FailingMalloc memory(INT_MAX);  // fails nothing, counts
  add({&a_, &b_});
  EXPECT_EQ(memory.seen(), 0);
}

TEST_F(HashAdd, RefusesANullTableOrNodeWithoutAskingForABucket) {
  const auto before = bytes();
  EXPECT_EQ(mu_hash_add(nullptr, &a_.node), -1);
  EXPECT_EQ(mu_hash_add(table_.get(), nullptr), -1);
  EXPECT_EQ(mu_hash_add(nullptr, nullptr), -1);
  EXPECT_EQ(bytes(), before);
  EXPECT_EQ(a_.node.next, nowhere());
  EXPECT_TRUE(g_hashed.empty());
}

TEST_F(HashAdd, RefusesABucketThatTheTableDoesNotHaveAndChangesNothing) {
  add({&b_});
  const auto before = bytes();
  for (const uint32_t bucket : {kBuckets, kBuckets + 1, 0x80000000u, UINT32_MAX}) {
    SCOPED_TRACE(bucket);
    a_.bucket = bucket;
    EXPECT_EQ(mu_hash_add(table_.get(), &a_.node), -1);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(a_.node.prev, nowhere());
    EXPECT_EQ(a_.node.next, nowhere());
  }
}

TEST_F(HashAdd, TakesTheFirstAndTheLastBucket) {
  a_.bucket = 0;
  b_.bucket = kBuckets - 1;
  add({&a_, &b_});
  EXPECT_EQ(table_->buckets[0].first, &a_.node);
  EXPECT_EQ(table_->buckets[kBuckets - 1].first, &b_.node);
}

#if defined(__x86_64__) || defined(__aarch64__)
// Where a register's upper half is no part of a 32-bit result, a function of 64 bits may serve.
TEST_F(HashAdd, UsesTheLow32BitsOfTheFunctionsResult) {
  uint64_t (*const wide)(const mu_lst_node *) = [](const mu_lst_node *) { return UINT64_C(0xABCD00000002); };
  table_->hash_fn = reinterpret_cast<mu_hash_fn_t>(reinterpret_cast<void *>(wide));
  add({&a_});
  EXPECT_EQ(table_->buckets[2].first, &a_.node);
  EXPECT_EQ(mu_hash_del(table_.get(), &a_.node), 0);
}
#endif

// ---- Del ------------------------------------------------------------------------------------------------------------

TEST_F(HashDel, UnlinksFromEachPlaceInABucket) {
  Element *const elements[] = {&a_, &b_, &c_};
  for (Element *deleted : elements) {
    SCOPED_TRACE(deleted->key);
    const OwnedHash table = table_of(kBuckets);
    Met left;
    for (Element *element : elements) {
      mu_hash_add(table.get(), &element->node);
      if (element != deleted) left.push_back(element);
    }
    const mu_lst_node links = deleted->node;
    EXPECT_EQ(mu_hash_del(table.get(), &deleted->node), 0);
    EXPECT_EQ(walk(table), left);
    EXPECT_EQ(table->count, 2u);
    EXPECT_EQ(table->buckets[1].count, 2u);
    EXPECT_EQ(table->buckets[1].first, &left.front()->node);
    EXPECT_EQ(table->buckets[1].last, &left.back()->node);
    EXPECT_EQ(deleted->node.prev, links.prev);
    EXPECT_EQ(deleted->node.next, links.next);
  }
}

TEST_F(HashDel, OfTheOnlyElementLeavesAnEmptyBucket) {
  add({&a_, &d_});
  EXPECT_EQ(mu_hash_del(table_.get(), &a_.node), 0);
  EXPECT_EQ(table_->buckets[1].first, nullptr);
  EXPECT_EQ(table_->buckets[1].last, nullptr);
  EXPECT_EQ(table_->buckets[1].count, 0u);
  EXPECT_EQ(table_->count, 1u);
}

TEST_F(HashDel, AsksForTheBucketOnceAndComparesNothing) {
  add({&a_});
  g_hashed.clear();
  mu_hash_del(table_.get(), &a_.node);
  EXPECT_EQ(g_hashed, Met{&a_});
  EXPECT_TRUE(g_compared.empty());
}

TEST_F(HashDel, RefusesANullTableOrNodeWithoutAskingForABucket) {
  add({&a_});
  g_hashed.clear();
  const auto before = bytes();
  EXPECT_EQ(mu_hash_del(nullptr, &a_.node), -1);
  EXPECT_EQ(mu_hash_del(table_.get(), nullptr), -1);
  EXPECT_EQ(bytes(), before);
  EXPECT_TRUE(g_hashed.empty());
}

TEST_F(HashDel, RefusesABucketThatTheTableDoesNotHaveAndChangesNothing) {
  add({&a_, &b_});
  const auto before = bytes();
  for (const uint32_t bucket : {kBuckets, kBuckets + 1, 0x80000000u, UINT32_MAX}) {
    SCOPED_TRACE(bucket);
    a_.bucket = bucket;
    EXPECT_EQ(mu_hash_del(table_.get(), &a_.node), -1);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(b_.node.prev, &a_.node);
  }
}

TEST_F(HashDel, MakesRoomForTheElementInAnotherBucket) {
  add({&a_, &b_});
  mu_hash_del(table_.get(), &a_.node);
  a_.bucket = 3;
  add({&a_});
  EXPECT_EQ(walk(table_), (Met{&b_, &a_}));
}

// ---- Walks ----------------------------------------------------------------------------------------------------------

TEST_F(HashFirst, OfAnEmptyTableFailsAndLeavesTheOutputsAlone) {
  mu_lst_node *node = nowhere();
  uint32_t bucket = 77;
  EXPECT_EQ(mu_hash_first(table_.get(), &node, &bucket), -1);
  EXPECT_EQ(node, nowhere());
  EXPECT_EQ(bucket, 77u);
}

TEST_F(HashFirst, OfNullFailsAndLeavesTheOutputsAlone) {
  mu_lst_node *node = nowhere();
  uint32_t bucket = 77;
  EXPECT_EQ(mu_hash_first(nullptr, &node, &bucket), -1);
  EXPECT_EQ(node, nowhere());
  EXPECT_EQ(bucket, 77u);
}

TEST_F(HashFirst, FindsTheFirstElementOfTheLowestFilledBucket) {
  for (uint32_t lowest = 0; lowest < kBuckets; lowest++) {
    SCOPED_TRACE(lowest);
    const OwnedHash table = table_of(kBuckets);
    a_.bucket = kBuckets - 1;
    b_.bucket = lowest;
    c_.bucket = lowest;
    if (lowest < kBuckets - 1) mu_hash_add(table.get(), &a_.node);
    mu_hash_add(table.get(), &b_.node);
    mu_hash_add(table.get(), &c_.node);
    mu_lst_node *node = nullptr;
    uint32_t bucket = 77;
    EXPECT_EQ(mu_hash_first(table.get(), &node, &bucket), 0);
    EXPECT_EQ(node, &b_.node);
    EXPECT_EQ(bucket, lowest);
  }
}

TEST_F(HashNext, GoesOnInTheBucket) {
  add({&a_, &b_});
  mu_lst_node *node = nullptr;
  uint32_t bucket = 77;
  EXPECT_EQ(mu_hash_next(table_.get(), &a_.node, 1, &node, &bucket), 0);
  EXPECT_EQ(node, &b_.node);
  EXPECT_EQ(bucket, 1u);
}

TEST_F(HashNext, GoesOnInTheNextFilledBucket) {
  for (const uint32_t filled : {2u, 3u}) {
    SCOPED_TRACE(filled);
    const OwnedHash table = table_of(kBuckets);
    d_.bucket = filled;
    c_.bucket = filled;
    for (Element *element : {&a_, &d_, &c_}) mu_hash_add(table.get(), &element->node);
    mu_lst_node *node = nullptr;
    uint32_t bucket = 77;
    EXPECT_EQ(mu_hash_next(table.get(), &a_.node, 1, &node, &bucket), 0);
    EXPECT_EQ(node, &d_.node);
    EXPECT_EQ(bucket, filled);
  }
}

TEST_F(HashNext, AfterTheLastElementStoresNullAndLeavesTheBucketAlone) {
  add({&a_, &b_});  // the last filled bucket is not the last bucket
  mu_lst_node *node = nowhere();
  uint32_t bucket = 77;
  EXPECT_EQ(mu_hash_next(table_.get(), &b_.node, 1, &node, &bucket), -1);
  EXPECT_EQ(node, nullptr);
  EXPECT_EQ(bucket, 77u);

  add({&d_});
  node = nowhere();
  EXPECT_EQ(mu_hash_next(table_.get(), &d_.node, 3, &node, &bucket), -1);
  EXPECT_EQ(node, nullptr);
  EXPECT_EQ(bucket, 77u);
}

TEST_F(HashNext, FindsNoBucketBehindOneThatTheTableDoesNotHave) {
  a_.bucket = 0;
  add({&a_, &d_});
  for (const uint32_t past : {kBuckets - 1, kBuckets, 0x80000000u, UINT32_MAX}) {
    SCOPED_TRACE(past);
    mu_lst_node *node = nowhere();
    uint32_t bucket = 77;
    EXPECT_EQ(mu_hash_next(table_.get(), &d_.node, past, &node, &bucket), -1);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(bucket, 77u);
  }
}

TEST_F(HashNext, GivesTheBucketThatItWasGivenWhileTheBucketGoesOn) {
  add({&a_, &b_});
  mu_lst_node *node = nullptr;
  uint32_t bucket = 77;
  EXPECT_EQ(mu_hash_next(table_.get(), &a_.node, UINT32_MAX, &node, &bucket), 0);
  EXPECT_EQ(node, &b_.node);
  EXPECT_EQ(bucket, UINT32_MAX);
}

TEST_F(HashNext, OfNullFailsAndLeavesTheOutputsAlone) {
  add({&a_, &b_});
  mu_lst_node *node = nowhere();
  uint32_t bucket = 77;
  EXPECT_EQ(mu_hash_next(nullptr, &a_.node, 1, &node, &bucket), -1);
  EXPECT_EQ(node, nowhere());
  EXPECT_EQ(bucket, 77u);
}

TEST_F(HashNext, NeitherAsksForBucketsNorCompares) {
  add({&a_, &b_, &d_});
  g_hashed.clear();
  EXPECT_EQ(walk(table_), (Met{&a_, &b_, &d_}));
  EXPECT_TRUE(g_hashed.empty());
  EXPECT_TRUE(g_compared.empty());
}

TEST_F(HashNext, MeetsWhatIsAddedBehindTheWalkAndNotWhatIsAddedBeforeIt) {
  add({&b_});
  a_.bucket = 0;
  mu_lst_node *node = nullptr;
  uint32_t bucket = 77;
  ASSERT_EQ(mu_hash_first(table_.get(), &node, &bucket), 0);
  add({&a_, &c_, &d_});  // in a bucket before the walk's, at the end of its own, in one behind it
  Met met;
  while (mu_hash_next(table_.get(), node, bucket, &node, &bucket) == 0) met.push_back(&element_of(node));
  EXPECT_EQ(met, (Met{&c_, &d_}));
}

// ---- Find -----------------------------------------------------------------------------------------------------------

TEST_F(HashFind, ComparesInTheOrderOfAWalkUntilTheFirstMatch) {
  a_.bucket = 2;
  add({&d_, &a_, &b_, &c_});
  const int key = a_.key;
  EXPECT_EQ(mu_hash_find(table_.get(), &key), &a_.node);
  const std::vector<std::pair<const Element *, const void *>> expected = {{&b_, &key}, {&c_, &key}, {&a_, &key}};
  EXPECT_EQ(g_compared, expected);
}

TEST_F(HashFind, GivesTheFirstOfSeveralMatches) {
  c_.key = b_.key;
  d_.key = b_.key;
  add({&d_, &b_, &c_});
  const int key = b_.key;
  EXPECT_EQ(mu_hash_find(table_.get(), &key), &b_.node);
}

// Its own bucket function puts the element elsewhere by now, and is not asked.
TEST_F(HashFind, FindsAnElementInABucketThatIsNotItsKeys) {
  add({&a_, &d_});
  a_.bucket = 2;
  d_.bucket = UINT32_MAX;
  g_hashed.clear();
  for (Element *element : {&a_, &d_}) EXPECT_EQ(mu_hash_find(table_.get(), &element->key), &element->node);
  EXPECT_TRUE(g_hashed.empty());
}

TEST_F(HashFind, GivesNullWhenNothingMatches) {
  const int key = 99;
  EXPECT_EQ(mu_hash_find(table_.get(), &key), nullptr);
  EXPECT_TRUE(g_compared.empty());
  add({&a_, &b_, &d_});
  EXPECT_EQ(mu_hash_find(table_.get(), &key), nullptr);
  EXPECT_EQ(g_compared.size(), 3u);
}

TEST_F(HashFind, TakesAnyNonzeroResultAsNoMatch) {
  add({&a_});
  for (const int result : {1, -1, 2, 0x100, 0x10000, INT_MAX, INT_MIN}) {
    SCOPED_TRACE(result);
    g_result = result;
    EXPECT_EQ(mu_hash_find(table_.get(), nullptr), nullptr);
  }
}

TEST_F(HashFind, PassesANullKeyOn) {
  add({&a_});
  EXPECT_EQ(mu_hash_find(table_.get(), nullptr), &a_.node);
  const std::vector<std::pair<const Element *, const void *>> expected = {{&a_, nullptr}};
  EXPECT_EQ(g_compared, expected);
}

TEST_F(HashFind, InANullTableGivesNull) {
  const int key = 10;
  EXPECT_EQ(mu_hash_find(nullptr, &key), nullptr);
}

TEST_F(HashFind, LeavesTheElementInTheTable) {
  add({&a_, &b_});
  const int key = a_.key;
  mu_hash_find(table_.get(), &key);
  EXPECT_EQ(walk(table_), (Met{&a_, &b_}));
  EXPECT_EQ(table_->count, 2u);
}

// ---- Get and count --------------------------------------------------------------------------------------------------

TEST_F(HashGet, TakesTheElementsInTheOrderOfAWalk) {
  c_.bucket = 0;
  add({&d_, &a_, &b_, &c_});
  uint32_t left = 4;
  for (Element *expected : {&c_, &a_, &b_, &d_}) {
    const mu_lst_node links = expected->node;
    EXPECT_EQ(mu_hash_get(table_.get()), &expected->node);
    EXPECT_EQ(table_->count, --left);
    EXPECT_EQ(expected->node.prev, links.prev);
    EXPECT_EQ(expected->node.next, links.next);
  }
  EXPECT_EQ(mu_hash_get(table_.get()), nullptr);
  EXPECT_EQ(table_->count, 0u);
  for (uint32_t bucket = 0; bucket < kBuckets; bucket++) {
    EXPECT_EQ(table_->buckets[bucket].first, nullptr);
    EXPECT_EQ(table_->buckets[bucket].last, nullptr);
    EXPECT_EQ(table_->buckets[bucket].count, 0u);
  }
}

TEST_F(HashGet, OfAnEmptyOrNullTableIsNullAndChangesNothing) {
  const auto before = bytes();
  EXPECT_EQ(mu_hash_get(table_.get()), nullptr);
  EXPECT_EQ(bytes(), before);
  EXPECT_EQ(mu_hash_get(nullptr), nullptr);
}

TEST_F(HashCount, GivesTheNumberOfElements) {
  EXPECT_EQ(mu_hash_count(nullptr), 0u);
  EXPECT_EQ(mu_hash_count(table_.get()), 0u);
  add({&a_, &b_, &d_});
  EXPECT_EQ(mu_hash_count(table_.get()), 3u);
  mu_hash_del(table_.get(), &b_.node);
  EXPECT_EQ(mu_hash_count(table_.get()), 2u);
}

TEST_F(HashCount, GivesTheFieldWhateverItHolds) {
  table_->count = 0xFFFFFFFE;
  EXPECT_EQ(mu_hash_count(table_.get()), 0xFFFFFFFE);
}

TEST(HashFailures, PrintNothing) {
  Console console;
  mu_lst_node *node = nullptr;
  uint32_t bucket = 0;
  EXPECT_EQ(mu_hash_create(0, own_bucket, differs), nullptr);
  {
    const FailingMalloc memory(1);
    EXPECT_EQ(mu_hash_create(1, own_bucket, differs), nullptr);
  }
  {
    const FailingMalloc memory(2);
    EXPECT_EQ(mu_hash_create(1, own_bucket, differs), nullptr);
  }
  EXPECT_EQ(mu_hash_add(nullptr, nullptr), -1);
  EXPECT_EQ(mu_hash_first(nullptr, &node, &bucket), -1);
  EXPECT_EQ(mu_hash_destroy(nullptr), 1);
  EXPECT_EQ(console.take(), "");
}

// ---- Against a model ------------------------------------------------------------------------------------------------

// A sequence for each bucket.
TEST(HashModel, AgreesWithPlainSequencesOverRandomCalls) {
  for (const uint32_t size : {1u, 2u, 5u, 17u}) {
    std::mt19937 random(size);
    const OwnedHash table = table_of(size);
    std::vector<Met> model(size);
    std::array<Element, 40> elements{};
    for (size_t i = 0; i < elements.size(); i++) {
      elements[i].bucket = static_cast<uint32_t>(random() % (size + 1));  // one too many: never accepted
      elements[i].key = static_cast<int>(i % 20);                         // two of each
    }
    std::array<bool, 40> is_in{};
    for (int step = 0; step < 2000; step++) {
      SCOPED_TRACE(testing::Message() << size << " buckets, step " << step);
      const size_t i = random() % elements.size();
      Element &element = elements[i];
      if (step % 8 == 0) {
        Met all;
        for (const Met &bucket : model) all.insert(all.end(), bucket.begin(), bucket.end());
        ASSERT_EQ(walk(table), all);
        ASSERT_EQ(mu_hash_count(table.get()), all.size());
        const auto found = std::find_if(all.begin(), all.end(), [&](auto *other) { return other->key == element.key; });
        ASSERT_EQ(mu_hash_find(table.get(), &element.key), found == all.end() ? nullptr : &(*found)->node);
      } else if (step % 8 == 1) {
        const auto bucket = std::find_if(model.begin(), model.end(), [](const Met &met) { return !met.empty(); });
        const mu_lst_node *taken = mu_hash_get(table.get());
        ASSERT_EQ(taken, bucket == model.end() ? nullptr : &bucket->front()->node);
        if (taken == nullptr) continue;
        is_in[static_cast<size_t>(bucket->front() - elements.data())] = false;
        bucket->erase(bucket->begin());
      } else if (element.bucket == size) {
        ASSERT_EQ(mu_hash_add(table.get(), &element.node), -1);
        ASSERT_EQ(mu_hash_del(table.get(), &element.node), -1);
      } else if (is_in[i]) {
        ASSERT_EQ(mu_hash_del(table.get(), &element.node), 0);
        std::erase(model[element.bucket], &element);
        is_in[i] = false;
      } else {
        ASSERT_EQ(mu_hash_add(table.get(), &element.node), 0);
        model[element.bucket].push_back(&element);
        is_in[i] = true;
      }
    }
  }
}
