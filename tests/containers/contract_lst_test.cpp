// The list through the caller's elements: every place a node can be put or taken from, and what stays as it was.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "containers/fenced.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "tarn/containers.h"

using namespace tarn_test;

namespace {

struct Element {
  mu_lst_node links;
  uint64_t number;
};

using Numbers = std::vector<uint64_t>;

uint64_t number_of(const mu_lst_node *node) { return reinterpret_cast<const Element *>(node)->number; }

// What the list holds, from the head on. Both directions, the ends and the count are checked on the way.
Numbers numbers(const mu_lst &list) {
  Numbers found;
  const mu_lst_node *before = nullptr;
  for (const mu_lst_node *node = list.first; node != nullptr; node = node->next) {
    EXPECT_EQ(node->prev, before);
    found.push_back(number_of(node));
    before = node;
  }
  EXPECT_EQ(list.last, before);
  EXPECT_EQ(list.count, found.size());
  return found;
}

// What stands in links that nobody has set.
mu_lst_node g_garbage;
mu_lst_node *garbage() { return &g_garbage; }

class LstContract : public testing::Test {
 protected:
  static constexpr size_t kElements = 6;

  LstContract() {
    memset(&list_, 0xa5, sizeof list_);
    mu_lst_init(&list_);
    for (size_t i = 0; i < kElements; i++) elements_[i] = {{garbage(), garbage()}, i};
  }

  mu_lst_node *node(size_t i) { return &elements_[i].links; }

  // Appends the elements 0, 1, ... `count` - 1.
  void fill(size_t count) {
    for (size_t i = 0; i < count; i++) mu_lst_add(&list_, node(i));
  }

  void expect_empty() const {
    EXPECT_EQ(list_.first, nullptr);
    EXPECT_EQ(list_.last, nullptr);
    EXPECT_EQ(list_.count, 0u);
  }

  mu_lst list_;
  Element elements_[kElements];
};

using LstInitContract = LstContract;
using LstInsertContract = LstContract;
using LstAddContract = LstContract;
using LstDeleteContract = LstContract;
using LstGetContract = LstContract;
using LstReadContract = LstContract;

}  // namespace

// ---- Initialisation -------------------------------------------------------------------------------------------------

TEST_F(LstInitContract, ZeroesBothPointersAndTheCount) { expect_empty(); }

TEST_F(LstInitContract, WritesNothingBeyondTheHead) {
  for (const Fenced::End end : {Fenced::kFront, Fenced::kBack}) {
    const Fenced memory(sizeof(mu_lst), end);
    memset(memory.bytes(), 0xff, sizeof(mu_lst));
    auto *const list = reinterpret_cast<mu_lst *>(memory.bytes());
    mu_lst_init(list);
    EXPECT_EQ(list->first, nullptr);
    EXPECT_EQ(list->last, nullptr);
    EXPECT_EQ(list->count, 0u);
  }
}

TEST_F(LstInitContract, ForgetsWhatTheListHeldWithoutTouchingIt) {
  fill(3);
  Element before[kElements];
  memcpy(before, elements_, sizeof before);
  mu_lst_init(&list_);
  expect_empty();
  EXPECT_EQ(memcmp(before, elements_, sizeof before), 0);
}

TEST(LstLayoutContract, HasTheTailBeforeTheHead) {
  mu_lst list;
  memset(&list, 0, sizeof list);
  Element elements[2] = {};
  mu_lst_add(&list, &elements[0].links);
  mu_lst_add(&list, &elements[1].links);
  const mu_lst_node *pointers[2];
  memcpy(pointers, &list, sizeof pointers);
  EXPECT_EQ(pointers[0], &elements[1].links) << "the tail, at byte 0";
  EXPECT_EQ(pointers[1], &elements[0].links) << "the head, at byte 8";
  uint32_t count = 0;
  memcpy(&count, reinterpret_cast<const char *>(&list) + 16, sizeof count);
  EXPECT_EQ(count, 2u);
}

TEST(LstLayoutContract, HasThePreviousNodeBeforeTheNext) {
  mu_lst list;
  mu_lst_init(&list);
  Element elements[3] = {};
  for (Element &element : elements) mu_lst_add(&list, &element.links);
  const mu_lst_node *links[2];
  memcpy(links, &elements[1], sizeof links);
  EXPECT_EQ(links[0], &elements[0].links);
  EXPECT_EQ(links[1], &elements[2].links);
}

// ---- Insert ---------------------------------------------------------------------------------------------------------

