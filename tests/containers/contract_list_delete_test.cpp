// Taking nodes out: one, all, and the list itself.

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "support/heap.h"
#include "tarn/containers.h"

using namespace tarn_test;

namespace {

// A list of the numbers 1, 2, ... `count`, and its nodes.
class ListDeleteContract : public testing::Test {
 protected:
  void SetUp() override { list_ = mu_list_create(sizeof(uint32_t), nullptr); }
  void TearDown() override { mu_list_destory(list_); }

  void fill(uint32_t count) {
    for (uint32_t number = 1; number <= count; number++) {
      ASSERT_EQ(mu_list_add(list_, &number), 0);
      nodes_.push_back(mu_list_last(list_));
    }
  }

  // The numbers from the head on; the links back and the count are checked on the way.
  std::vector<uint32_t> numbers() const {
    std::vector<uint32_t> found;
    const mu_list_node_t *before = nullptr;
    for (const mu_list_node_t *node = list_->head; node != nullptr; node = node->next) {
      EXPECT_EQ(node->prev, before);
      EXPECT_EQ(node->data, static_cast<const void *>(node + 1));
      found.push_back(*static_cast<const uint32_t *>(node->data));
      before = node;
    }
    EXPECT_EQ(list_->tail, before);
    EXPECT_EQ(list_->count, found.size());
    return found;
  }

  mu_list_t *list_ = nullptr;
  std::vector<mu_list_node_t *> nodes_;
};

using ListDeleteAllContract = ListDeleteContract;
using ListDestroyContract = ListDeleteContract;
using Numbers = std::vector<uint32_t>;

}  // namespace

// ---- One node -------------------------------------------------------------------------------------------------------

TEST_F(ListDeleteContract, EmptiesAListOfOneNode) {
  fill(1);
  EXPECT_EQ(mu_list_delete(list_, nodes_[0]), 0);
  EXPECT_EQ(list_->head, nullptr);
  EXPECT_EQ(list_->tail, nullptr);
  EXPECT_EQ(list_->count, 0u);
}

TEST_F(ListDeleteContract, MakesTheSecondNodeTheHead) {
  fill(3);
  EXPECT_EQ(mu_list_delete(list_, nodes_[0]), 0);
  EXPECT_EQ(list_->head, nodes_[1]);
  EXPECT_EQ(nodes_[1]->prev, nullptr);
  EXPECT_EQ(numbers(), (Numbers{2, 3}));
}

TEST_F(ListDeleteContract, JoinsTheNeighboursOfAMiddleNode) {
  fill(3);
  EXPECT_EQ(mu_list_delete(list_, nodes_[1]), 0);
  EXPECT_EQ(nodes_[0]->next, nodes_[2]);
  EXPECT_EQ(nodes_[2]->prev, nodes_[0]);
  EXPECT_EQ(numbers(), (Numbers{1, 3}));
}

TEST_F(ListDeleteContract, MakesTheLastButOneNodeTheTail) {
  fill(3);
  EXPECT_EQ(mu_list_delete(list_, nodes_[2]), 0);
  EXPECT_EQ(list_->tail, nodes_[1]);
  EXPECT_EQ(nodes_[1]->next, nullptr);
  EXPECT_EQ(numbers(), (Numbers{1, 2}));
}

TEST_F(ListDeleteContract, TakesANewNodeAfterwards) {
  for (size_t gone = 0; gone < 3; gone++) {
    SCOPED_TRACE(gone);
    nodes_.clear();
    fill(3);
    Numbers expected{1, 2, 3};
    expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(gone));
    expected.push_back(4);
    mu_list_delete(list_, nodes_[gone]);
    const uint32_t number = 4;
    EXPECT_EQ(mu_list_add(list_, &number), 0);
    EXPECT_EQ(numbers(), expected);
    mu_list_delete_all(list_);
  }
}

TEST_F(ListDeleteContract, FreesTheNodeWithItsRecordAndNothingElse) {
  const HeapWatch heap;
  fill(3);
  mu_list_delete(list_, nodes_[1]);
  EXPECT_EQ(heap.freed(), std::vector<void *>{nodes_[1]});
  EXPECT_EQ(heap.live(), 2u);
}

