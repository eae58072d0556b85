// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The list of record copies: steps from node to node, searches, visits, and a comparison with a plain sequence.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <utility>
#include <vector>

#include "containers/fixture.h"
#include "support/heap.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

// The arguments of the callbacks, and the list: globals, because a callback has no argument for them.
std::vector<std::pair<const void *, const void *>> g_compared;
std::vector<void *> g_visited;
mu_list_t *g_list;

void note(void *record) { g_visited.push_back(record); }

class ListStep : public ListTest {
 protected:
  ListStep() {
    g_compared.clear();
    g_visited.clear();
    g_list = list_;
    list_->cmp = noted_by_key;
  }

  static int32_t noted_by_key(const void *record, const void *key) {
    g_compared.emplace_back(record, key);
    return by_key(record, key);
  }

  mu_list_node_t *find(uint32_t key) { return mu_list_query(list_, &key); }
};

using ListQuery = ListStep;
using ListTraverse = ListStep;
using ListModel = ListTest;

}  // namespace

// ---- Steps ----------------------------------------------------------------------------------------------------------

TEST_F(ListStep, AnswersNullPointersWithNullAndZero) {
  EXPECT_EQ(mu_list_first(nullptr), nullptr);
  EXPECT_EQ(mu_list_last(nullptr), nullptr);
  EXPECT_EQ(mu_list_next(nullptr), nullptr);
  EXPECT_EQ(mu_list_previous(nullptr), nullptr);
  EXPECT_EQ(mu_list_count(nullptr), 0u);
}

TEST_F(ListStep, FindsNoEndsInAnEmptyList) {
  EXPECT_EQ(mu_list_first(list_), nullptr);
  EXPECT_EQ(mu_list_last(list_), nullptr);
  EXPECT_EQ(mu_list_count(list_), 0u);
}

TEST_F(ListStep, WalksFromTheHeadToTheTailAndBack) {
  fill({5, 3, 5});
  EXPECT_EQ(mu_list_count(list_), 3u);
  Nodes forth;
  for (auto *node = mu_list_first(list_); node != nullptr; node = mu_list_next(node)) forth.push_back(node);
  EXPECT_EQ(forth, nodes());
  Nodes back;
  for (auto *node = mu_list_last(list_); node != nullptr; node = mu_list_previous(node)) back.push_back(node);
  EXPECT_EQ(back, Nodes(forth.rbegin(), forth.rend()));
}

TEST_F(ListStep, FindsANodeAtItsAddressAfterOtherAddsAndDeletes) {
  fill({1, 2, 3});
  mu_list_node_t *const middle = nodes()[1];
  mu_list_delete(list_, mu_list_first(list_));
  mu_list_delete(list_, mu_list_last(list_));
  for (int i = 0; i < 100; i++) fill({9});
  EXPECT_EQ(mu_list_first(list_), middle);
  EXPECT_EQ(record_of(middle).key, 2u);
}

// ---- Query ----------------------------------------------------------------------------------------------------------

TEST_F(ListQuery, FindsAMatchWhereverItStandsAndTheEarliestOfSeveral) {
  fill({5, 10, 30, 5});
  EXPECT_EQ(find(5), nodes()[0]);
  EXPECT_EQ(find(10), nodes()[1]);
  EXPECT_EQ(find(30), nodes()[2]);
  mu_list_delete(list_, find(5));
  EXPECT_EQ(find(5), nodes()[2]) << "the next once the earlier is deleted";
}

TEST_F(ListQuery, GivesNullWhenNothingMatches) {
  EXPECT_EQ(find(4), nullptr);
  EXPECT_TRUE(g_compared.empty());
  fill({5, 3, 5});
  EXPECT_EQ(find(4), nullptr);
  EXPECT_EQ(g_compared.size(), 3u);
}

TEST_F(ListQuery, GivesNullForANullListKeyOrCallbackWithoutComparing) {
  fill({5});
  const uint32_t key = 5;
  EXPECT_EQ(mu_list_query(nullptr, &key), nullptr);
  EXPECT_EQ(mu_list_query(list_, nullptr), nullptr);
  EXPECT_TRUE(g_compared.empty());
  mu_list_t *const without_callback = mu_list_create(4, nullptr);
  EXPECT_EQ(mu_list_add(without_callback, &key), 0);
  EXPECT_EQ(mu_list_query(without_callback, &key), nullptr);
  mu_list_destory(without_callback);
}