TEST_F(LstInsertContract, MakesTheOnlyNodeHeadAndTail) {
  mu_lst_insert(&list_, nullptr, node(0));
  EXPECT_EQ(list_.first, node(0));
  EXPECT_EQ(list_.last, node(0));
  EXPECT_EQ(list_.count, 1u);
  EXPECT_EQ(node(0)->prev, nullptr) << "the links were garbage";
  EXPECT_EQ(node(0)->next, nullptr);
}

TEST_F(LstInsertContract, PutsANodeBeforeTheHeadWhenAfterIsNull) {
  fill(2);
  mu_lst_insert(&list_, nullptr, node(5));
  EXPECT_EQ(list_.first, node(5));
  EXPECT_EQ(list_.last, node(1)) << "the tail stays";
  EXPECT_EQ(node(5)->prev, nullptr);
  EXPECT_EQ(node(0)->prev, node(5));
  EXPECT_EQ(numbers(list_), (Numbers{5, 0, 1}));
}

TEST_F(LstInsertContract, MakesTheNodeBehindTheTailTheTail) {
  fill(2);
  mu_lst_insert(&list_, node(1), node(5));
  EXPECT_EQ(list_.last, node(5));
  EXPECT_EQ(node(5)->next, nullptr);
  EXPECT_EQ(numbers(list_), (Numbers{0, 1, 5}));
}

TEST_F(LstInsertContract, PutsANodeImmediatelyBehindEachOther) {
  for (size_t place = 0; place < 5; place++) {
    SCOPED_TRACE(place);
    mu_lst_init(&list_);
    fill(5);
    mu_lst_insert(&list_, node(place), node(5));
    Numbers expected{0, 1, 2, 3, 4};
    expected.insert(expected.begin() + static_cast<std::ptrdiff_t>(place) + 1, 5);
    EXPECT_EQ(numbers(list_), expected);
  }
}

TEST_F(LstInsertContract, BehindTheOnlyNode) {
  fill(1);
  mu_lst_insert(&list_, node(0), node(1));
  EXPECT_EQ(list_.first, node(0)) << "the head stays";
  EXPECT_EQ(numbers(list_), (Numbers{0, 1}));
}

TEST_F(LstInsertContract, TouchesTheNeighboursAlone) {
  fill(5);
  Element before[kElements];
  memcpy(before, elements_, sizeof before);
  mu_lst_insert(&list_, node(2), node(5));
  for (const size_t far : {0u, 1u, 4u}) EXPECT_EQ(memcmp(&before[far], &elements_[far], sizeof(Element)), 0) << far;
  EXPECT_EQ(node(2)->prev, node(1)) << "the far link of a neighbour";
  EXPECT_EQ(node(3)->next, node(4));
  EXPECT_EQ(elements_[5].number, 5u) << "what stands behind the links";
}

// ---- Add ------------------------------------------------------------------------------------------------------------

TEST_F(LstAddContract, AppendsAtTheTail) {
  for (size_t i = 0; i < kElements; i++) {
    mu_lst_add(&list_, node(i));
    EXPECT_EQ(list_.first, node(0));
    EXPECT_EQ(list_.last, node(i));
    EXPECT_EQ(list_.count, i + 1);
    EXPECT_EQ(node(i)->prev, i == 0 ? nullptr : node(i - 1));
    EXPECT_EQ(node(i)->next, nullptr);
  }
  EXPECT_EQ(numbers(list_), (Numbers{0, 1, 2, 3, 4, 5}));
}

// ---- Delete ---------------------------------------------------------------------------------------------------------

TEST_F(LstDeleteContract, EmptiesAListOfOneNode) {
  fill(1);
  mu_lst_delete(&list_, node(0));
  expect_empty();
}

TEST_F(LstDeleteContract, TakesEachNodeOfEachShortList) {
  for (size_t length = 1; length <= 5; length++) {
    for (size_t gone = 0; gone < length; gone++) {
      SCOPED_TRACE(testing::Message() << gone << " of " << length);
      mu_lst_init(&list_);
      fill(length);
      mu_lst_delete(&list_, node(gone));
      Numbers expected;
      for (size_t i = 0; i < length; i++) {
        if (i != gone) expected.push_back(i);
      }
      EXPECT_EQ(numbers(list_), expected);
    }
  }
}

