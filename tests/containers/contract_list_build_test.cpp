// The list's own record, the layout of its nodes, and the ways in which both come to be.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "tarn/containers.h"

using namespace tarn_test;

namespace {

// The three pointers in front of a node's record.
constexpr int kHeaderBytes = 24;

int32_t never_called(const void *, const void *) {
  ADD_FAILURE() << "the compare callback serves queries alone";
  return 0;
}

struct Freed {
  void operator()(mu_list_t *list) const { mu_list_destory(list); }
};
using OwnedList = std::unique_ptr<mu_list_t, Freed>;

OwnedList list_of_u32() { return OwnedList(mu_list_create(sizeof(uint32_t), nullptr)); }

mu_status_t add(const OwnedList &list, uint32_t value) { return mu_list_add(list.get(), &value); }

uint32_t value(const mu_list_node_t *node) { return *static_cast<const uint32_t *>(node->data); }

}  // namespace

// ---- Create ---------------------------------------------------------------------------------------------------------

TEST(ListCreateContract, MakesAnEmptyListOfThatRecordSizeAndCallback) {
  for (const int size : {1, 2, 7, 48, 4096}) {
    SCOPED_TRACE(size);
    const OwnedList list(mu_list_create(size, never_called));
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->data_size, static_cast<uint32_t>(size));
    EXPECT_EQ(list->count, 0u);
    EXPECT_EQ(list->head, nullptr);
    EXPECT_EQ(list->tail, nullptr);
    EXPECT_EQ(list->cmp, never_called);
  }
}

TEST(ListCreateContract, TakesANullCallback) {
  const OwnedList list = list_of_u32();
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->cmp, nullptr);
}

TEST(ListCreateContract, RefusesARecordSizeOfZeroOrLessWithoutAllocating) {
  for (const int size : {0, -1, -4, INT_MIN}) {
    SCOPED_TRACE(size);
    const HeapWatch heap;
    const FailingMalloc none(INT_MAX);  // fails nothing, counts
    EXPECT_EQ(mu_list_create(size, never_called), nullptr);
    EXPECT_EQ(heap.live(), 0u);
    EXPECT_EQ(none.seen(), 0);
  }
}

TEST(ListCreateContract, GivesNullWhenMemoryRunsOut) {
  const FailingMalloc failing(1);
  EXPECT_EQ(mu_list_create(4, never_called), nullptr);
  EXPECT_EQ(failing.seen(), 1);
}

TEST(ListCreateContract, TakesOneBlock) {
  const HeapWatch heap;
  const OwnedList list = list_of_u32();
  EXPECT_EQ(heap.live(), 1u);
}

// ---- Add ------------------------------------------------------------------------------------------------------------

TEST(ListAddContract, MakesTheFirstNodeHeadAndTail) {
  const OwnedList list = list_of_u32();
  EXPECT_EQ(add(list, 5), 0);
  ASSERT_NE(list->head, nullptr);
  EXPECT_EQ(list->tail, list->head);
  EXPECT_EQ(list->head->prev, nullptr);
  EXPECT_EQ(list->head->next, nullptr);
  EXPECT_EQ(list->count, 1u);
  EXPECT_EQ(value(list->head), 5u);
}

TEST(ListAddContract, LinksEachFurtherNodeBehindTheTail) {
  const OwnedList list = list_of_u32();
  add(list, 5);
  mu_list_node_t *const first = list->tail;
  add(list, 3);
  mu_list_node_t *const second = list->tail;
  add(list, 5);
  mu_list_node_t *const third = list->tail;

  EXPECT_EQ(list->head, first);
  EXPECT_EQ(first->prev, nullptr);
  EXPECT_EQ(first->next, second);
  EXPECT_EQ(second->prev, first);
  EXPECT_EQ(second->next, third);
  EXPECT_EQ(third->prev, second);
  EXPECT_EQ(third->next, nullptr);
  EXPECT_EQ(list->count, 3u);
  EXPECT_EQ(value(first), 5u);
  EXPECT_EQ(value(second), 3u);
  EXPECT_EQ(value(third), 5u);
}

TEST(ListAddContract, KeepsInsertionOrderAndNeverCompares) {
  const OwnedList list(mu_list_create(sizeof(uint32_t), never_called));
  for (const uint32_t key : {9u, 1u, 5u, 1u}) add(list, key);
  std::vector<uint32_t> keys;
  for (const mu_list_node_t *node = mu_list_first(list.get()); node != nullptr; node = mu_list_next(node)) {
    keys.push_back(value(node));
  }
  EXPECT_EQ(keys, (std::vector<uint32_t>{9, 1, 5, 1}));
}

TEST(ListAddContract, PutsTheRecordRightBehindTheHeaderInTheNodesOwnBlock) {
  const HeapWatch heap;
  const OwnedList list = list_of_u32();
  for (size_t nodes = 1; nodes <= 3; nodes++) {
    add(list, 1);
    EXPECT_EQ(heap.live(), 1 + nodes) << "one block a node";
    EXPECT_EQ(list->tail->data, reinterpret_cast<char *>(list->tail) + kHeaderBytes);
  }
}

