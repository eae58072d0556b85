// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The list through the caller's elements: every place where a node can be added or removed, the parts that must not
// change, and a comparison with a plain sequence.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "containers/fixture.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

class LstTest : public testing::Test {
 protected:
  static constexpr int kLongest = 5;  // the middle one's neighbours have further neighbours
  static constexpr int kSpare = 5;

  LstTest() { fill(0); }

  // Makes a list of the elements 0, 1, ... `length` - 1. The links of the others belong to no list.
  void fill(int length) {
    for (int i = 0; i <= kSpare; i++) elements_[i] = {{&garbage_, &garbage_}, 0, i};
    memset(&list_, 0xa5, sizeof list_);
    mu_lst_init(&list_);
    for (int i = 0; i < length; i++) mu_lst_add(&list_, node(i));
  }

  mu_lst_node *node(int i) { return &elements_[i].links; }

  // Whether the element has changed since `before` was recorded.
  bool is_changed(int i, const Element *before) const {
    return memcmp(&before[i], &elements_[i], sizeof(Element)) != 0;
  }

  mu_lst_node garbage_{};
  mu_lst list_;
  Element elements_[kSpare + 1];
};

using LstInit = LstTest;
using LstLayout = LstTest;
using LstInsert = LstTest;
using LstAdd = LstTest;
using LstDelete = LstTest;
using LstGet = LstTest;
using LstAccessors = LstTest;
using LstMemory = LstTest;

}  // namespace

// ---- The head -------------------------------------------------------------------------------------------------------

TEST_F(LstInit, EmptiesTheHeadWhateverItHeldAndWritesNothingBesideIt) {
  for (const Guarded::End end : kEnds) {
    const Guarded memory(std::vector<uint8_t>(sizeof(mu_lst), 0xa5), end);
    auto *const list = reinterpret_cast<mu_lst *>(memory.bytes());
    mu_lst_init(list);
    EXPECT_EQ(list->first, nullptr);
    EXPECT_EQ(list->last, nullptr);
    EXPECT_EQ(list->count, 0u);
  }
}

TEST_F(LstInit, ForgetsTheElementsWithoutTouchingThem) {
  fill(3);
  Element before[kSpare + 1];
  memcpy(before, elements_, sizeof before);
  mu_lst_init(&list_);
  EXPECT_EQ(numbers_of(list_), Numbers{});
  EXPECT_EQ(memcmp(before, elements_, sizeof before), 0);
}

TEST_F(LstLayout, HasTheTailBeforeTheHeadAndThePreviousNodeBeforeTheNext) {
  fill(3);
  const mu_lst_node *pointers[2];
  memcpy(pointers, &list_, sizeof pointers);
  EXPECT_EQ(pointers[0], node(2)) << "the tail, at byte 0";
  EXPECT_EQ(pointers[1], node(0)) << "the head, at byte 8";
  uint32_t count = 0;
  memcpy(&count, reinterpret_cast<const char *>(&list_) + 16, sizeof count);
  EXPECT_EQ(count, 3u);
  memcpy(pointers, node(1), sizeof pointers);
  EXPECT_EQ(pointers[0], node(0));
  EXPECT_EQ(pointers[1], node(2));
}

// ---- Insert and add -------------------------------------------------------------------------------------------------

TEST_F(LstInsert, LinksAfterEachNodeAndAtTheFrontOfListsOfEachLength) {
  for (int length = 0; length <= kLongest; length++) {
    for (int place = 0; place <= length; place++) {
      SCOPED_TRACE(testing::Message() << length << " nodes, to place " << place);
      fill(length);
      mu_lst_insert(&list_, place == 0 ? nullptr : node(place - 1), node(kSpare));
      Numbers expected = numbers_up_to(length);
      expected.insert(expected.begin() + place, kSpare);
      EXPECT_EQ(numbers_of(list_), expected);
      EXPECT_EQ(list_.first, node(expected.front()));
      EXPECT_EQ(list_.last, node(expected.back()));
    }
  }
}

TEST_F(LstInsert, TouchesTheNeighboursOnly) {
  fill(5);
  Element before[kSpare + 1];
  memcpy(before, elements_, sizeof before);
  mu_lst_insert(&list_, node(2), node(kSpare));
  for (const int far : {0, 1, 4}) EXPECT_FALSE(is_changed(far, before)) << far;
  EXPECT_EQ(node(2)->prev, node(1)) << "the far link of a neighbour";
  EXPECT_EQ(node(3)->next, node(4));
  EXPECT_EQ(elements_[kSpare].number, kSpare) << "what stands after the links";
}

