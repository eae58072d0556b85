// Elements of a hash table that say themselves which bucket is theirs.
#ifndef TARN_TESTS_CONTAINERS_CONTRACT_HASH_H
#define TARN_TESTS_CONTAINERS_CONTRACT_HASH_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tarn/containers.h"

namespace tarn_test::hash_contract {

struct Element {
  mu_lst_node links;
  uint32_t bucket;
  int number;
};

inline const Element &element_of(const mu_lst_node *node) { return *reinterpret_cast<const Element *>(node); }
inline int number_of(const mu_lst_node *node) { return element_of(node).number; }

inline uint32_t bucket_of(const mu_lst_node *node) { return element_of(node).bucket; }
inline int compare(const mu_lst_node *node, const void *key) {
  return number_of(node) - *static_cast<const int *>(key);
}

using Numbers = std::vector<int>;

// What a walk meets, each with its bucket in `buckets`.
inline Numbers walk(mu_hash *table, std::vector<uint32_t> *buckets = nullptr) {
  Numbers found;
  mu_lst_node *node = nullptr;
  uint32_t bucket = 0;
  for (int r = mu_hash_first(table, &node, &bucket); r == 0; r = mu_hash_next(table, node, bucket, &node, &bucket)) {
    found.push_back(number_of(node));
    if (buckets != nullptr) buckets->push_back(bucket);
  }
  return found;
}

class HashContract : public testing::Test {
 protected:
  static constexpr uint32_t kSize = 4;
  static constexpr uint32_t kUntouched = 0xdeadbeef;

  HashContract() : table_(mu_hash_create(kSize, bucket_of, compare)) {
    for (int i = 0; i < 8; i++) elements_[i] = {{nullptr, nullptr}, 0, i};
  }
  ~HashContract() override { mu_hash_destroy(table_); }

  mu_lst_node *node(int i) { return &elements_[i].links; }

  // Adds the element `number` to `bucket`.
  mu_status_t add(int number, uint32_t bucket) {
    elements_[number].bucket = bucket;
    return mu_hash_add(table_, node(number));
  }

  // The bytes of the table and of the elements.
  std::string image() const {
    std::string bytes(reinterpret_cast<const char *>(table_), sizeof(mu_hash) + kSize * sizeof(mu_lst));
    return bytes.append(reinterpret_cast<const char *>(elements_), sizeof elements_);
  }

  Numbers in_bucket(uint32_t bucket) const {
    Numbers found;
    const mu_lst &list = table_->buckets[bucket];
    const mu_lst_node *before = nullptr;
    for (const mu_lst_node *at = list.first; at != nullptr; at = at->next) {
      EXPECT_EQ(at->prev, before);
      found.push_back(number_of(at));
      before = at;
    }
    EXPECT_EQ(list.last, before);
    EXPECT_EQ(list.count, found.size());
    return found;
  }

  mu_hash *const table_;
  Element elements_[8];
  mu_lst_node *out_ = nullptr;
  uint32_t bucket_ = kUntouched;
};

}  // namespace tarn_test::hash_contract

#endif
