// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Adding timers.

#include "internal.h"

using namespace tarn;
using namespace tarn::timer;

namespace {

enum TimerType : u32 { kOneShot = 0, kCircular = 1 };

// The next id that no timer has, not even a deleted one that is not yet freed; never 0. Called with the mutex held.
u32 mu_timer_alloc_id() {
  u32 id = timer_info.last_id;
  do {
    id++;
    if (id == 0) id = 1;
  } while (mu_list_query(timer_info.list, &id) != nullptr);
  timer_info.last_id = id;
  return id;
}

// Called with the mutex held and room for one more timer.
u32 append(TimerType type, int interval_ms, mu_timer_cb_t callback, void *arg) {
  mu_timer_rec_t timer = {};
  timer.interval = to_ticks(interval_ms);
  timer.remain = timer.interval;
  timer.callback = callback;
  timer.arg = arg;
  timer.type = type;
  timer.id = mu_timer_alloc_id();
  // Deliberate: the id is returned even if there was no memory for the node; in that case the timer does not exist.
  // Held by TimerAdd.ReturnsAnIdWithoutATimerWhenMemoryRunsOut.
  (void)mu_list_add(timer_info.list, &timer);
  return timer.id;
}

u32 add(TimerType type, int interval_ms, mu_timer_cb_t callback, void *arg) {
  mu_timer_init(MU_TIMER_MAX);
  if (callback == nullptr) return 0;
  {
    ScopedLock lock(timer_info.mutex);
    if (mu_list_count(timer_info.list) < timer_info.max_num) return append(type, interval_ms, callback, arg);
  }
  mu_printf("Timer number exceed(%d)\n", static_cast<int>(timer_info.max_num));
  return 0;
}

}  // namespace

uint32_t mu_timer_add(int interval_ms, mu_timer_cb_t callback, void *arg) {
  return add(kOneShot, interval_ms, callback, arg);
}

uint32_t mu_circle_timer_add(int interval_ms, mu_timer_cb_t callback, void *arg) {
  return add(kCircular, interval_ms, callback, arg);
}