TEST_F(LstDeleteContract, LeavesTheNodesOwnLinks) {
  for (size_t gone = 0; gone < 3; gone++) {
    SCOPED_TRACE(gone);
    mu_lst_init(&list_);
    fill(3);
    const mu_lst_node before = *node(gone);
    mu_lst_delete(&list_, node(gone));
    EXPECT_EQ(node(gone)->prev, before.prev);
    EXPECT_EQ(node(gone)->next, before.next);
    EXPECT_EQ(elements_[gone].number, gone);
  }
}

TEST_F(LstDeleteContract, TouchesTheNeighboursAlone) {
  fill(5);
  Element before[kElements];
  memcpy(before, elements_, sizeof before);
  mu_lst_delete(&list_, node(2));
  for (const size_t far : {0u, 2u, 4u}) EXPECT_EQ(memcmp(&before[far], &elements_[far], sizeof(Element)), 0) << far;
  EXPECT_EQ(list_.first, node(0));
  EXPECT_EQ(list_.last, node(4));
}

TEST_F(LstDeleteContract, ServesAWalkThatDeletesWhereItStands) {
  fill(6);
  for (mu_lst_node *at = mu_lst_first(&list_); at != nullptr; at = mu_lst_next(at)) {
    if (number_of(at) % 2 == 0) mu_lst_delete(&list_, at);
  }
  EXPECT_EQ(numbers(list_), (Numbers{1, 3, 5}));
}

TEST_F(LstDeleteContract, ServesAWalkThatDeletesAll) {
  fill(6);
  for (mu_lst_node *at = mu_lst_last(&list_); at != nullptr; at = mu_lst_prev(at)) mu_lst_delete(&list_, at);
  expect_empty();
}

TEST_F(LstDeleteContract, LetsTheNodeGoOnAnotherList) {
  fill(3);
  mu_lst other;
  mu_lst_init(&other);
  mu_lst_add(&other, node(4));
  mu_lst_delete(&list_, node(1));
  mu_lst_insert(&other, nullptr, node(1));
  EXPECT_EQ(numbers(list_), (Numbers{0, 2}));
  EXPECT_EQ(numbers(other), (Numbers{1, 4}));
}

// ---- Get ------------------------------------------------------------------------------------------------------------

TEST_F(LstGetContract, GivesNullForAnEmptyListAndLeavesItEmpty) {
  EXPECT_EQ(mu_lst_get(&list_), nullptr);
  expect_empty();
}

TEST_F(LstGetContract, EmptiesAListOfOneNode) {
  fill(1);
  EXPECT_EQ(mu_lst_get(&list_), node(0));
  expect_empty();
  EXPECT_EQ(mu_lst_get(&list_), nullptr);
}

TEST_F(LstGetContract, ClearsThePreviousLinkOfTheNewHead) {
  fill(3);
  EXPECT_EQ(mu_lst_get(&list_), node(0));
  EXPECT_EQ(list_.first, node(1));
  EXPECT_EQ(node(1)->prev, nullptr);
  EXPECT_EQ(list_.last, node(2)) << "the tail stays";
  EXPECT_EQ(numbers(list_), (Numbers{1, 2}));
}

TEST_F(LstGetContract, LeavesTheLinksOfTheNode) {
  fill(3);
  mu_lst_get(&list_);
  EXPECT_EQ(node(0)->prev, nullptr);
  EXPECT_EQ(node(0)->next, node(1)) << "not cleared";
  EXPECT_EQ(elements_[0].number, 0u);
}

TEST_F(LstGetContract, GivesFirstWhatWasAddedFirst) {
  fill(6);
  for (size_t i = 0; i < 6; i++) EXPECT_EQ(mu_lst_get(&list_), node(i));
  expect_empty();
}

TEST_F(LstGetContract, LeavesAListThatTakesNodesAgain) {
  fill(2);
  mu_lst_get(&list_);
  mu_lst_get(&list_);
  mu_lst_add(&list_, node(3));
  EXPECT_EQ(numbers(list_), Numbers{3});
}

// ---- Reading --------------------------------------------------------------------------------------------------------

TEST_F(LstReadContract, TellsTheEndsAndTheCount) {
  EXPECT_EQ(mu_lst_first(&list_), nullptr);
  EXPECT_EQ(mu_lst_last(&list_), nullptr);
  EXPECT_EQ(mu_lst_count(&list_), 0u);
  fill(3);
  EXPECT_EQ(mu_lst_first(&list_), node(0));
  EXPECT_EQ(mu_lst_last(&list_), node(2));
  EXPECT_EQ(mu_lst_count(&list_), 3u);
}

