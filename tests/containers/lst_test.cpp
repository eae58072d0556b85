// The intrusive list: every neighbour of an inserted or deleted node, and the list against a plain sequence.

#include "tarn/containers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <random>
#include <vector>

#include "support/libc.h"

using namespace tarn_test;

namespace {

constexpr int kLongest = 5;  // with five nodes there is one in the middle that has neighbours on both sides of its own

struct Element {
  mu_lst_node node;
  int id;
};

using Ids = std::vector<int>;

int id_of(const mu_lst_node *node) { return reinterpret_cast<const Element *>(node)->id; }

mu_lst_node *nowhere() { return reinterpret_cast<mu_lst_node *>(0x10); }

// A list of `length` elements with the ids from 0 on, and one more that is on no list.
class Elements {
 public:
  explicit Elements(int length) {
    mu_lst_init(&list);
    for (int i = 0; i <= kLongest; i++) elements_[static_cast<size_t>(i)] = {{nowhere(), nowhere()}, i};
    elements_[kLongest].id = kSpareId;
    for (int i = 0; i < length; i++) mu_lst_add(&list, node(i));
  }

  static constexpr int kSpareId = 99;

  mu_lst_node *node(int i) { return &elements_[static_cast<size_t>(i)].node; }
  mu_lst_node *spare() { return node(kLongest); }

  mu_lst list;

 private:
  std::array<Element, kLongest + 1> elements_{};
};

// The ids from the head on, after a check of every link and of the head.
Ids ids_of(const mu_lst &list) {
  Ids ids;
  const mu_lst_node *before = nullptr;
  for (const mu_lst_node *node = list.first; node != nullptr; node = node->next) {
    EXPECT_EQ(node->prev, before);
    ids.push_back(id_of(node));
    before = node;
  }
  EXPECT_EQ(list.last, before);
  EXPECT_EQ(list.count, ids.size());
  return ids;
}

Ids ids_up_to(int length) {
  Ids ids;
  for (int i = 0; i < length; i++) ids.push_back(i);
  return ids;
}

}  // namespace

TEST(LstInit, EmptiesTheHeadWhateverItHeld) {
  mu_lst list;
  memset(&list, 0xA5, sizeof list);
  mu_lst_init(&list);
  EXPECT_EQ(list.first, nullptr);
  EXPECT_EQ(list.last, nullptr);
  EXPECT_EQ(list.count, 0u);
}

TEST(LstInit, LeavesTheElementsAlone) {
  Elements three(3);
  const mu_lst_node middle = *three.node(1);
  mu_lst_init(&three.list);
  EXPECT_EQ(memcmp(three.node(1), &middle, sizeof middle), 0);
}

TEST(LstInsert, LinksBehindEachNodeAndAtTheFrontOfListsOfEachLength) {
  for (int length = 0; length <= kLongest; length++) {
    for (int place = 0; place <= length; place++) {
      SCOPED_TRACE(testing::Message() << length << " nodes, to place " << place);
      Elements some(length);
      mu_lst_insert(&some.list, place == 0 ? nullptr : some.node(place - 1), some.spare());
      Ids expected = ids_up_to(length);
      expected.insert(expected.begin() + place, Elements::kSpareId);
      EXPECT_EQ(ids_of(some.list), expected);
    }
  }
}

TEST(LstAdd, AppendsAtTheTail) {
  for (int length = 0; length <= kLongest; length++) {
    SCOPED_TRACE(length);
    Elements some(length);
    mu_lst_add(&some.list, some.spare());
    Ids expected = ids_up_to(length);
    expected.push_back(Elements::kSpareId);
    EXPECT_EQ(ids_of(some.list), expected);
    EXPECT_EQ(some.list.last, some.spare());
  }
}

TEST(LstDelete, ClosesTheGapAtEachPlaceOfListsOfEachLength) {
  for (int length = 1; length <= kLongest; length++) {
    for (int place = 0; place < length; place++) {
      SCOPED_TRACE(testing::Message() << "place " << place << " of " << length);
      Elements some(length);
      mu_lst_delete(&some.list, some.node(place));
      Ids expected = ids_up_to(length);
      expected.erase(expected.begin() + place);
      EXPECT_EQ(ids_of(some.list), expected);
    }
  }
}

TEST(LstDelete, LeavesTheNodesOwnLinksAsTheyWere) {
  for (int place = 0; place < 3; place++) {
    SCOPED_TRACE(place);
    Elements three(3);
    const mu_lst_node links = *three.node(place);
    mu_lst_delete(&three.list, three.node(place));
    EXPECT_EQ(three.node(place)->prev, links.prev);
    EXPECT_EQ(three.node(place)->next, links.next);
  }
}

TEST(LstDelete, LetsAWalkGoOnFromTheDeletedNode) {
  Elements five(5);
  Ids met;
  for (mu_lst_node *node = mu_lst_first(&five.list); node != nullptr; node = mu_lst_next(node)) {
    met.push_back(id_of(node));
    if (id_of(node) % 2 == 0) mu_lst_delete(&five.list, node);
  }
  EXPECT_EQ(met, (Ids{0, 1, 2, 3, 4}));
  EXPECT_EQ(ids_of(five.list), (Ids{1, 3}));
}

