// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The list of record copies: creation, the layout of its nodes, adding, and removing one node, all nodes, or the list.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "containers/fixture.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

using ListCreate = ListTest;
using ListAdd = ListTest;
using ListDelete = ListTest;
using ListDeleteAll = ListTest;
using ListDestory = ListTest;
using ListFailures = ListTest;

// The three pointers of a node, before its record.
constexpr int kHeaderBytes = 24;

int32_t never_called(const void *, const void *) {
  ADD_FAILURE() << "the compare callback serves queries only";
  return 0;
}

}  // namespace

// ---- Create ---------------------------------------------------------------------------------------------------------

TEST_F(ListCreate, MakesAnEmptyListOfThatRecordSizeAndCallback) {
  const MarkedMemory marked;
  for (const mu_list_cmp_cb_t cmp : {never_called, mu_list_cmp_cb_t{nullptr}}) {
    for (const int size : {1, 2, 7, 48, 4096, INT_MAX}) {
      SCOPED_TRACE(size);
      mu_list_t *const list = mu_list_create(size, cmp);
      ASSERT_NE(list, nullptr);
      EXPECT_EQ(list->data_size, static_cast<uint32_t>(size));
      EXPECT_EQ(list->count, 0u);
      EXPECT_EQ(list->head, nullptr);
      EXPECT_EQ(list->tail, nullptr);
      EXPECT_EQ(list->cmp, cmp);
      mu_list_destory(list);
    }
  }
}

TEST_F(ListCreate, RefusesARecordSizeOfZeroOrLessWithoutAllocating) {
  const FailingMalloc none(INT_MAX);  // only counts, nothing fails
  for (const int size : {0, -1, -4, INT_MIN}) EXPECT_EQ(mu_list_create(size, by_key), nullptr) << size;
  EXPECT_EQ(none.seen(), 0);
}

TEST_F(ListCreate, GivesNullWhenMemoryRunsOut) {
  const FailingMalloc failing(1);
  EXPECT_EQ(mu_list_create(4, by_key), nullptr);
  EXPECT_EQ(failing.seen(), 1);
}

TEST_F(ListCreate, TakesOneBlock) {
  const HeapWatch heap;
  mu_list_t *const list = mu_list_create(4, nullptr);
  EXPECT_EQ(heap.live(), 1u);
  mu_list_destory(list);
}

// ---- Add ------------------------------------------------------------------------------------------------------------

TEST_F(ListAdd, LinksEachNodeAfterTheTailAndNeverCompares) {
  list_->cmp = never_called;
  Nodes expected;
  for (const uint32_t key : {5u, 3u, 5u, 1u}) {
    EXPECT_EQ(add(key), 0);
    expected.push_back(list_->tail);
    EXPECT_EQ(nodes(), expected);
  }
  EXPECT_EQ(keys(), (Keys{5, 3, 5, 1}));
}

TEST_F(ListAdd, PutsTheRecordRightAfterTheHeaderInTheNodesOwnBlock) {
  const HeapWatch heap;
  const NotedSizes noted;
  for (size_t count = 1; count <= 3; count++) {
    fill({1});
    EXPECT_EQ(heap.live(), count) << "one block a node";
    EXPECT_EQ(list_->tail->data, reinterpret_cast<char *>(list_->tail) + kHeaderBytes);
  }
  EXPECT_EQ(noted.sizes, std::vector<size_t>(3, kHeaderBytes + sizeof(Record)));
}

TEST_F(ListAdd, CopiesExactlyTheBytesOfARecordOfAnySize) {
  Random random(1);
  for (const size_t size : {1u, 3u, 8u, 13u, 48u, 1000u}) {
    for (const Guarded::End end : kEnds) {
      SCOPED_TRACE(size);
      mu_list_t *const list = mu_list_create(static_cast<int>(size), nullptr);
      const Guarded record(random.bytes(size), end);
      record.protect(PROT_READ);
      ASSERT_EQ(mu_list_add(list, record.bytes()), 0);
      ASSERT_NE(list->head->data, record.bytes());
      EXPECT_EQ(memcmp(list->head->data, record.bytes(), size), 0);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(list->head->data) % 8, 0u);
      mu_list_destory(list);
    }
  }
}

