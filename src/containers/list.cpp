// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The doubly linked list of record copies. A node and its record are one block of memory: the record directly follows
// the node's three header fields.

#include <cstring>

#include "platform/support.h"
#include "tarn/containers.h"

namespace {

using tarn::Owned;
using tarn::u32;
using tarn::u64;

Owned<mu_list_node_t> make_node(u32 data_size, const void *record) {
  void *block = tarn::allocate_bytes(1, u64{sizeof(mu_list_node_t)} + data_size);
  Owned<mu_list_node_t> node(static_cast<mu_list_node_t *>(block));
  if (!node) return nullptr;
  node->data = node.get() + 1;
  memcpy(node->data, record, data_size);
  return node;
}

// From the tail to the head: callers that watch the heap rely on this order. In a loop: a list of a million nodes needs
// no more stack than a short one.
void mu_list_free_nodes(mu_list_node_t *tail) {
  while (tail != nullptr) {
    mu_list_node_t *previous = tail->prev;
    mu_free(tail);
    tail = previous;
  }
}

}  // namespace

mu_list_t *mu_list_create(int data_size, mu_list_cmp_cb_t cmp) {
  if (data_size <= 0) return nullptr;
  Owned<mu_list_t> list = tarn::allocate<mu_list_t>();
  if (!list) return nullptr;
  list->data_size = static_cast<u32>(data_size);
  list->cmp = cmp;
  return list.release();
}

void mu_list_destory(mu_list_t *list) {
  if (list == nullptr) return;
  mu_list_free_nodes(list->tail);
  mu_free(list);
}

mu_status_t mu_list_add(mu_list_t *list, const void *record) {
  if (list == nullptr || record == nullptr) return -1;
  mu_list_node_t *node = make_node(list->data_size, record).release();
  if (node == nullptr) return -1;
  node->prev = list->tail;
  (list->tail != nullptr ? list->tail->next : list->head) = node;
  list->tail = node;
  list->count++;
  return 0;
}

mu_status_t mu_list_delete(mu_list_t *list, mu_list_node_t *node) {
  if (list == nullptr || node == nullptr) return -1;
  (node->prev != nullptr ? node->prev->next : list->head) = node->next;
  (node->next != nullptr ? node->next->prev : list->tail) = node->prev;
  mu_free(node);
  list->count--;
  return 0;
}

mu_status_t mu_list_delete_all(mu_list_t *list) {
  if (list == nullptr) return -1;
  mu_list_free_nodes(list->tail);
  list->head = nullptr;
  list->tail = nullptr;
  list->count = 0;
  return 0;
}

mu_list_node_t *mu_list_first(const mu_list_t *list) { return list == nullptr ? nullptr : list->head; }

mu_list_node_t *mu_list_last(const mu_list_t *list) { return list == nullptr ? nullptr : list->tail; }

mu_list_node_t *mu_list_previous(const mu_list_node_t *node) { return node == nullptr ? nullptr : node->prev; }

mu_list_node_t *mu_list_next(const mu_list_node_t *node) { return node == nullptr ? nullptr : node->next; }

mu_list_node_t *mu_list_query(const mu_list_t *list, const void *key) {
  if (list == nullptr || key == nullptr || list->cmp == nullptr) return nullptr;
  for (mu_list_node_t *node = list->head; node != nullptr; node = node->next) {
    if (list->cmp(node->data, key) == 0) return node;
  }
  return nullptr;
}

void mu_list_traverse(const mu_list_t *list, mu_list_trav_cb_t visit) {
  if (list == nullptr) return;
  for (const mu_list_node_t *node = list->head; node != nullptr; node = node->next) visit(node->data);
}

uint32_t mu_list_count(const mu_list_t *list) { return list == nullptr ? 0 : list->count; }