TEST_F(LstReadContract, TellsTheNeighboursAndNullAtTheEnds) {
  fill(3);
  EXPECT_EQ(mu_lst_prev(node(0)), nullptr);
  EXPECT_EQ(mu_lst_next(node(0)), node(1));
  EXPECT_EQ(mu_lst_prev(node(1)), node(0));
  EXPECT_EQ(mu_lst_next(node(1)), node(2));
  EXPECT_EQ(mu_lst_prev(node(2)), node(1));
  EXPECT_EQ(mu_lst_next(node(2)), nullptr);
}

TEST_F(LstReadContract, TellsTheFieldsWhateverTheyAre) {
  mu_lst head = {&elements_[0].links, &elements_[1].links, 0xfedcba98};
  EXPECT_EQ(mu_lst_last(&head), node(0));
  EXPECT_EQ(mu_lst_first(&head), node(1));
  EXPECT_EQ(mu_lst_count(&head), 0xfedcba98u);
  EXPECT_EQ(mu_lst_next(node(0)), garbage());
  EXPECT_EQ(mu_lst_prev(node(0)), garbage());
}

TEST_F(LstReadContract, WritesNothing) {
  const Fenced memory(sizeof(mu_lst) + sizeof(mu_lst_node), Fenced::kBack);
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

TEST(LstMemoryContract, NeedsNoMoreOfAnElementThanItsLinks) {
  const Fenced before(sizeof(mu_lst_node), Fenced::kFront);
  const Fenced behind(sizeof(mu_lst_node), Fenced::kBack);
  mu_lst list;
  mu_lst_init(&list);
  auto *const a = reinterpret_cast<mu_lst_node *>(before.bytes());
  auto *const b = reinterpret_cast<mu_lst_node *>(behind.bytes());
  mu_lst_add(&list, a);
  mu_lst_add(&list, b);
  EXPECT_EQ(mu_lst_get(&list), a);
  mu_lst_insert(&list, nullptr, a);
  mu_lst_delete(&list, a);
  EXPECT_EQ(list.first, b);
}

TEST(LstMemoryContract, AllocatesFreesAndPrintsNothing) {
  Console console;
  const FailingMalloc no_memory(1, 1000);
  const HeapWatch heap;
  Element elements[3] = {};
  mu_lst list;
  mu_lst_init(&list);
  for (Element &element : elements) mu_lst_add(&list, &element.links);
  mu_lst_delete(&list, &elements[1].links);
  mu_lst_insert(&list, &elements[0].links, &elements[1].links);
  while (mu_lst_get(&list) != nullptr) {
  }
  EXPECT_EQ(no_memory.seen(), 0);
  EXPECT_TRUE(heap.freed().empty());
  EXPECT_EQ(console.take(), "");
}

TEST(LstModelContract, AgreesWithAPlainSequenceOverRandomCalls) {
  constexpr size_t kNodes = 20;
  for (const unsigned seed : {1u, 2u, 3u}) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    mu_lst list;
    mu_lst_init(&list);
    std::vector<Element> elements(kNodes);
    Numbers off;  // the elements that are on no list
    for (size_t i = 0; i < kNodes; i++) {
      elements[i].number = i;
      off.push_back(i);
    }
    Numbers model;
    const auto place_in = [&random](const Numbers &some) {
      return static_cast<std::ptrdiff_t>(random() % some.size());
    };
    for (int step = 0; step < 3000; step++) {
      SCOPED_TRACE(testing::Message() << "step " << step);
      const auto choice = random() % 8;
      if (choice < 4 && !off.empty()) {
        const auto place = off.begin() + place_in(off);
        mu_lst_node *const node = &elements[*place].links;
        if (choice == 0) {
          mu_lst_add(&list, node);
          model.push_back(*place);
        } else if (choice == 1 || model.empty()) {
          mu_lst_insert(&list, nullptr, node);
          model.insert(model.begin(), *place);
        } else {
          const auto after = model.begin() + place_in(model);
          mu_lst_insert(&list, &elements[*after].links, node);
          model.insert(after + 1, *place);
        }
        off.erase(place);
      } else if (choice == 4) {
        const mu_lst_node *const node = mu_lst_get(&list);
        ASSERT_EQ(node, model.empty() ? nullptr : &elements[model.front()].links);
        if (model.empty()) continue;
        off.push_back(model.front());
        model.erase(model.begin());
      } else if (!model.empty()) {
        const auto place = model.begin() + place_in(model);
        mu_lst_delete(&list, &elements[*place].links);
        off.push_back(*place);
        model.erase(place);
      }
      ASSERT_EQ(numbers(list), model);
    }
  }
}
