// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The hash table: a fixed number of intrusive lists in one block, guarded by one mutex.

#include <cstdio>

#include "platform/support.h"
#include "tarn/containers.h"

namespace {

using tarn::Owned;
using tarn::ScopedLock;
using tarn::u32;
using tarn::u64;

// "H0x" and the 16 digits of an address, with the NUL.
constexpr size_t kLockNameSize = 20;

bool make_lock(mu_hash &table) {
  char name[kLockNameSize] = {};
  (void)snprintf(name, sizeof name, "H%p", static_cast<void *>(&table));
  return mu_mutex_init(&table.lock, name) == 0;
}

// The bucket that `node` belongs to; null if there is none. Called without the lock: the caller's hash function may use
// the table.
mu_lst *bucket_of(mu_hash *table, const mu_lst_node *node) {
  if (table == nullptr || node == nullptr) return nullptr;
  const u32 bucket = table->hash_fn(node);
  return bucket < table->size ? &table->buckets[bucket] : nullptr;
}

// The lowest-numbered bucket that holds elements; `size` when none does. Called with the lock held.
u32 first_filled_bucket(const mu_hash &table) {
  u32 bucket = 0;
  while (bucket < table.size && table.buckets[bucket].count == 0) bucket++;
  return bucket;
}

// Called with the lock held. mu_hash_count reads without it.
void set_count(mu_hash &table, u32 count) { tarn::store_relaxed(table.count, count); }

}  // namespace

mu_hash *mu_hash_create(uint32_t size, mu_hash_fn_t hash_fn, mu_hash_cmp_fn_t cmp_fn) {
  if (size == 0 || hash_fn == nullptr || cmp_fn == nullptr) return nullptr;
  // Zeroed memory: `count` is 0 and every bucket an empty list.
  void *block = tarn::allocate_bytes(1, sizeof(mu_hash) + u64{size} * sizeof(mu_lst));
  Owned<mu_hash> table(static_cast<mu_hash *>(block));
  if (!table || !make_lock(*table)) return nullptr;
  table->hash_fn = hash_fn;
  table->cmp_fn = cmp_fn;
  table->size = size;
  return table.release();
}

mu_status_t mu_hash_destroy(mu_hash *table) {
  if (table == nullptr) return 1;
  mu_mutex_destroy(table->lock);
  mu_free(table);
  return 0;
}

mu_status_t mu_hash_add(mu_hash *table, mu_lst_node *node) {
  mu_lst *bucket = bucket_of(table, node);
  if (bucket == nullptr) return -1;
  ScopedLock lock(table->lock);
  mu_lst_add(bucket, node);
  set_count(*table, table->count + 1);
  return 0;
}

mu_status_t mu_hash_del(mu_hash *table, mu_lst_node *node) {
  mu_lst *bucket = bucket_of(table, node);
  if (bucket == nullptr) return -1;
  ScopedLock lock(table->lock);
  mu_lst_delete(bucket, node);
  set_count(*table, table->count - 1);
  return 0;
}

mu_status_t mu_hash_first(mu_hash *table, mu_lst_node **out, uint32_t *bucket_out) {
  if (table == nullptr) return -1;
  ScopedLock lock(table->lock);
  const u32 bucket = first_filled_bucket(*table);
  if (bucket == table->size) return -1;
  *out = table->buckets[bucket].first;
  *bucket_out = bucket;
  return 0;
}

mu_status_t mu_hash_next(mu_hash *table, const mu_lst_node *node, uint32_t bucket, mu_lst_node **out,
                         uint32_t *bucket_out) {
  if (table == nullptr) return -1;
  ScopedLock lock(table->lock);
  mu_lst_node *found = node->next;
  u64 where = bucket;  // wide enough that no bucket number wraps to 0
  while (found == nullptr && ++where < table->size) found = table->buckets[where].first;
  *out = found;
  if (found == nullptr) return -1;
  *bucket_out = static_cast<u32>(where);
  return 0;
}

// Deliberate: every bucket is scanned, although `hash_fn` may know the element's bucket. Held by
// HashFind.FindsAnElementInABucketThatIsNotItsKeys.
mu_lst_node *mu_hash_find(mu_hash *table, const void *key) {
  if (table == nullptr) return nullptr;
  ScopedLock lock(table->lock);
  for (u32 bucket = 0; bucket < table->size; bucket++) {
    for (mu_lst_node *node = table->buckets[bucket].first; node != nullptr; node = node->next) {
      if (table->cmp_fn(node, key) == 0) return node;
    }
  }
  return nullptr;
}

mu_lst_node *mu_hash_get(mu_hash *table) {
  if (table == nullptr) return nullptr;
  ScopedLock lock(table->lock);
  const u32 bucket = first_filled_bucket(*table);
  if (bucket == table->size) return nullptr;
  set_count(*table, table->count - 1);
  return mu_lst_get(&table->buckets[bucket]);
}

uint32_t mu_hash_count(const mu_hash *table) { return table == nullptr ? 0 : tarn::load_relaxed(table->count); }
