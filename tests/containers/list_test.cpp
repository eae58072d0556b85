#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

#include "support/heap.h"
#include "support/libc.h"
#include "tarn/containers.h"

using namespace tarn_test;

namespace {

struct Record {
  int key;
  char payload[13];
};

int32_t compare_keys(const void *record, const void *key) {
  const int own = static_cast<const Record *>(record)->key;
  const int searched = *static_cast<const int *>(key);
  return (own > searched) - (own < searched);
}

int key_of(const mu_list_node_t *node) { return static_cast<const Record *>(node->data)->key; }

class MuList : public testing::Test {
 protected:
  ~MuList() override { mu_list_destory(list_); }

  void add(std::initializer_list<int> keys) {
    for (int key : keys) {
      const Record record{key, "payload"};
      ASSERT_EQ(mu_list_add(list_, &record), 0);
    }
  }

  // The keys from the head on, after a check of every link.
  std::vector<int> keys() const {
    std::vector<int> result;
    const mu_list_node_t *before = nullptr;
    for (const mu_list_node_t *node = mu_list_first(list_); node != nullptr; node = mu_list_next(node)) {
      EXPECT_EQ(mu_list_previous(node), before);
      EXPECT_EQ(node->data, node + 1);
      result.push_back(key_of(node));
      before = node;
    }
    EXPECT_EQ(mu_list_last(list_), before);
    EXPECT_EQ(mu_list_count(list_), result.size());
    return result;
  }

  mu_list_node_t *find(int key) { return mu_list_query(list_, &key); }

  mu_list_t *list_ = mu_list_create(sizeof(Record), compare_keys);
};

using Keys = std::vector<int>;

}  // namespace

TEST_F(MuList, StartsEmpty) {
  ASSERT_NE(list_, nullptr);
  EXPECT_EQ(list_->data_size, sizeof(Record));
  EXPECT_EQ(list_->cmp, compare_keys);
  EXPECT_EQ(keys(), Keys{});
}

TEST_F(MuList, RefusesRecordsWithoutASize) {
  EXPECT_EQ(mu_list_create(0, compare_keys), nullptr);
  EXPECT_EQ(mu_list_create(-1, compare_keys), nullptr);
  EXPECT_EQ(mu_list_create(INT_MIN, compare_keys), nullptr);
}

TEST_F(MuList, IsNullWhenMemoryRunsOut) {
  FailingMalloc no_memory(1);
  EXPECT_EQ(mu_list_create(4, nullptr), nullptr);
}

TEST_F(MuList, KeepsTheOrderOfAdding) {
  add({5, 3, 5});
  EXPECT_EQ(keys(), (Keys{5, 3, 5}));
}

TEST_F(MuList, KeepsCopies) {
  Record record{1, "one"};
  mu_list_add(list_, &record);
  record = {2, "two"};
  mu_list_add(list_, &record);
  mu_list_add(list_, &record);  // no check for duplicates: an independent copy
  EXPECT_EQ(keys(), (Keys{1, 2, 2}));
  EXPECT_STREQ(static_cast<Record *>(mu_list_first(list_)->data)->payload, "one");
  static_cast<Record *>(mu_list_last(list_)->data)->key = 9;
  EXPECT_EQ(keys(), (Keys{1, 2, 9}));
}

TEST_F(MuList, AddAllocatesHeaderAndRecordAsOneBlock) {
  size_t size = 0;
  Replace malloc(libc::malloc, [&](size_t bytes) {
    size = bytes;
    return libc::malloc.real(bytes);
  });
  add({1});
  EXPECT_EQ(size, 24 + sizeof(Record));
}

TEST_F(MuList, AddRefusesNullArguments) {
  const Record record{};
  EXPECT_EQ(mu_list_add(nullptr, &record), -1);
  EXPECT_EQ(mu_list_add(list_, nullptr), -1);
  EXPECT_EQ(mu_list_count(list_), 0u);
}

TEST_F(MuList, AddLeavesTheListAloneWhenMemoryRunsOut) {
  add({1, 2});
  {
    FailingMalloc no_memory(1);
    const Record record{3, ""};
    EXPECT_EQ(mu_list_add(list_, &record), -1);
  }
  EXPECT_EQ(keys(), (Keys{1, 2}));
}

TEST_F(MuList, AddRefusesARecordWhoseNodeWouldPassTheLargestSize) {
  mu_list_t *huge = mu_list_create(INT_MAX, nullptr);
  ASSERT_NE(huge, nullptr);
  FailingMalloc memory(1);
  EXPECT_EQ(mu_list_add(huge, "x"), -1);
  EXPECT_EQ(memory.seen(), 0);  // 0x7FFFFFFF + 24 is no size that could be asked for
  mu_list_destory(huge);
}

TEST_F(MuList, DeleteClosesTheGap) {
  struct Row {
    int key;
    Keys left;
  };
  const Row rows[] = {{1, {2, 3}}, {2, {1, 3}}, {3, {1, 2}}};
  for (const Row &row : rows) {
    mu_list_delete_all(list_);
    add({1, 2, 3});
    EXPECT_EQ(mu_list_delete(list_, find(row.key)), 0);
    EXPECT_EQ(keys(), row.left) << row.key;
  }
}

