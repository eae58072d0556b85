// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The timer thread: one scan every 10 ms over the list of timers.
//
// A scan subtracts the elapsed ticks from each timer and runs the callbacks of those that expire. The timer mutex is
// released around each callback, so a callback may add, stop or delete timers, including its own. Only this thread
// removes nodes, so the successor that was read before a callback is still there after it.

#include "internal.h"
#include "tarn/os.h"

namespace tarn::timer {

namespace {

// Runs the callback with the mutex released. Returns its run time in ticks, including the wait for the mutex.
u32 run_callback(mu_timer_rec_t &timer) {
  const u64 started = mu_current_tick();
  store_relaxed(timer.running, u32{1});
  {
    ScopedUnlock released(timer_info.mutex);
    timer.callback(timer.arg);
    store_release(timer.running, u32{0});  // a thread that reads 0 may free what the callback used
  }
  return static_cast<u32>(mu_current_tick() - started);
}

void note_drain(mu_timer_rec_t &timer, u32 ticks) {
  timer_info.last_drain = ticks;
  if (ticks > timer.drain) timer.drain = ticks;
  if (ticks > timer_info.max_drain) {
    timer_info.max_drain = ticks;
    timer_info.max_drain_cb = timer.callback;
  }
}

// Returns the ticks that the callback took.
u32 expire(mu_list_node_t *node) {
  mu_timer_rec_t &timer = timer_of(node);
  timer.remain = 0;
  timer_info.expired++;
  const u32 ticks = run_callback(timer);
  note_drain(timer, ticks);
  if (timer.type != 0) {
    timer.remain = timer.interval;  // the overshoot is dropped
  } else if (timer.remain == 0) {
    mu_list_delete(timer_info.list, node);  // unless its callback armed it again
  }
  return ticks;
}

// Returns the ticks that a callback took, which also count as elapsed for the timers after this one.
u32 visit(mu_list_node_t *node, u64 elapsed) {
  mu_timer_rec_t &timer = timer_of(node);
  if (timer.deleted != 0) {
    mu_list_delete(timer_info.list, node);
  } else if (timer.stopped == 0) {
    if (timer.remain <= elapsed) return expire(node);
    timer.remain -= static_cast<u32>(elapsed);
  }
  return 0;
}

void scan() {
  ScopedLock lock(timer_info.mutex);
  // Deliberate, twice. `last_tick` starts at 0, so the first scan counts the whole age of the clock as elapsed: timers
  // added before it expire at once. `last_drain` is never cleared, so every scan adds the latest callback's run time
  // again until another callback runs. Held by TimerFirstScan.CountsTheAgeOfTheClock and
  // TimerScan.AddsTheLatestRunTimeToEveryScan.
  u64 elapsed = timer_info.last_drain + mu_current_tick() - timer_info.last_tick;
  for (mu_list_node_t *node = mu_list_first(timer_info.list); node != nullptr;) {
    mu_list_node_t *successor = mu_list_next(node);  // read first: the visit may free the node
    elapsed += visit(node, elapsed);
    node = successor;
  }
  timer_info.last_tick = mu_current_tick();
}

}  // namespace

void *mu_timer_thread([[maybe_unused]] void *arg) {
  store_relaxed(tmr_tid, int64_t{OS_CURRENT_THREAD()});
  for (;;) {
    OS_SLEEP(MU_TICK_MS);
    scan();
  }
}

}  // namespace tarn::timer
