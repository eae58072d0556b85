// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Deleting, stopping, starting and counting timers. Nothing is removed here: flags are set, and the timer thread acts
// on them at its next scan. This is what makes it safe to delete a timer while its callback runs.

#include <cstdio>

#include "internal.h"
#include "tarn/os.h"

using namespace tarn;
using namespace tarn::timer;

namespace {

// The first timer with that id, or null. Called with the mutex held.
mu_timer_rec_t *find(u32 id) {
  const mu_list_node_t *node = mu_list_query(timer_info.list, &id);
  return node == nullptr ? nullptr : &timer_of(node);
}

// Whether the callback is running and the caller can wait for its end. The timer thread itself cannot wait.
u32 runs_elsewhere(const mu_timer_rec_t &timer) {
  return OS_CURRENT_THREAD() != load_relaxed(tmr_tid) && load_acquire(timer.running) != 0;
}

u32 flag(u32 id, u32 mu_timer_rec_t::*which, const char *complaint) {
  ScopedLock lock(timer_info.mutex);
  mu_timer_rec_t *timer = find(id);
  if (timer == nullptr) {
    (void)puts(complaint);
    return 0;
  }
  timer->*which = 1;
  return runs_elsewhere(*timer);
}

// Deliberate: clears `deleted` too, so a timer whose deletion is pending comes back. Held by
// TimerStart.BringsBackADeletedTimer.
void activate(mu_timer_rec_t &timer) {
  timer.remain = timer.interval;
  timer.stopped = 0;
  timer.deleted = 0;
}

}  // namespace

uint32_t mu_timer_del(uint32_t id) { return flag(id, &mu_timer_rec_t::deleted, "Oops: Delete an invalid timer!!\r"); }

uint32_t mu_timer_stop(uint32_t id) { return flag(id, &mu_timer_rec_t::stopped, "Oops: Stop an invalid timer!!\r"); }

void mu_timer_start(uint32_t id) {
  ScopedLock lock(timer_info.mutex);
  if (mu_timer_rec_t *timer = find(id)) activate(*timer);
}

void mu_timer_restart(uint32_t id, uint32_t interval_ms) {
  ScopedLock lock(timer_info.mutex);
  mu_timer_rec_t *timer = find(id);
  if (timer == nullptr) return;
  // Deliberate: unsigned here, signed in the adds. Held by TimerRestart.TakesItsIntervalAsUnsigned.
  timer->interval = to_ticks(interval_ms);
  activate(*timer);
}

uint32_t mu_timer_count() {
  ScopedLock lock(timer_info.mutex);
  return mu_list_count(timer_info.list);
}
