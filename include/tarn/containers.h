/* SPDX-FileCopyrightText: 2026 The tarn authors */
/* SPDX-License-Identifier: Apache-2.0 */

/**
 * @file
 * Containers:
 * - `mu_list`: a doubly linked list of fixed-size record copies in insertion order;
 * - `mu_lst`: a doubly linked list of the caller's own elements, which contain the links;
 * - `mu_hash`: a table of `mu_lst` buckets, guarded by one mutex;
 * - bit arrays: single bits of the caller's bytes;
 * - `mu_rbuf`: a ring buffer of 64-bit values.
 *
 * Holds for the whole header:
 * - Only `mu_hash` locks. A caller that shares another container holds its own lock across every call and across any
 *   walk.
 * - Unless a function says what null does, its pointers must not be null; this is not checked.
 * - Failures are reported only by results; nothing is printed.
 * - Memory comes from mu_malloc. `mu_lst`, `mu_hash` and the bit arrays neither copy nor free what the caller puts in.
 */
#ifndef TARN_CONTAINERS_H
#define TARN_CONTAINERS_H

#include "tarn/types.h"

TARN_BEGIN_DECLS

/* ---- mu_list: a list of record copies --------------------------------------------------------------------------- */

/**
 * Compares a record with a key; both belong to the caller. The list looks only at zero versus nonzero.
 *
 * @return 0 for a match. The library's own callbacks return 1 when the record's key is greater, -1 when it is smaller.
 */
typedef int32_t (*mu_list_cmp_cb_t)(const void *record, const void *key);

/** Visits a record, which it may change in place. It must not delete the node that it visits. */
typedef void (*mu_list_trav_cb_t)(void *record);

/**
 * One node. The record copy follows these fields in the same block, at an address divisible by 8. Callers may read
 * `data` and change the record through it; only the list changes the links.
 */
typedef struct mu_list_node {
  void *data;                /**< The node's record copy. */
  struct mu_list_node *prev; /**< Null at the head. */
  struct mu_list_node *next; /**< Null at the tail. */
} mu_list_node_t;

/** A list. */
typedef struct mu_list {
  uint32_t data_size;   /**< Bytes of a record; not 0. */
  uint32_t count;       /**< Number of nodes. */
  mu_list_node_t *tail; /**< The last node; null when empty. */
  mu_list_node_t *head; /**< The first node; null when empty. */
  mu_list_cmp_cb_t cmp; /**< Used by mu_list_query; may be null. */
} mu_list_t;

TARN_STATIC_ASSERT(sizeof(mu_list_node_t) == 24, "the record follows at byte 24");
TARN_STATIC_ASSERT(offsetof(mu_list_node_t, prev) == 8 && offsetof(mu_list_node_t, next) == 16, "node layout");
TARN_STATIC_ASSERT(offsetof(mu_list_t, count) == 4 && offsetof(mu_list_t, tail) == 8 &&
                       offsetof(mu_list_t, head) == 16 && offsetof(mu_list_t, cmp) == 24 && sizeof(mu_list_t) == 32,
                   "list layout");

/**
 * Creates an empty list.
 *
 * @param[in] data_size  Bytes of a record, 1 or more.
 * @param[in] cmp        Compare callback for mu_list_query; null for none.
 * @return The list, to be released with mu_list_destory; null when `data_size` is 0 or negative, or memory runs out.
 */
TARN_API mu_list_t *mu_list_create(int data_size, mu_list_cmp_cb_t cmp);

/**
 * Frees every node, from the tail to the head, and the list itself. A null list is ignored.
 *
 * `mu_list_destory` is exported under this spelling; programs link to it.
 */
TARN_API void mu_list_destory(mu_list_t *list);

/**
 * Appends a copy of the `data_size` bytes at `record` at the tail. There is no check for duplicates.
 *
 * @retval 0   Added.
 * @retval -1  `list` or `record` is null, or memory ran out; the list is unchanged.
 */
TARN_API mu_status_t mu_list_add(mu_list_t *list, const void *record);

/**
 * Unlinks `node`, which must belong to `list` (not checked), and frees it with its record. In a walk, read the next
 * node before this call.
 *
 * @retval 0   Deleted.
 * @retval -1  `list` or `node` is null.
 */
TARN_API mu_status_t mu_list_delete(mu_list_t *list, mu_list_node_t *node);

/**
 * Frees every node, from the tail to the head; the list is empty and usable again.
 *
 * @retval 0   Done.
 * @retval -1  `list` is null.
 */
