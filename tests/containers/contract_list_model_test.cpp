// The list against a plain sequence of numbers: the same long random series of calls must leave the same contents.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "support/heap.h"
#include "tarn/containers.h"

using namespace tarn_test;

namespace {

int32_t differ(const void *record, const void *key) {
  return *static_cast<const uint16_t *>(record) == *static_cast<const uint16_t *>(key) ? 0 : -1;
}

uint16_t number(const mu_list_node_t *node) { return *static_cast<const uint16_t *>(node->data); }

std::vector<uint16_t> contents(const mu_list_t *list) {
  std::vector<uint16_t> found;
  for (const mu_list_node_t *node = mu_list_first(list); node != nullptr; node = mu_list_next(node)) {
    found.push_back(number(node));
  }
  return found;
}

std::vector<uint16_t> contents_backwards(const mu_list_t *list) {
  std::vector<uint16_t> found;
  for (const mu_list_node_t *node = mu_list_last(list); node != nullptr; node = mu_list_previous(node)) {
    found.insert(found.begin(), number(node));
  }
  return found;
}

}  // namespace

TEST(ListModelContract, AgreesWithAPlainSequenceOverRandomCalls) {
  constexpr uint16_t kKeys = 24;  // few, so that matches repeat
  for (const unsigned seed : {1u, 2u, 3u}) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const HeapWatch heap;
    mu_list_t *list = mu_list_create(sizeof(uint16_t), differ);
    std::vector<uint16_t> model;
    for (int step = 0; step < 4000; step++) {
      SCOPED_TRACE(testing::Message() << "step " << step);
      const auto key = static_cast<uint16_t>(random() % kKeys);
      const auto choice = random() % 100;
      if (choice < 48) {
        ASSERT_EQ(mu_list_add(list, &key), 0);
        model.push_back(key);
      } else if (choice < 92) {
        const auto place = std::find(model.begin(), model.end(), key);
        mu_list_node_t *const node = mu_list_query(list, &key);
        ASSERT_EQ(node != nullptr, place != model.end());
        ASSERT_EQ(mu_list_delete(list, node), node == nullptr ? -1 : 0);
        if (place != model.end()) model.erase(place);
      } else if (choice < 99) {
        static uint16_t step_of_keys;
        step_of_keys = key;
        mu_list_traverse(list, [](void *record) {
          uint16_t &own = *static_cast<uint16_t *>(record);
          own = static_cast<uint16_t>((own + step_of_keys) % kKeys);
        });
        for (uint16_t &own : model) own = static_cast<uint16_t>((own + key) % kKeys);
      } else {
        ASSERT_EQ(mu_list_delete_all(list), 0);
        model.clear();
      }
      ASSERT_EQ(contents(list), model);
      ASSERT_EQ(contents_backwards(list), model);
      ASSERT_EQ(mu_list_count(list), model.size());
      ASSERT_EQ(heap.live(), 1 + model.size());
    }
    mu_list_destory(list);
    EXPECT_EQ(heap.live(), 0u);
  }
}