TEST_F(ListAdd, MakesAnIndependentCopyEachTime) {
  Record record{7, 1};
  EXPECT_EQ(mu_list_add(list_, &record), 0);
  EXPECT_EQ(mu_list_add(list_, &record), 0);
  ASSERT_NE(list_->head->data, list_->tail->data);
  record.key = 8;
  EXPECT_EQ(keys(), (Keys{7, 7}));
  record_of(list_->head).key = 1;
  EXPECT_EQ(keys(), (Keys{1, 7}));
  EXPECT_EQ(record_of(list_->tail).serial, 1u);
  EXPECT_EQ(record.key, 8u);
}

TEST_F(ListAdd, RefusesANullListOrRecord) {
  fill({4});
  const mu_list_t before = *list_;
  const Record record{};
  EXPECT_EQ(mu_list_add(nullptr, &record), -1);
  EXPECT_EQ(mu_list_add(nullptr, nullptr), -1);
  EXPECT_EQ(mu_list_add(list_, nullptr), -1);
  EXPECT_EQ(memcmp(list_, &before, sizeof before), 0);
}

TEST_F(ListAdd, LeavesTheListAsItWasWhenMemoryRunsOut) {
  for (const size_t count : {0u, 1u, 2u}) {
    SCOPED_TRACE(count);
    const mu_list_t before = *list_;
    const Nodes nodes_before = nodes();
    {
      const FailingMalloc failing(1);
      EXPECT_EQ(add(99), -1);
      EXPECT_EQ(failing.seen(), 1);
    }
    EXPECT_EQ(memcmp(list_, &before, sizeof before), 0);
    EXPECT_EQ(nodes(), nodes_before);
    EXPECT_EQ(add(1), 0) << "the list is usable as before";
  }
}

// 24 bytes of header and the record must fit a signed 32-bit size: 2147483623 is the largest record that does. The
// record is never read here: memory runs out for the first, and the others are refused earlier.
TEST_F(ListAdd, RefusesARecordWhoseNodeSizePassesAnInt) {
  const struct {
    int size;
    bool asks_for_memory;
  } rows[] = {{INT_MAX - kHeaderBytes, true}, {INT_MAX - kHeaderBytes + 1, false}, {INT_MAX, false}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.size);
    list_->data_size = static_cast<uint32_t>(row.size);
    const FailingMalloc failing(1, INT_MAX - 1);
    EXPECT_EQ(add(1), -1);
    EXPECT_EQ(failing.seen(), row.asks_for_memory ? 1 : 0);
    EXPECT_EQ(keys(), Keys{});
  }
}

// ---- Delete ---------------------------------------------------------------------------------------------------------

TEST_F(ListDelete, ClosesTheGapAtEachPlaceOfListsOfEachLength) {
  for (size_t length = 1; length <= 4; length++) {
    for (size_t place = 0; place < length; place++) {
      SCOPED_TRACE(testing::Message() << place << " of " << length);
      for (size_t i = 0; i < length; i++) fill({1});
      Nodes left = nodes();
      EXPECT_EQ(mu_list_delete(list_, left[place]), 0);
      left.erase(left.begin() + static_cast<std::ptrdiff_t>(place));
      EXPECT_EQ(nodes(), left);
      fill({2});  // the tail is where the next node goes
      left.push_back(list_->tail);
      EXPECT_EQ(nodes(), left);
      mu_list_delete_all(list_);
    }
  }
}

TEST_F(ListDelete, FreesTheNodeWithItsRecordAndNothingElse) {
  const HeapWatch heap;
  fill({1, 2, 3});
  mu_list_node_t *const middle = nodes()[1];
  mu_list_delete(list_, middle);
  EXPECT_EQ(heap.freed(), std::vector<void *>{middle});
  EXPECT_EQ(heap.live(), 2u);
}

TEST_F(ListDelete, RefusesNullPointersAndChangesNothing) {
  fill({1, 2});
  EXPECT_EQ(mu_list_delete(nullptr, list_->head), -1);
  EXPECT_EQ(mu_list_delete(list_, nullptr), -1);
  EXPECT_EQ(mu_list_delete(nullptr, nullptr), -1);
  EXPECT_EQ(keys(), (Keys{1, 2}));
}