TEST(LstDelete, FreesTheElementForAnotherList) {
  Elements three(3);
  mu_lst other;
  mu_lst_init(&other);
  mu_lst_delete(&three.list, three.node(1));
  mu_lst_add(&other, three.node(1));
  EXPECT_EQ(ids_of(three.list), (Ids{0, 2}));
  EXPECT_EQ(ids_of(other), Ids{1});
}

TEST(LstGet, TakesTheHeadOfListsOfEachLength) {
  for (int length = 1; length <= kLongest; length++) {
    SCOPED_TRACE(length);
    Elements some(length);
    EXPECT_EQ(mu_lst_get(&some.list), some.node(0));
    Ids expected = ids_up_to(length);
    expected.erase(expected.begin());
    EXPECT_EQ(ids_of(some.list), expected);
  }
}

TEST(LstGet, LeavesTheNodesOwnLinksAsTheyWere) {
  Elements two(2);
  mu_lst_node *node = mu_lst_get(&two.list);
  EXPECT_EQ(node->prev, nullptr);
  EXPECT_EQ(node->next, two.node(1));
}

TEST(LstGet, EmptiesAListOfOneNode) {
  Elements one(1);
  EXPECT_EQ(mu_lst_get(&one.list), one.node(0));
  EXPECT_EQ(one.list.first, nullptr);
  EXPECT_EQ(one.list.last, nullptr);
  EXPECT_EQ(one.list.count, 0u);
}

TEST(LstGet, OfAnEmptyListIsNullAndChangesNothing) {
  Elements none(0);
  EXPECT_EQ(mu_lst_get(&none.list), nullptr);
  EXPECT_EQ(ids_of(none.list), Ids{});
}

// The accessors give the fields, whatever these hold.
TEST(LstAccessors, GiveTheFieldsOfTheHeadAndOfANode) {
  mu_lst_node a{};
  mu_lst_node b{};
  const mu_lst list{&a, &b, 0x80000001};
  EXPECT_EQ(mu_lst_last(&list), &a);
  EXPECT_EQ(mu_lst_first(&list), &b);
  EXPECT_EQ(mu_lst_count(&list), 0x80000001);
  const mu_lst_node node{&a, &b};
  EXPECT_EQ(mu_lst_prev(&node), &a);
  EXPECT_EQ(mu_lst_next(&node), &b);
}

TEST(LstAccessors, FindNothingInAnEmptyListAndBeyondItsEnds) {
  Elements none(0);
  EXPECT_EQ(mu_lst_first(&none.list), nullptr);
  EXPECT_EQ(mu_lst_last(&none.list), nullptr);
  EXPECT_EQ(mu_lst_count(&none.list), 0u);
  Elements two(2);
  EXPECT_EQ(mu_lst_prev(mu_lst_first(&two.list)), nullptr);
  EXPECT_EQ(mu_lst_next(mu_lst_last(&two.list)), nullptr);
}

TEST(LstModel, AgreesWithAPlainSequenceOverRandomCalls) {
  const FailingMalloc memory(INT_MAX);  // fails nothing, counts
  std::array<Element, 24> elements{};
  for (const unsigned seed : {1u, 2u, 3u}) {
    std::mt19937 random(seed);
    mu_lst list;
    mu_lst_init(&list);
    std::vector<int> model;
    std::vector<int> unused;
    for (int i = 0; i < static_cast<int>(elements.size()); i++) {
      elements[static_cast<size_t>(i)].id = i;
      unused.push_back(i);
    }
    const auto node = [&](int id) { return &elements[static_cast<size_t>(id)].node; };
    for (int step = 0; step < 4000; step++) {
      SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << step);
      const auto at = static_cast<std::ptrdiff_t>(random() % (model.size() + 1));  // one more than there are: the front
      const bool is_inside = at < static_cast<std::ptrdiff_t>(model.size());
      switch (random() % 4) {
        case 0:
        case 1:
          if (unused.empty()) break;
          if (random() % 2 == 0) {
            mu_lst_add(&list, node(unused.back()));
            model.push_back(unused.back());
          } else {
            mu_lst_insert(&list, is_inside ? node(model[static_cast<size_t>(at)]) : nullptr, node(unused.back()));
            model.insert(is_inside ? model.begin() + at + 1 : model.begin(), unused.back());
          }
          unused.pop_back();
          break;
        case 2:
          if (!is_inside) break;
          mu_lst_delete(&list, node(model[static_cast<size_t>(at)]));
          unused.push_back(model[static_cast<size_t>(at)]);
          model.erase(model.begin() + at);
          break;
        default:
          const mu_lst_node *head = mu_lst_get(&list);
          ASSERT_EQ(head, model.empty() ? nullptr : node(model.front()));
          if (model.empty()) break;
          unused.push_back(model.front());
          model.erase(model.begin());
      }
      ASSERT_EQ(ids_of(list), model);
    }
  }
  EXPECT_EQ(memory.seen(), 0);
}