TEST_F(ListDeleteContract, RefusesNullPointersAndChangesNothing) {
  fill(2);
  const HeapWatch heap;
  EXPECT_EQ(mu_list_delete(nullptr, nodes_[0]), -1);
  EXPECT_EQ(mu_list_delete(list_, nullptr), -1);
  EXPECT_EQ(mu_list_delete(nullptr, nullptr), -1);
  EXPECT_EQ(numbers(), (Numbers{1, 2}));
}

// As the header asks of a walk: the successor is read before the node goes.
TEST_F(ListDeleteContract, ServesAWalkThatDeletesWhereItStands) {
  fill(6);
  for (mu_list_node_t *node = mu_list_first(list_); node != nullptr;) {
    mu_list_node_t *const next = mu_list_next(node);
    if (*static_cast<uint32_t *>(node->data) % 2 == 1) mu_list_delete(list_, node);
    node = next;
  }
  EXPECT_EQ(numbers(), (Numbers{2, 4, 6}));
}

// ---- All nodes ------------------------------------------------------------------------------------------------------

TEST_F(ListDeleteAllContract, AnswersZeroForAnEmptyList) { EXPECT_EQ(mu_list_delete_all(list_), 0); }

TEST_F(ListDeleteAllContract, RefusesNull) { EXPECT_EQ(mu_list_delete_all(nullptr), -1); }

TEST_F(ListDeleteAllContract, EmptiesTheListAndKeepsItsSettings) {
  fill(3);
  EXPECT_EQ(mu_list_delete_all(list_), 0);
  EXPECT_EQ(list_->head, nullptr);
  EXPECT_EQ(list_->tail, nullptr);
  EXPECT_EQ(list_->count, 0u);
  EXPECT_EQ(mu_list_count(list_), 0u);
  EXPECT_EQ(list_->data_size, sizeof(uint32_t));
  EXPECT_EQ(mu_list_delete_all(list_), 0) << "a second time";
}

TEST_F(ListDeleteAllContract, LeavesTheListReusable) {
  fill(3);
  mu_list_delete_all(list_);
  fill(2);
  EXPECT_EQ(numbers(), (Numbers{1, 2}));
}

TEST_F(ListDeleteAllContract, FreesFromTheTailBackToTheHead) {
  const HeapWatch heap;
  fill(4);
  mu_list_delete_all(list_);
  EXPECT_EQ(heap.freed(), (std::vector<void *>{nodes_[3], nodes_[2], nodes_[1], nodes_[0]}));
  EXPECT_EQ(heap.live(), 0u);
}

// ---- The list -------------------------------------------------------------------------------------------------------

TEST_F(ListDestroyContract, FreesFromTheTailBackToTheHeadAndThenTheList) {
  const HeapWatch heap;
  mu_list_destory(list_);
  list_ = mu_list_create(sizeof(uint32_t), nullptr);
  fill(3);
  mu_list_t *const list = std::exchange(list_, nullptr);
  mu_list_destory(list);
  EXPECT_EQ(heap.freed(), (std::vector<void *>{nodes_[2], nodes_[1], nodes_[0], list}));
  EXPECT_EQ(heap.live(), 0u);
}

TEST_F(ListDestroyContract, FreesAnEmptyList) {
  const HeapWatch heap;
  mu_list_t *const list = mu_list_create(4, nullptr);
  mu_list_destory(list);
  EXPECT_EQ(heap.freed(), std::vector<void *>{list});
}

TEST_F(ListDestroyContract, IgnoresNull) {
  const HeapWatch heap;
  mu_list_destory(nullptr);
  EXPECT_TRUE(heap.freed().empty());
}

// A chain that is freed by nested calls would need far more than the main thread's stack.
TEST_F(ListDestroyContract, FreesAMillionNodesWithoutOverflowingTheStack) {
  const auto grow = [this] {
    for (uint32_t number = 0; number < 1000000; number++) mu_list_add(list_, &number);
  };
  grow();
  ASSERT_EQ(mu_list_count(list_), 1000000u);
  EXPECT_EQ(mu_list_delete_all(list_), 0);
  EXPECT_EQ(mu_list_count(list_), 0u);
  grow();
  mu_list_destory(std::exchange(list_, nullptr));
}