TARN_API mu_status_t mu_list_delete_all(mu_list_t *list);

/** The first node; null for an empty or null list. It stays valid until it is deleted. */
TARN_API mu_list_node_t *mu_list_first(const mu_list_t *list);

/** The last node; null for an empty or null list. */
TARN_API mu_list_node_t *mu_list_last(const mu_list_t *list);

/** The node before `node`; null for the head or a null node. */
TARN_API mu_list_node_t *mu_list_previous(const mu_list_node_t *node);

/** The node after `node`; null for the tail or a null node. */
TARN_API mu_list_node_t *mu_list_next(const mu_list_node_t *node);

/**
 * Finds the node that was added first among those whose record matches `key`: the list's compare callback returns 0.
 *
 * @return The node; null when none matches, or `list`, `key` or the compare callback is null.
 */
TARN_API mu_list_node_t *mu_list_query(const mu_list_t *list, const void *key);

/**
 * Calls `visit` with each record, from the head on. The next node is read after the callback has returned, so a record
 * that the callback appends is visited too. `visit` is not checked: it must not be null when the list has nodes.
 */
TARN_API void mu_list_traverse(const mu_list_t *list, mu_list_trav_cb_t visit);

/** The number of nodes; 0 for a null list. */
TARN_API uint32_t mu_list_count(const mu_list_t *list);

/* ---- mu_lst: a list of the caller's elements --------------------------------------------------------------------
 *
 * An element is a structure of the caller's that begins with a mu_lst_node; a pointer to the element can be cast to a
 * pointer to the node, and back. The list does not allocate, copy or free. No pointer may be null, except `after` of
 * mu_lst_insert; this is not checked.
 */

/** The links, the first field of every element. Only the list changes them while the element is on it. */
typedef struct mu_lst_node {
  struct mu_lst_node *prev; /**< Null at the head. */
  struct mu_lst_node *next; /**< Null at the tail. */
} mu_lst_node;

/** A list. Deliberate: the tail comes before the head, as `prev` comes before `next` in a node. */
typedef struct mu_lst {
  mu_lst_node *last;  /**< The tail; null when empty. */
  mu_lst_node *first; /**< The head; null when empty. */
  uint32_t count;     /**< Number of nodes. */
} mu_lst;

TARN_STATIC_ASSERT(offsetof(mu_lst_node, next) == 8 && sizeof(mu_lst_node) == 16, "node layout");
TARN_STATIC_ASSERT(offsetof(mu_lst, first) == 8 && offsetof(mu_lst, count) == 16 && sizeof(mu_lst) == 24,
                   "list layout");

/** Makes `list` empty, whatever it held. */
TARN_API void mu_lst_init(mu_lst *list);

/**
 * Links `node` directly after `after`.
 *
 * @param[in] after  A node of `list`; null for the front.
 * @param[in] node   On no list; its links are overwritten. The caller owns it, and must not move it while it is on the
 *                   list.
 */
TARN_API void mu_lst_insert(mu_lst *list, mu_lst_node *after, mu_lst_node *node);

/** Appends `node`, which is on no list, at the tail. */
TARN_API void mu_lst_add(mu_lst *list, mu_lst_node *node);

/**
 * Unlinks `node`. It must be on `list`; if it is not, the behaviour is undefined; this is not checked. The node's own
 * links do not change, so a walk may delete its current node and continue from it.
 */
TARN_API void mu_lst_delete(mu_lst *list, mu_lst_node *node);

/** Removes the head. @return The node, its links unchanged; null for an empty list. */
TARN_API mu_lst_node *mu_lst_get(mu_lst *list);

/** The head; null for an empty list. */
TARN_API mu_lst_node *mu_lst_first(const mu_lst *list);

/** The tail; null for an empty list. */
TARN_API mu_lst_node *mu_lst_last(const mu_lst *list);

/** The node after `node`; null for the tail. */
TARN_API mu_lst_node *mu_lst_next(const mu_lst_node *node);

/** The node before `node`; null for the head. */
TARN_API mu_lst_node *mu_lst_prev(const mu_lst_node *node);

/** The number of nodes. */
TARN_API uint32_t mu_lst_count(const mu_lst *list);

/* ---- mu_hash: buckets of mu_lst under one mutex -----------------------------------------------------------------
 *
 * Any thread may call these functions. Except mu_hash_count and mu_hash_destroy, they hold the table's mutex, but not
 * while they call the bucket function. An element is in only one table at a time, and must not be moved while it is in
 * it. The callers must ensure that an element exists as long as a walk uses it.
 *
 * The order of the elements, for mu_hash_first, mu_hash_next, mu_hash_find and mu_hash_get: by bucket, from 0 on;
 * within a bucket, in the order in which they were added.
 */

