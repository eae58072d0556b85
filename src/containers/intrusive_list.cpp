// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The intrusive list: the links are inside the caller's own elements.

#include "tarn/containers.h"

void mu_lst_init(mu_lst *list) { *list = {}; }

void mu_lst_insert(mu_lst *list, mu_lst_node *after, mu_lst_node *node) {
  mu_lst_node *next = after != nullptr ? after->next : list->first;
  node->prev = after;
  node->next = next;
  (after != nullptr ? after->next : list->first) = node;
  (next != nullptr ? next->prev : list->last) = node;
  list->count++;
}

void mu_lst_add(mu_lst *list, mu_lst_node *node) { mu_lst_insert(list, list->last, node); }

void mu_lst_delete(mu_lst *list, mu_lst_node *node) {
  (node->prev != nullptr ? node->prev->next : list->first) = node->next;
  (node->next != nullptr ? node->next->prev : list->last) = node->prev;
  list->count--;
}

mu_lst_node *mu_lst_get(mu_lst *list) {
  mu_lst_node *node = list->first;
  if (node == nullptr) return nullptr;
  list->first = node->next;
  (list->first != nullptr ? list->first->prev : list->last) = nullptr;
  list->count--;
  return node;
}

mu_lst_node *mu_lst_first(const mu_lst *list) { return list->first; }

mu_lst_node *mu_lst_last(const mu_lst *list) { return list->last; }

mu_lst_node *mu_lst_next(const mu_lst_node *node) { return node->next; }

mu_lst_node *mu_lst_prev(const mu_lst_node *node) { return node->prev; }

uint32_t mu_lst_count(const mu_lst *list) { return list->count; }