TEST_F(MuList, DeleteOfTheOnlyNodeLeavesAnEmptyList) {
  add({1});
  EXPECT_EQ(mu_list_delete(list_, mu_list_first(list_)), 0);
  EXPECT_EQ(list_->head, nullptr);
  EXPECT_EQ(list_->tail, nullptr);
  EXPECT_EQ(list_->count, 0u);
  add({2});
  EXPECT_EQ(keys(), Keys{2});
}

TEST_F(MuList, DeleteRefusesNullArguments) {
  add({1});
  EXPECT_EQ(mu_list_delete(nullptr, mu_list_first(list_)), -1);
  EXPECT_EQ(mu_list_delete(list_, nullptr), -1);
  EXPECT_EQ(keys(), Keys{1});
}

TEST_F(MuList, DeleteFreesTheNode) {
  HeapWatch heap;
  add({1});
  mu_list_node_t *node = mu_list_first(list_);
  mu_list_delete(list_, node);
  EXPECT_EQ(heap.freed(), std::vector<void *>{node});
}

TEST_F(MuList, DeleteAllFreesFromTheTail) {
  HeapWatch heap;
  add({1, 2, 3});
  const std::vector<void *> nodes = {find(3), find(2), find(1)};
  EXPECT_EQ(mu_list_delete_all(list_), 0);
  EXPECT_EQ(heap.freed(), nodes);
  EXPECT_EQ(keys(), Keys{});
  EXPECT_EQ(mu_list_delete_all(list_), 0);  // an empty list too
  add({4});
  EXPECT_EQ(keys(), Keys{4});
  EXPECT_EQ(mu_list_delete_all(nullptr), -1);
}

TEST(MuListDestory, FreesEveryNodeFromTheTailThenTheList) {
  HeapWatch heap;
  mu_list_t *list = mu_list_create(1, nullptr);
  mu_list_add(list, "a");
  mu_list_add(list, "b");
  const std::vector<void *> blocks = {list->tail, list->head, list};
  mu_list_destory(list);
  EXPECT_EQ(heap.freed(), blocks);
  EXPECT_EQ(heap.live(), 0u);
  mu_list_destory(nullptr);
}

TEST(MuListDestory, NeedsNoStackForALongList) {
  mu_list_t *list = mu_list_create(1, nullptr);
  for (int i = 0; i < 1000000; i++) mu_list_add(list, "x");
  EXPECT_EQ(mu_list_count(list), 1000000u);
  mu_list_destory(list);
}

TEST_F(MuList, NeighboursOfNullAreNull) {
  EXPECT_EQ(mu_list_first(nullptr), nullptr);
  EXPECT_EQ(mu_list_last(nullptr), nullptr);
  EXPECT_EQ(mu_list_next(nullptr), nullptr);
  EXPECT_EQ(mu_list_previous(nullptr), nullptr);
  EXPECT_EQ(mu_list_count(nullptr), 0u);
}

TEST_F(MuList, QueryFindsTheEarliestMatch) {
  add({5, 3, 5});
  EXPECT_EQ(find(5), mu_list_first(list_));
  EXPECT_EQ(find(3), mu_list_next(mu_list_first(list_)));
  EXPECT_EQ(find(4), nullptr);
}

TEST_F(MuList, QuerySeesChangedRecords) {
  add({1, 2});
  static_cast<Record *>(mu_list_first(list_)->data)->key = 7;
  EXPECT_EQ(find(1), nullptr);
  EXPECT_EQ(find(7), mu_list_first(list_));
}

TEST_F(MuList, QueryWithoutListKeyOrCallbackIsNull) {
  add({1});
  const int key = 1;
  EXPECT_EQ(mu_list_query(nullptr, &key), nullptr);
  EXPECT_EQ(mu_list_query(list_, nullptr), nullptr);
  list_->cmp = nullptr;
  EXPECT_EQ(mu_list_query(list_, &key), nullptr);
}

TEST_F(MuList, QueryTakesAnyNonzeroResultAsNoMatch) {
  add({1, 2});
  list_->cmp = [](const void *record, const void *) -> int32_t {
    return static_cast<const Record *>(record)->key == 2 ? 0 : INT32_MIN;
  };
  EXPECT_EQ(key_of(find(99)), 2);
}

TEST_F(MuList, TraverseVisitsHeadFirst) {
  static Keys visited;
  add({3, 1, 2});
  mu_list_traverse(list_, [](void *record) { visited.push_back(static_cast<Record *>(record)->key); });
  EXPECT_EQ(visited, (Keys{3, 1, 2}));
}

TEST_F(MuList, TraverseReadsTheNextNodeAfterTheVisit) {
  static mu_list_t *list;
  static int visits;
  list = list_;
  add({1});
  mu_list_traverse(list_, [](void *) {
    const Record record{2, ""};
    if (++visits < 3) mu_list_add(list, &record);
  });
  EXPECT_EQ(visits, 3);
}

TEST_F(MuList, TraverseOfNothingCallsNothing) {
  mu_list_traverse(list_, nullptr);
  mu_list_traverse(nullptr, nullptr);
}
