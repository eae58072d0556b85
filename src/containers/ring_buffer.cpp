// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The ring buffer of 64-bit values.
//
// When the two indices meet, the ring is either full or empty, and `full` says which. It is set, cleared and read only
// when they meet.

#include "platform/support.h"
#include "tarn/containers.h"

namespace {

using tarn::Owned;
using tarn::u32;
using tarn::u64;

bool is_full(const mu_rbuf &rb) { return rb.rd == rb.wr && rb.full != 0; }

bool is_empty(const mu_rbuf &rb) { return rb.rd == rb.wr && rb.full == 0; }

// The index of the slot after `slot`. Compares instead of dividing.
template <typename Index>
Index next_index(Index slot, u32 size) {
  return slot + 1 == size ? 0 : slot + 1;
}

}  // namespace

mu_rbuf *mu_rbuf_create(int size) {
  if (size <= 0) return nullptr;
  Owned<mu_rbuf> rb = tarn::allocate<mu_rbuf>();
  if (!rb) return nullptr;
  rb->size = static_cast<u32>(size);
  rb->slots = tarn::allocate<u64>(rb->size).release();
  return rb->slots == nullptr ? nullptr : rb.release();
}

mu_status_t mu_rbuf_write(mu_rbuf *rb, uint64_t value) {
  if (rb == nullptr || is_full(*rb)) return 1;
  rb->slots[rb->wr] = value;
  rb->wr = next_index(rb->wr, rb->size);
  if (rb->wr == rb->rd) rb->full = 1;
  return 0;
}

// Deliberate: `full` is cleared when the ring becomes empty, not when it stops being full. Held by
// RingBuffer.KeepsTheFullFlagUntilTheIndicesMeetAgain.
mu_status_t mu_rbuf_read(mu_rbuf *rb, uint64_t *value) {
  if (rb == nullptr || is_empty(*rb)) {
    *value = 0;
    return 1;
  }
  *value = rb->slots[rb->rd];
  rb->slots[rb->rd] = 0;
  rb->rd = next_index(rb->rd, rb->size);
  if (rb->rd == rb->wr) rb->full = 0;
  return 0;
}
