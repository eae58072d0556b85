// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by the tests of the containers.
#ifndef TARN_TESTS_CONTAINERS_FIXTURE_H
#define TARN_TESTS_CONTAINERS_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/guarded.h"
#include "support/libc.h"
#include "tarn/containers.h"

namespace tarn_test {

constexpr Guarded::End kEnds[] = {Guarded::kFront, Guarded::kBack};

// ---- Memory ---------------------------------------------------------------------------------------------------------

// While it lives, memory that the library allocates is never zero by chance.
class MarkedMemory {
  Replace<void *(size_t)> malloc_{libc::malloc, [](size_t size) {
                                    void *const block = libc::malloc.real(size);
                                    return block == nullptr ? block : memset(block, 0xa5, size);
                                  }};
};

// Records the size of each block that the library requests, and refuses those above a mebibyte.
class NotedSizes {
  static constexpr size_t kLargestBlock = 1 << 20;

 public:
  std::vector<size_t> sizes;

 private:
  Replace<void *(size_t)> malloc_{libc::malloc, [this](size_t size) {
                                    sizes.push_back(size);
                                    return size <= kLargestBlock ? libc::malloc.real(size) : nullptr;
                                  }};
};

// ---- mu_list --------------------------------------------------------------------------------------------------------

class ListTest : public testing::Test {
 protected:
  struct Record {
    uint32_t key;
    uint32_t serial;
  };
  using Keys = std::vector<uint32_t>;
  using Nodes = std::vector<mu_list_node_t *>;

  ~ListTest() override { mu_list_destory(list_); }

  static int32_t by_key(const void *record, const void *key) {
    const uint32_t own = static_cast<const Record *>(record)->key;
    const uint32_t searched = *static_cast<const uint32_t *>(key);
    return (own > searched) - (own < searched);
  }

  static Record &record_of(const mu_list_node_t *node) { return *static_cast<Record *>(node->data); }

  mu_status_t add(uint32_t key) {
    const Record record{key, serial_++};
    return mu_list_add(list_, &record);
  }
  void fill(std::initializer_list<uint32_t> keys) {
    for (const uint32_t key : keys) ASSERT_EQ(add(key), 0);
  }

  // The nodes from the head on. Checks the links back, the places of the records, the ends and the count.
  Nodes nodes() const {
    Nodes found;
    const mu_list_node_t *before = nullptr;
    for (mu_list_node_t *node = list_->head; node != nullptr; node = node->next) {
      EXPECT_EQ(node->prev, before);
      EXPECT_EQ(node->data, static_cast<const void *>(node + 1));
      found.push_back(node);
      before = node;
    }
    EXPECT_EQ(list_->tail, before);
    EXPECT_EQ(list_->count, found.size());
    return found;
  }

  Keys keys() const {
    Keys found;
    for (const mu_list_node_t *node : nodes()) found.push_back(record_of(node).key);
    return found;
  }

  mu_list_t *list_ = mu_list_create(sizeof(Record), by_key);
  uint32_t serial_ = 0;
};

// ---- mu_lst and mu_hash ---------------------------------------------------------------------------------------------

// An element for both. It states its bucket, so a test can put it anywhere.
struct Element {
  mu_lst_node links;
  uint32_t bucket;
  int number;
};

using Numbers = std::vector<int>;

inline const Element &element_of(const mu_lst_node *node) { return *reinterpret_cast<const Element *>(node); }
inline int number_of(const mu_lst_node *node) { return element_of(node).number; }
inline uint32_t bucket_of(const mu_lst_node *node) { return element_of(node).bucket; }
inline int compare(const mu_lst_node *node, const void *key) {
  return number_of(node) - *static_cast<const int *>(key);
}

// The numbers of `length` elements that were numbered from 0 on.
inline Numbers numbers_up_to(int length) {
  Numbers numbers;
  for (int i = 0; i < length; i++) numbers.push_back(i);
  return numbers;
}

// The elements of a list, from the head on. Checks both directions, the ends and the count.
inline Numbers numbers_of(const mu_lst &list) {
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

// The elements that a walk meets, each with its bucket in `buckets`.
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

// A table of four buckets whose functions record their calls, and elements for it.
class HashTest : public testing::Test {
 protected:
  static constexpr uint32_t kSize = 4;
  static constexpr uint32_t kUntouched = 0xdeadbeef;

  HashTest() {
    hashed_.clear();
    compared_.clear();
    for (int i = 0; i < 8; i++) elements_[i] = {{&untouched_, &untouched_}, 0, i};
  }
  ~HashTest() override { mu_hash_destroy(table_); }

  static uint32_t noted_bucket(const mu_lst_node *node) {
    hashed_.push_back(number_of(node));
    return bucket_of(node);
  }
  static int noted_compare(const mu_lst_node *node, const void *key) {
    compared_.push_back(number_of(node));
    return compare(node, key);
  }

  mu_lst_node *node(int i) { return &elements_[i].links; }

  // Adds the element at `i` to `bucket`.
  mu_status_t add(int i, uint32_t bucket) {
    elements_[i].bucket = bucket;
    return mu_hash_add(table_, node(i));
  }
  // Adds the elements 0, 1, ... to these buckets.
  void fill(std::initializer_list<uint32_t> buckets) {
    int i = 0;
    for (const uint32_t bucket : buckets) ASSERT_EQ(add(i++, bucket), 0);
  }

  Numbers in_bucket(uint32_t bucket) const { return numbers_of(table_->buckets[bucket]); }

  // The bytes of the table and of the elements.
  std::string image() const {
    std::string bytes(reinterpret_cast<const char *>(table_), sizeof(mu_hash) + kSize * sizeof(mu_lst));
    return bytes.append(reinterpret_cast<const char *>(elements_), sizeof elements_);
  }

  static inline Numbers hashed_;
  static inline Numbers compared_;

  mu_hash *const table_ = mu_hash_create(kSize, noted_bucket, noted_compare);
  Element elements_[8];
  mu_lst_node untouched_{};  // links to it were not written by the library
  mu_lst_node *out_ = &untouched_;
  uint32_t bucket_ = kUntouched;
};

}  // namespace tarn_test

#endif