TEST_F(ListQuery, ComparesRecordThenKeyFromTheHeadUntilTheFirstMatch) {
  fill({1, 2, 3, 2});
  const uint32_t key = 2;
  mu_list_query(list_, &key);
  const std::vector<std::pair<const void *, const void *>> expected{{list_->head->data, &key},
                                                                    {list_->head->next->data, &key}};
  EXPECT_EQ(g_compared, expected);
}

TEST_F(ListQuery, TakesAnyNonzeroResultAsNoMatch) {
  static int32_t result;
  list_->cmp = [](const void *record, const void *) {
    return static_cast<const Record *>(record)->key == 2 ? 0 : result;
  };
  fill({1, 2});
  for (const int32_t row : {1, -1, 2, 0x100, 0x10000, INT_MAX, INT_MIN}) {
    SCOPED_TRACE(row);
    result = row;
    EXPECT_EQ(find(1), list_->tail);
  }
  result = 0;
  EXPECT_EQ(find(1), list_->head);
}

TEST_F(ListQuery, SeesARecordThatWasChangedInPlace) {
  fill({5, 3});
  record_of(list_->head).key = 8;
  EXPECT_EQ(find(5), nullptr);
  EXPECT_EQ(find(8), list_->head);
}

// ---- Traverse -------------------------------------------------------------------------------------------------------

TEST_F(ListTraverse, VisitsEachRecordHeadFirstAndComparesNothing) {
  fill({5, 3, 5});
  mu_list_traverse(list_, note);
  const std::vector<void *> expected{list_->head->data, list_->head->next->data, list_->tail->data};
  EXPECT_EQ(g_visited, expected);
  EXPECT_TRUE(g_compared.empty());
}

TEST_F(ListTraverse, MakesNoCallForANullOrEmptyList) {
  for (const mu_list_trav_cb_t visit : {note, mu_list_trav_cb_t{nullptr}}) {
    mu_list_traverse(nullptr, visit);
    mu_list_traverse(list_, visit);
  }
  EXPECT_TRUE(g_visited.empty());
}

TEST_F(ListTraverse, LetsTheCallbackChangeTheRecord) {
  fill({5, 3});
  mu_list_traverse(list_, [](void *record) { static_cast<Record *>(record)->key *= 10; });
  EXPECT_EQ(keys(), (Keys{50, 30}));
}

// This and the next need the node's successor to be read after the callback, not before it.
TEST_F(ListTraverse, VisitsARecordThatTheCallbackAppends) {
  fill({1});
  mu_list_traverse(list_, [](void *record) {
    note(record);
    const Record another{7, 7};
    if (mu_list_count(g_list) < 3) mu_list_add(g_list, &another);
  });
  EXPECT_EQ(g_visited.size(), 3u);
}

TEST_F(ListTraverse, PassesOverASuccessorThatTheCallbackDeletes) {
  fill({1, 2, 3});
  mu_list_traverse(list_, [](void *record) {
    note(record);
    if (static_cast<Record *>(record)->key == 1) mu_list_delete(g_list, mu_list_next(mu_list_first(g_list)));
  });
  const std::vector<void *> expected{list_->head->data, list_->tail->data};
  EXPECT_EQ(g_visited, expected);
}

// ---- The whole ------------------------------------------------------------------------------------------------------

TEST_F(ListModel, AgreesWithAPlainSequenceOverRandomCalls) {
  constexpr uint32_t kKeys = 24;  // few, so that matches repeat
  for (const uint64_t seed : {1u, 2u, 3u}) {
    Random random(seed);
    const HeapWatch heap;
    Keys model;
    for (int step = 0; step < 4000; step++) {
      SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << step);
      const auto key = static_cast<uint32_t>(random.below(kKeys));
      const uint64_t choice = random.below(100);
      if (choice < 48) {
        ASSERT_EQ(add(key), 0);
        model.push_back(key);
      } else if (choice < 92) {
        const auto place = std::find(model.begin(), model.end(), key);
        mu_list_node_t *const node = mu_list_query(list_, &key);
        ASSERT_EQ(node != nullptr, place != model.end());
        ASSERT_EQ(mu_list_delete(list_, node), node == nullptr ? -1 : 0);
        if (place != model.end()) model.erase(place);
      } else if (choice < 99) {
        static uint32_t increase;
        increase = key;
        mu_list_traverse(list_, [](void *record) {
          uint32_t &own = static_cast<Record *>(record)->key;
          own = (own + increase) % kKeys;
        });
        for (uint32_t &own : model) own = (own + increase) % kKeys;
      } else {
        ASSERT_EQ(mu_list_delete_all(list_), 0);
        model.clear();
      }
      ASSERT_EQ(keys(), model);
      ASSERT_EQ(heap.live(), model.size());
    }
    mu_list_delete_all(list_);
  }
}