TEST_F(LstAdd, AppendsAtTheTail) {
  for (int i = 0; i <= kSpare; i++) {
    mu_lst_add(&list_, node(i));
    EXPECT_EQ(list_.first, node(0));
    EXPECT_EQ(list_.last, node(i));
    EXPECT_EQ(numbers_of(list_), numbers_up_to(i + 1));
  }
}

// ---- Delete ---------------------------------------------------------------------------------------------------------

TEST_F(LstDelete, ClosesTheGapAtEachPlaceAndLeavesTheNodesOwnLinks) {
  for (int length = 1; length <= kLongest; length++) {
    for (int place = 0; place < length; place++) {
      SCOPED_TRACE(testing::Message() << place << " of " << length);
      fill(length);
      Element before[kSpare + 1];
      memcpy(before, elements_, sizeof before);
      mu_lst_delete(&list_, node(place));
      Numbers expected = numbers_up_to(length);
      expected.erase(expected.begin() + place);
      EXPECT_EQ(numbers_of(list_), expected);
      for (int i = 0; i < length; i++) {
        if (i == place - 1 || i == place + 1) continue;
        EXPECT_FALSE(is_changed(i, before)) << i;
      }
    }
  }
}

TEST_F(LstDelete, LetsAWalkGoOnFromTheDeletedNode) {
  fill(5);
  Numbers met;
  for (mu_lst_node *at = mu_lst_first(&list_); at != nullptr; at = mu_lst_next(at)) {
    met.push_back(number_of(at));
    if (number_of(at) % 2 == 0) mu_lst_delete(&list_, at);
  }
  EXPECT_EQ(met, (Numbers{0, 1, 2, 3, 4}));
  EXPECT_EQ(numbers_of(list_), (Numbers{1, 3}));
  for (mu_lst_node *at = mu_lst_last(&list_); at != nullptr; at = mu_lst_prev(at)) mu_lst_delete(&list_, at);
  EXPECT_EQ(numbers_of(list_), Numbers{});
}

TEST_F(LstDelete, FreesTheElementForAnotherList) {
  fill(3);
  mu_lst other;
  mu_lst_init(&other);
  mu_lst_add(&other, node(4));
  mu_lst_delete(&list_, node(1));
  mu_lst_insert(&other, nullptr, node(1));
  EXPECT_EQ(numbers_of(list_), (Numbers{0, 2}));
  EXPECT_EQ(numbers_of(other), (Numbers{1, 4}));
}

// ---- Get ------------------------------------------------------------------------------------------------------------

TEST_F(LstGet, TakesTheHeadUntilTheListIsEmptyAndLeavesTheNodesOwnLinks) {
  fill(kLongest);
  Numbers left = numbers_up_to(kLongest);
  while (!left.empty()) {
    const int head = left.front();
    const mu_lst_node links = *node(head);
    EXPECT_EQ(mu_lst_get(&list_), node(head));
    left.erase(left.begin());
    EXPECT_EQ(numbers_of(list_), left);
    EXPECT_EQ(node(head)->prev, nullptr);
    EXPECT_EQ(node(head)->next, links.next) << "not cleared";
    EXPECT_EQ(elements_[head].number, head);
  }
  EXPECT_EQ(list_.last, nullptr);
}

TEST_F(LstGet, OfAnEmptyListIsNullAndLeavesAListThatTakesNodes) {
  EXPECT_EQ(mu_lst_get(&list_), nullptr);
  EXPECT_EQ(numbers_of(list_), Numbers{});
  fill(2);
  for (mu_lst_node *const expected : {node(0), node(1), static_cast<mu_lst_node *>(nullptr)}) {
    EXPECT_EQ(mu_lst_get(&list_), expected);
  }
  mu_lst_add(&list_, node(3));
  EXPECT_EQ(numbers_of(list_), Numbers{3});
}

// ---- Accessors ------------------------------------------------------------------------------------------------------

TEST_F(LstAccessors, GiveTheFieldsWhateverTheseHold) {
  const mu_lst head{node(0), node(1), 0xfedcba98};
  EXPECT_EQ(mu_lst_last(&head), node(0));
  EXPECT_EQ(mu_lst_first(&head), node(1));
  EXPECT_EQ(mu_lst_count(&head), 0xfedcba98u);
  const mu_lst_node links{node(2), node(3)};
  EXPECT_EQ(mu_lst_prev(&links), node(2));
  EXPECT_EQ(mu_lst_next(&links), node(3));
}

