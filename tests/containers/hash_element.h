// What the tests of the hash table put into it.
#ifndef TARN_TESTS_CONTAINERS_HASH_ELEMENT_H
#define TARN_TESTS_CONTAINERS_HASH_ELEMENT_H

#include <cstdint>
#include <memory>
#include <vector>

#include "tarn/containers.h"

namespace tarn_test {

// The bucket is the element's own choice, so that a test can put it anywhere.
struct Element {
  mu_lst_node node;
  uint32_t bucket;
  int key;
};

inline const Element &element_of(const mu_lst_node *node) { return *reinterpret_cast<const Element *>(node); }

inline uint32_t own_bucket(const mu_lst_node *node) { return element_of(node).bucket; }

inline int differs(const mu_lst_node *node, const void *key) {
  return element_of(node).key == *static_cast<const int *>(key) ? 0 : 1;
}

struct DestroyHash {
  void operator()(mu_hash *table) const { mu_hash_destroy(table); }
};
using OwnedHash = std::unique_ptr<mu_hash, DestroyHash>;

inline OwnedHash table_of(uint32_t size, mu_hash_fn_t hash_fn = own_bucket, mu_hash_cmp_fn_t cmp_fn = differs) {
  return OwnedHash(mu_hash_create(size, hash_fn, cmp_fn));
}

// The elements that a walk meets, in its order.
inline std::vector<const Element *> walk(const OwnedHash &table) {
  std::vector<const Element *> met;
  mu_lst_node *node = nullptr;
  uint32_t bucket = 0;
  for (int r = mu_hash_first(table.get(), &node, &bucket); r == 0;
       r = mu_hash_next(table.get(), node, bucket, &node, &bucket)) {
    met.push_back(&element_of(node));
  }
  return met;
}

}  // namespace tarn_test

#endif
