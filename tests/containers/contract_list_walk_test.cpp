// Finding and visiting records.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <initializer_list>
#include <utility>
#include <vector>

#include "tarn/containers.h"

namespace {

struct Record {
  uint32_t key;
  uint32_t serial;
};

// What the callbacks were called with. A list's callbacks have no argument of their own.
std::vector<std::pair<const void *, const void *>> g_compared;
std::vector<void *> g_visited;
mu_list_t *g_list;

int32_t by_key(const void *record, const void *key) {
  g_compared.emplace_back(record, key);
  const uint32_t own = static_cast<const Record *>(record)->key;
  const uint32_t searched = *static_cast<const uint32_t *>(key);
  return own > searched ? 1 : own < searched ? -1 : 0;
}

void note(void *record) { g_visited.push_back(record); }

mu_list_t *list_of(std::initializer_list<uint32_t> keys, mu_list_cmp_cb_t cmp = by_key) {
  g_list = mu_list_create(sizeof(Record), cmp);
  uint32_t serial = 0;
  for (const uint32_t key : keys) {
    const Record record{key, serial++};
    EXPECT_EQ(mu_list_add(g_list, &record), 0);
  }
  return g_list;
}

Record &record_of(mu_list_node_t *node) { return *static_cast<Record *>(node->data); }

class List : public testing::Test {
 protected:
  void SetUp() override {
    g_compared.clear();
    g_visited.clear();
    g_list = nullptr;
  }
  void TearDown() override { mu_list_destory(g_list); }
};

using ListStepContract = List;
using ListQueryContract = List;
using ListTraverseContract = List;

}  // namespace

// ---- Steps ----------------------------------------------------------------------------------------------------------

TEST_F(ListStepContract, AnswersNullPointersWithNullAndZero) {
  EXPECT_EQ(mu_list_first(nullptr), nullptr);
  EXPECT_EQ(mu_list_last(nullptr), nullptr);
  EXPECT_EQ(mu_list_next(nullptr), nullptr);
  EXPECT_EQ(mu_list_previous(nullptr), nullptr);
  EXPECT_EQ(mu_list_count(nullptr), 0u);
}

TEST_F(ListStepContract, FindsNoEndsInAnEmptyList) {
  const mu_list_t *list = list_of({});
  EXPECT_EQ(mu_list_first(list), nullptr);
  EXPECT_EQ(mu_list_last(list), nullptr);
  EXPECT_EQ(mu_list_count(list), 0u);
}

TEST_F(ListStepContract, WalksFromTheHeadToTheTailAndBack) {
  const mu_list_t *list = list_of({5, 3, 5});
  EXPECT_EQ(mu_list_count(list), 3u);

  mu_list_node_t *node = mu_list_first(list);
  EXPECT_EQ(node, list->head);
  EXPECT_EQ(mu_list_previous(node), nullptr);
  std::vector<uint32_t> forth;
  for (; node != nullptr; node = mu_list_next(node)) forth.push_back(record_of(node).serial);
  EXPECT_EQ(forth, (std::vector<uint32_t>{0, 1, 2}));

  node = mu_list_last(list);
  EXPECT_EQ(node, list->tail);
  EXPECT_EQ(mu_list_next(node), nullptr);
  std::vector<uint32_t> back;
  for (; node != nullptr; node = mu_list_previous(node)) back.push_back(record_of(node).serial);
  EXPECT_EQ(back, (std::vector<uint32_t>{2, 1, 0}));
}

TEST_F(ListStepContract, KeepsANodesAddressAcrossOtherAddsAndDeletes) {
  mu_list_t *list = list_of({1, 2, 3});
  mu_list_node_t *const middle = mu_list_next(mu_list_first(list));
  mu_list_delete(list, mu_list_first(list));
  mu_list_delete(list, mu_list_last(list));
  const Record record{9, 9};
  for (int i = 0; i < 100; i++) mu_list_add(list, &record);
  EXPECT_EQ(mu_list_first(list), middle);
  EXPECT_EQ(record_of(middle).key, 2u);
}

// ---- Query ----------------------------------------------------------------------------------------------------------

TEST_F(ListQueryContract, FindsTheEarliestAddedOfSeveralMatches) {
  const mu_list_t *list = list_of({5, 3, 5});
  const uint32_t key = 5;
  EXPECT_EQ(mu_list_query(list, &key), mu_list_first(list));
}

TEST_F(ListQueryContract, FindsAMatchWhereverItStands) {
  const mu_list_t *list = list_of({40, 10, 30});
  uint32_t serial = 0;
  for (const uint32_t key : {40u, 10u, 30u}) {
    SCOPED_TRACE(key);
    mu_list_node_t *const node = mu_list_query(list, &key);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(record_of(node).serial, serial++);
  }
}