TEST_F(LstAccessors, FindNothingInAnEmptyListAndBeyondItsEnds) {
  EXPECT_EQ(mu_lst_first(&list_), nullptr);
  EXPECT_EQ(mu_lst_last(&list_), nullptr);
  EXPECT_EQ(mu_lst_count(&list_), 0u);
  fill(3);
  EXPECT_EQ(mu_lst_first(&list_), node(0));
  EXPECT_EQ(mu_lst_last(&list_), node(2));
  EXPECT_EQ(mu_lst_count(&list_), 3u);
  for (int i = 0; i < 3; i++) {
    EXPECT_EQ(mu_lst_prev(node(i)), i == 0 ? nullptr : node(i - 1));
    EXPECT_EQ(mu_lst_next(node(i)), i == 2 ? nullptr : node(i + 1));
  }
}

TEST_F(LstAccessors, WriteNothing) {
  const Guarded memory(sizeof(mu_lst) + sizeof(mu_lst_node));
  auto *const list = reinterpret_cast<mu_lst *>(memory.bytes());
  auto *const only = reinterpret_cast<mu_lst_node *>(memory.bytes() + sizeof(mu_lst));
  mu_lst_add(list, only);
  memory.protect(PROT_READ);
  EXPECT_EQ(mu_lst_first(list), only);
  EXPECT_EQ(mu_lst_last(list), only);
  EXPECT_EQ(mu_lst_count(list), 1u);
  EXPECT_EQ(mu_lst_next(only), nullptr);
  EXPECT_EQ(mu_lst_prev(only), nullptr);
}

// ---- The whole ------------------------------------------------------------------------------------------------------

TEST_F(LstMemory, IsThatOfTheLinksOnly) {
  const Guarded front(sizeof(mu_lst_node), Guarded::kFront);
  const Guarded back(sizeof(mu_lst_node), Guarded::kBack);
  auto *const a = reinterpret_cast<mu_lst_node *>(front.bytes());
  auto *const b = reinterpret_cast<mu_lst_node *>(back.bytes());
  mu_lst_add(&list_, a);
  mu_lst_add(&list_, b);
  EXPECT_EQ(mu_lst_get(&list_), a);
  mu_lst_insert(&list_, nullptr, a);
  mu_lst_delete(&list_, a);
  EXPECT_EQ(list_.first, b);
}

TEST_F(LstMemory, IsNeitherAllocatedNorFreedAndNothingIsPrinted) {
  Console console;
  const FailingMalloc no_memory(1, 1000);
  const HeapWatch heap;
  fill(3);
  mu_lst_delete(&list_, node(1));
  mu_lst_insert(&list_, node(0), node(1));
  while (mu_lst_get(&list_) != nullptr) {
  }
  EXPECT_EQ(no_memory.seen(), 0);
  EXPECT_TRUE(heap.freed().empty());
  EXPECT_EQ(console.take(), "");
}

TEST(LstModel, AgreesWithAPlainSequenceOverRandomCalls) {
  constexpr int kNodes = 24;
  for (const uint64_t seed : {1u, 2u, 3u}) {
    Random random(seed);
    mu_lst list;
    mu_lst_init(&list);
    Element elements[kNodes] = {};
    for (int i = 0; i < kNodes; i++) elements[i].number = i;
    Numbers unused = numbers_up_to(kNodes);
    Numbers model;
    const auto node = [&](int i) { return &elements[i].links; };
    const auto place_in = [&random](Numbers &some) {
      return some.begin() + static_cast<std::ptrdiff_t>(random.below(some.size()));
    };
    for (int step = 0; step < 4000; step++) {
      SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << step);
      const uint64_t choice = random.below(8);
      if (choice < 4 && !unused.empty()) {
        const auto place = place_in(unused);
        if (choice == 0) {
          mu_lst_add(&list, node(*place));
          model.push_back(*place);
        } else if (choice == 1 || model.empty()) {
          mu_lst_insert(&list, nullptr, node(*place));
          model.insert(model.begin(), *place);
        } else {
          const auto after = place_in(model);
          mu_lst_insert(&list, node(*after), node(*place));
          model.insert(after + 1, *place);
        }
        unused.erase(place);
      } else if (choice == 4) {
        const mu_lst_node *const head = mu_lst_get(&list);
        ASSERT_EQ(head, model.empty() ? nullptr : node(model.front()));
        if (model.empty()) continue;
        unused.push_back(model.front());
        model.erase(model.begin());
      } else if (!model.empty()) {
        const auto place = place_in(model);
        mu_lst_delete(&list, node(*place));
        unused.push_back(*place);
        model.erase(place);
      }
      ASSERT_EQ(numbers_of(list), model);
    }
  }
}