/**
 * Returns the bucket of an element. If it is not below the table's `size`, the add or delete fails. It must stay the
 * same as long as the element is in the table. Called on the thread that adds or deletes, without the mutex: it may
 * call functions on the same table.
 */
typedef uint32_t (*mu_hash_fn_t)(const mu_lst_node *node);

/**
 * Compares an element with a key; 0 is a match. Called on the thread that searches, with the mutex held: it must not
 * call functions on the same table, throw or longjmp.
 */
typedef int (*mu_hash_cmp_fn_t)(const mu_lst_node *node, const void *key);

/** A table, one block of memory with the buckets at its end. Only the functions write to it. */
__extension__ typedef struct mu_hash { /* an array without a length: C11, an extension in C++ */
  uint32_t size;                       /**< Number of buckets. */
  mu_mutex_t lock;                     /**< Guards `count`, the buckets and the links of the elements. */
  mu_hash_fn_t hash_fn;                /**< Not null. */
  mu_hash_cmp_fn_t cmp_fn;             /**< Not null. */
  uint32_t count;                      /**< Number of elements. */
  mu_lst buckets[];                    /**< `size` lists. */
} mu_hash;

TARN_STATIC_ASSERT(offsetof(mu_hash, lock) == 8 && offsetof(mu_hash, hash_fn) == 16 &&
                       offsetof(mu_hash, cmp_fn) == 24 && offsetof(mu_hash, count) == 32 &&
                       offsetof(mu_hash, buckets) == 40 && sizeof(mu_hash) == 40,
                   "table layout");

/**
 * Creates an empty table. Its mutex is named "H" and the table's address.
 *
 * @param[in] size  Number of buckets, 1 to 89478483: the table's 40 + 24 * `size` bytes must fit an int.
 * @return The table, to be released with mu_hash_destroy; null when `size` is out of range, a function is null, or
 *         memory for the table or its mutex runs out.
 */
TARN_API mu_hash *mu_hash_create(uint32_t size, mu_hash_fn_t hash_fn, mu_hash_cmp_fn_t cmp_fn);

/**
 * Releases a table and its mutex. No other thread may be using the table. The elements are not touched.
 *
 * @retval 0  Done.
 * @retval 1  `table` is null.
 */
TARN_API mu_status_t mu_hash_destroy(mu_hash *table);

/**
 * Appends `node`, which is on no list and in no table, to its bucket. There is no check for duplicates.
 *
 * @retval 0   Added.
 * @retval -1  `table` or `node` is null, or the bucket function's result is `size` or above; nothing is changed.
 */
TARN_API mu_status_t mu_hash_add(mu_hash *table, mu_lst_node *node);

/**
 * Unlinks `node`. It must be in the table, in the bucket that the bucket function returns now; if it is not, the
 * behaviour is undefined; this is not checked. The node's own links do not change.
 *
 * @retval 0   Deleted.
 * @retval -1  As mu_hash_add.
 */
TARN_API mu_status_t mu_hash_del(mu_hash *table, mu_lst_node *node);

/**
 * Begins a walk:
 *
 *     for (int r = mu_hash_first(table, &node, &bucket); r == 0; r = mu_hash_next(table, node, bucket, &node, &bucket))
 *
 * The mutex is released between the calls. An element that another thread adds meanwhile is visited if its place is
 * after the walk's current node. Other threads must not remove the walk's current node.
 *
 * @param[out] out         The first element; not null.
 * @param[out] bucket_out  Its bucket; not null.
 * @retval 0   Found.
 * @retval -1  `table` is null or empty; the outputs are unchanged.
 */
TARN_API mu_status_t mu_hash_first(mu_hash *table, mu_lst_node **out, uint32_t *bucket_out);

/**
 * Continues a walk.
 *
 * @param[in]  node        The walk's current node; not null. Only its link is read.
 * @param[in]  bucket      The bucket of `node`. If it is `size` or above, no bucket is searched after the node's list.
 * @param[out] out         The element after `node`; may be the variable that holds `node`.
 * @param[out] bucket_out  Its bucket; may be the variable that holds `bucket`.
 * @retval 0   Found.
 * @retval -1  `node` was the last: null is stored in `out`, `bucket_out` is unchanged. Or `table` is null: both outputs
 *             are unchanged.
 */