TEST(ListAddContract, CopiesAllBytesOfARecordOfAnySize) {
  for (const size_t size : {1u, 3u, 8u, 13u, 48u, 1000u}) {
    SCOPED_TRACE(size);
    const OwnedList list(mu_list_create(static_cast<int>(size), nullptr));
    std::vector<unsigned char> record(size);  // just as large: a sanitizer sees a byte read behind it
    for (size_t i = 0; i < size; i++) record[i] = static_cast<unsigned char>(i * 7 + 1);
    ASSERT_EQ(mu_list_add(list.get(), record.data()), 0);
    ASSERT_NE(list->head->data, record.data());
    EXPECT_EQ(memcmp(list->head->data, record.data(), size), 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(list->head->data) % 8, 0u);
  }
}

TEST(ListAddContract, CopiesTheRecordSoTheCallersMayChange) {
  const OwnedList list = list_of_u32();
  uint32_t record = 7;
  mu_list_add(list.get(), &record);
  record = 8;
  EXPECT_EQ(value(list->head), 7u);
}

TEST(ListAddContract, MakesIndependentCopiesOfOneRecordAddedTwice) {
  const OwnedList list = list_of_u32();
  const uint32_t record = 7;
  EXPECT_EQ(mu_list_add(list.get(), &record), 0);
  EXPECT_EQ(mu_list_add(list.get(), &record), 0);
  ASSERT_EQ(list->count, 2u);
  ASSERT_NE(list->head->data, list->tail->data);
  *static_cast<uint32_t *>(list->head->data) = 1;
  EXPECT_EQ(value(list->tail), 7u);
  EXPECT_EQ(record, 7u);
}

TEST(ListAddContract, RefusesANullListOrRecord) {
  const uint32_t record = 1;
  EXPECT_EQ(mu_list_add(nullptr, &record), -1);
  EXPECT_EQ(mu_list_add(nullptr, nullptr), -1);

  const OwnedList list = list_of_u32();
  add(list, 4);
  const mu_list_t before = *list;
  EXPECT_EQ(mu_list_add(list.get(), nullptr), -1);
  EXPECT_EQ(memcmp(list.get(), &before, sizeof before), 0);
}

TEST(ListAddContract, LeavesTheListAloneWhenMemoryRunsOut) {
  const OwnedList list = list_of_u32();
  for (const uint32_t nodes : {0u, 1u, 2u}) {
    SCOPED_TRACE(nodes);
    const mu_list_t before = *list;
    const mu_list_node_t tail_before = list->tail == nullptr ? mu_list_node_t{} : *list->tail;
    {
      const FailingMalloc failing(1);
      EXPECT_EQ(add(list, 99), -1);
      EXPECT_EQ(failing.seen(), 1);
    }
    EXPECT_EQ(memcmp(list.get(), &before, sizeof before), 0);
    EXPECT_TRUE(list->tail == nullptr || memcmp(list->tail, &tail_before, sizeof tail_before) == 0);
    EXPECT_EQ(list->count, nodes);
    EXPECT_EQ(add(list, nodes), 0) << "the list is usable as before";
  }
}

// 24 bytes of header and the record must fit a signed 32-bit size: 2147483623 is the largest record that does. The
// record is never read here: there is no memory for the first, and the others are refused before.
TEST(ListAddContract, RefusesARecordWhoseNodeSizeDoesNotFit32Bits) {
  const struct {
    int size;
    bool asks_for_memory;
  } rows[] = {{INT_MAX - kHeaderBytes, true}, {INT_MAX - kHeaderBytes + 1, false}, {INT_MAX, false}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.size);
    const OwnedList list(mu_list_create(row.size, nullptr));
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->data_size, static_cast<uint32_t>(row.size));
    const FailingMalloc failing(1, INT_MAX - 1);
    const uint32_t record = 1;
    EXPECT_EQ(mu_list_add(list.get(), &record), -1);
    EXPECT_EQ(failing.seen(), row.asks_for_memory ? 1 : 0);
    EXPECT_EQ(list->count, 0u);
    EXPECT_EQ(list->head, nullptr);
    EXPECT_EQ(list->tail, nullptr);
  }
}

// ---- Silence --------------------------------------------------------------------------------------------------------

TEST(ListFailureContract, PrintsNothing) {
  Console console;
  const OwnedList list = list_of_u32();
  const uint32_t record = 1;
  {
    const FailingMalloc failing(1, 2);
    EXPECT_EQ(mu_list_create(4, nullptr), nullptr);
    EXPECT_EQ(mu_list_add(list.get(), &record), -1);
  }
  EXPECT_EQ(mu_list_create(0, nullptr), nullptr);
  EXPECT_EQ(mu_list_add(nullptr, &record), -1);
  EXPECT_EQ(mu_list_add(list.get(), nullptr), -1);
  EXPECT_EQ(mu_list_delete(nullptr, nullptr), -1);
  EXPECT_EQ(mu_list_delete(list.get(), nullptr), -1);
  EXPECT_EQ(mu_list_delete_all(nullptr), -1);
  mu_list_destory(nullptr);
  EXPECT_EQ(mu_list_query(list.get(), &record), nullptr);
  EXPECT_EQ(mu_list_query(nullptr, &record), nullptr);
  mu_list_traverse(nullptr, nullptr);
  EXPECT_EQ(mu_list_count(nullptr), 0u);
  EXPECT_EQ(console.take(), "");
}