// As the header requires of a walk, the successor is read before the node is deleted.
TEST_F(ListDelete, ServesAWalkThatDeletesWhereItStands) {
  fill({1, 2, 3, 4, 5, 6});
  for (mu_list_node_t *node = mu_list_first(list_); node != nullptr;) {
    mu_list_node_t *const next = mu_list_next(node);
    if (record_of(node).key % 2 == 1) mu_list_delete(list_, node);
    node = next;
  }
  EXPECT_EQ(keys(), (Keys{2, 4, 6}));
}

TEST_F(ListDeleteAll, FreesFromTheTailBackToTheHead) {
  const HeapWatch heap;
  fill({1, 2, 3, 4});
  const Nodes all = nodes();
  EXPECT_EQ(mu_list_delete_all(list_), 0);
  EXPECT_EQ(heap.freed(), std::vector<void *>(all.rbegin(), all.rend()));
  EXPECT_EQ(heap.live(), 0u);
}

TEST_F(ListDeleteAll, LeavesAnEmptyListThatKeepsItsSettingsAndIsUsable) {
  EXPECT_EQ(mu_list_delete_all(list_), 0) << "an empty list too";
  fill({1, 2, 3});
  for (int time = 0; time < 2; time++) {
    EXPECT_EQ(mu_list_delete_all(list_), 0);
    EXPECT_EQ(list_->head, nullptr);
    EXPECT_EQ(list_->tail, nullptr);
    EXPECT_EQ(mu_list_count(list_), 0u);
    EXPECT_EQ(list_->data_size, sizeof(Record));
    EXPECT_EQ(list_->cmp, by_key);
  }
  fill({4, 5});
  EXPECT_EQ(keys(), (Keys{4, 5}));
}

TEST_F(ListDeleteAll, RefusesNull) { EXPECT_EQ(mu_list_delete_all(nullptr), -1); }

TEST_F(ListDestory, FreesFromTheTailBackToTheHeadAndThenTheList) {
  for (const size_t length : {0u, 1u, 3u}) {
    SCOPED_TRACE(length);
    const HeapWatch heap;
    mu_list_t *const list = mu_list_create(1, nullptr);
    std::vector<void *> expected{list};
    for (size_t i = 0; i < length; i++) {
      mu_list_add(list, "a");
      expected.insert(expected.begin(), list->tail);
    }
    mu_list_destory(list);
    EXPECT_EQ(heap.freed(), expected);
    EXPECT_EQ(heap.live(), 0u);
  }
}

TEST_F(ListDestory, IgnoresNull) {
  const HeapWatch heap;
  mu_list_destory(nullptr);
  EXPECT_TRUE(heap.freed().empty());
}

// A chain that is freed by nested calls would need far more than the main thread's stack.
TEST_F(ListDestory, NeedsNoStackForAMillionNodesNorDoesDeleteAll) {
  const auto grow = [this] {
    const Record record{};
    for (int i = 0; i < 1000000; i++) mu_list_add(list_, &record);
    ASSERT_EQ(mu_list_count(list_), 1000000u);
  };
  grow();
  EXPECT_EQ(mu_list_delete_all(list_), 0);
  EXPECT_EQ(mu_list_count(list_), 0u);
  grow();
  mu_list_destory(std::exchange(list_, nullptr));
}

TEST_F(ListFailures, PrintNothing) {
  Console console;
  const uint32_t key = 1;
  {
    const FailingMalloc failing(1, 2);
    EXPECT_EQ(mu_list_create(4, nullptr), nullptr);
    EXPECT_EQ(add(1), -1);
  }
  EXPECT_EQ(mu_list_create(0, nullptr), nullptr);
  EXPECT_EQ(mu_list_add(nullptr, &key), -1);
  EXPECT_EQ(mu_list_add(list_, nullptr), -1);
  EXPECT_EQ(mu_list_delete(nullptr, nullptr), -1);
  EXPECT_EQ(mu_list_delete(list_, nullptr), -1);
  EXPECT_EQ(mu_list_delete_all(nullptr), -1);
  mu_list_destory(nullptr);
  EXPECT_EQ(mu_list_query(list_, &key), nullptr);
  EXPECT_EQ(mu_list_query(nullptr, &key), nullptr);
  mu_list_traverse(nullptr, nullptr);
  EXPECT_EQ(mu_list_count(nullptr), 0u);
  EXPECT_EQ(console.take(), "");
}