TEST_F(ListQueryContract, GivesNullWhenNothingMatches) {
  const uint32_t key = 4;
  EXPECT_EQ(mu_list_query(list_of({5, 3, 5}), &key), nullptr);
  EXPECT_EQ(g_compared.size(), 3u);
}

TEST_F(ListQueryContract, GivesNullInAnEmptyList) {
  const uint32_t key = 4;
  EXPECT_EQ(mu_list_query(list_of({}), &key), nullptr);
  EXPECT_TRUE(g_compared.empty());
}

TEST_F(ListQueryContract, GivesNullForANullListKeyOrCallbackWithoutComparing) {
  const uint32_t key = 5;
  EXPECT_EQ(mu_list_query(nullptr, &key), nullptr);
  EXPECT_EQ(mu_list_query(list_of({5}), nullptr), nullptr);
  mu_list_destory(g_list);
  EXPECT_EQ(mu_list_query(list_of({5}, nullptr), &key), nullptr);
  EXPECT_TRUE(g_compared.empty());
}

TEST_F(ListQueryContract, ComparesRecordThenKeyFromTheHeadUntilTheFirstMatch) {
  const mu_list_t *list = list_of({1, 2, 3, 2});
  const uint32_t key = 2;
  mu_list_query(list, &key);
  const std::vector<std::pair<const void *, const void *>> expected{{list->head->data, &key},
                                                                    {list->head->next->data, &key}};
  EXPECT_EQ(g_compared, expected);
}

TEST_F(ListQueryContract, TakesAnyNonzeroResultAsNoMatch) {
  static int32_t result;
  const mu_list_t *list = list_of({1}, [](const void *, const void *) { return result; });
  const uint32_t key = 1;
  for (const int32_t row : {1, -1, 2, 0x100, 0x10000, INT_MAX, INT_MIN}) {
    SCOPED_TRACE(row);
    result = row;
    EXPECT_EQ(mu_list_query(list, &key), nullptr);
  }
  result = 0;
  EXPECT_EQ(mu_list_query(list, &key), mu_list_first(list));
}

TEST_F(ListQueryContract, SeesARecordThatWasChangedInPlace) {
  const mu_list_t *list = list_of({5, 3});
  record_of(mu_list_first(list)).key = 8;
  const uint32_t before = 5;
  const uint32_t after = 8;
  EXPECT_EQ(mu_list_query(list, &before), nullptr);
  EXPECT_EQ(mu_list_query(list, &after), mu_list_first(list));
}

TEST_F(ListQueryContract, FindsTheNextMatchOnceTheEarlierIsDeleted) {
  mu_list_t *list = list_of({5, 3, 5});
  const uint32_t key = 5;
  mu_list_delete(list, mu_list_query(list, &key));
  mu_list_node_t *const node = mu_list_query(list, &key);
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(record_of(node).serial, 2u);
}

// ---- Traverse -------------------------------------------------------------------------------------------------------

TEST_F(ListTraverseContract, VisitsEachRecordHeadFirst) {
  const mu_list_t *list = list_of({5, 3, 5});
  mu_list_traverse(list, note);
  const std::vector<void *> expected{list->head->data, list->head->next->data, list->tail->data};
  EXPECT_EQ(g_visited, expected);
  EXPECT_TRUE(g_compared.empty());
}

TEST_F(ListTraverseContract, MakesNoCallForANullOrEmptyList) {
  mu_list_traverse(nullptr, note);
  mu_list_traverse(list_of({}), note);
  EXPECT_TRUE(g_visited.empty());
  mu_list_traverse(nullptr, nullptr);
  mu_list_traverse(g_list, nullptr);
}

TEST_F(ListTraverseContract, LetsTheCallbackChangeTheRecord) {
  const mu_list_t *list = list_of({5, 3});
  mu_list_traverse(list, [](void *record) { static_cast<Record *>(record)->key *= 10; });
  EXPECT_EQ(record_of(list->head).key, 50u);
  EXPECT_EQ(record_of(list->tail).key, 30u);
}

// Both need the node's successor to be read behind the callback, not before it.
TEST_F(ListTraverseContract, VisitsARecordThatTheCallbackAppends) {
  list_of({1});
  mu_list_traverse(g_list, [](void *record) {
    note(record);
    const Record another{7, 7};
    if (mu_list_count(g_list) < 3) mu_list_add(g_list, &another);
  });
  EXPECT_EQ(g_visited.size(), 3u);
}

TEST_F(ListTraverseContract, PassesOverASuccessorThatTheCallbackDeletes) {
  list_of({1, 2, 3});
  mu_list_traverse(g_list, [](void *record) {
    note(record);
    if (static_cast<Record *>(record)->key == 1) mu_list_delete(g_list, mu_list_next(mu_list_first(g_list)));
  });
  const std::vector<void *> expected{g_list->head->data, g_list->tail->data};
  EXPECT_EQ(g_visited, expected);
}