TARN_API mu_status_t mu_hash_next(mu_hash *table, const mu_lst_node *node, uint32_t bucket, mu_lst_node **out,
                                  uint32_t *bucket_out);

/**
 * Finds the first element for which the compare function returns 0.
 *
 * Deliberate: every bucket is searched, from 0 on; the bucket function is not called. An element is found in whichever
 * bucket it is, and the time grows with the number of elements, not with the length of a bucket.
 *
 * @param[in] key  Passed to the compare function, even when null.
 * @return The element; null when none matches or `table` is null.
 */
TARN_API mu_lst_node *mu_hash_find(mu_hash *table, const void *key);

/** Removes the first element. @return The element, its links unchanged; null when `table` is null or empty. */
TARN_API mu_lst_node *mu_hash_get(mu_hash *table);

/** The number of elements, read without the mutex; 0 for a null table. */
TARN_API uint32_t mu_hash_count(const mu_hash *table);

/* ---- Bit arrays -------------------------------------------------------------------------------------------------
 *
 * A bit array consists of the caller's bytes, at any address. Bit `n` is the bit 0x80 >> (n % 8) of byte n / 8: bit 0
 * is the most significant bit of byte 0. The array is not checked for null, and bit numbers must not be negative.
 */

/** The result of mu_bit_get_0 and mu_bit_get_1 when there is no such bit; as an int, -1. */
#define MU_BIT_NONE UINT32_C(0xFFFFFFFF)

/** Sets bit `n`. @return 0, always. */
TARN_API mu_status_t mu_bit_set(uint8_t *bits, int n);

/** Clears bit `n`. @return 0, always. */
TARN_API mu_status_t mu_bit_clr(uint8_t *bits, int n);

/** @return 1 when bit `n` is set, else 0. */
TARN_API int mu_bit_tst(const uint8_t *bits, int n);

/**
 * Finds the first clear bit among the first `nbits` bits of an array. Only bytes that hold these bits are read.
 *
 * @param[in] nbits  A negative length counts as 0.
 * @return The bit's number; MU_BIT_NONE when all of them are set or `nbits` is 0.
 */
TARN_API uint32_t mu_bit_get_0(const uint8_t *bits, int nbits);

/** Finds the first set bit; otherwise as mu_bit_get_0. */
TARN_API uint32_t mu_bit_get_1(const uint8_t *bits, int nbits);

/** @return 1 when the first `nbits` bits are all set or `nbits` is 0; else 0. */
TARN_API int mu_bit_tst_all(const uint8_t *bits, uint32_t nbits);

/* ---- mu_rbuf: a ring buffer of 64-bit values -------------------------------------------------------------------- */

/** A ring buffer. All of its `size` slots can be filled: when `rd` equals `wr`, `full` says whether it is full. */
typedef struct mu_rbuf {
  uint64_t rd;     /**< Slot that is read next. */
  uint32_t wr;     /**< Slot that is written next. */
  uint32_t size;   /**< Number of slots. */
  uint32_t full;   /**< When `rd` equals `wr`: 1 full, 0 empty. Deliberate: otherwise meaningless; it may be 1. */
  uint64_t *slots; /**< A separate block. Slots that have been read are 0. */
} mu_rbuf;

TARN_STATIC_ASSERT(offsetof(mu_rbuf, wr) == 8 && offsetof(mu_rbuf, size) == 12 && offsetof(mu_rbuf, full) == 16 &&
                       offsetof(mu_rbuf, slots) == 24 && sizeof(mu_rbuf) == 32,
                   "ring buffer layout");

/**
 * Creates an empty ring buffer.
 *
 * @param[in] size  Number of values that it holds, 1 to 268435455: the slots' 8 * `size` bytes must fit an int.
 * @return The buffer; null when `size` is out of range or memory runs out. No function releases it. To release it, free
 *         `slots` and then the buffer with mu_free.
 */
TARN_API mu_rbuf *mu_rbuf_create(int size);

/**
 * Appends a value.
 *
 * @retval 0  Written.
 * @retval 1  `rb` is null or full; nothing is changed.
 */
TARN_API mu_status_t mu_rbuf_write(mu_rbuf *rb, uint64_t value);

/**
 * Removes the oldest value.
 *
 * @param[out] value  The value; 0 on failure. Not null.
 * @retval 0  Read.
 * @retval 1  `rb` is null or empty.
 */
TARN_API mu_status_t mu_rbuf_read(mu_rbuf *rb, uint64_t *value);

TARN_END_DECLS

#endif
