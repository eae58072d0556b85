// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the sources of the timer service share.
#ifndef TARN_TIMER_INTERNAL_H
#define TARN_TIMER_INTERNAL_H

#include "platform/support.h"
#include "tarn/timer.h"

namespace tarn::timer {

// Milliseconds to ticks, truncated, with a floor of one tick. The adds convert signed intervals, so a negative one
// becomes one tick; mu_timer_restart converts an unsigned one.
template <typename Milliseconds>
constexpr u32 to_ticks(Milliseconds ms) {
  constexpr auto tick_ms = static_cast<Milliseconds>(MU_TICK_MS);
  return ms <= tick_ms ? 1 : static_cast<u32>(ms / tick_ms);
}

inline mu_timer_rec_t &timer_of(const mu_list_node_t *node) { return *static_cast<mu_timer_rec_t *>(node->data); }

// Starts the service unless it runs. A failed start leaves `timer_info.max_num` at 0.
void mu_timer_init(u32 max_num);

// The body of the timer thread.
void *mu_timer_thread(void *arg);

}  // namespace tarn::timer

#endif
