// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The state of the timer service and its start. The thread runs as long as the process.

#include <cstring>

#include "internal.h"
#include "tarn/os.h"

mu_timer_info_t timer_info;
uint32_t timer_initialized;
int64_t tmr_tid;

int32_t mu_timer_compare(const void *record, const void *id) {
  const uint32_t own = static_cast<const mu_timer_rec_t *>(record)->id;
  const uint32_t searched = *static_cast<const uint32_t *>(id);
  return (own > searched) - (own < searched);
}

namespace tarn::timer {

namespace {

constexpr u32 kStackSize = 32768;
constexpr int kPriority = 3;

}  // namespace

void mu_timer_init(u32 max_num) {
  if (load_acquire(timer_initialized) != 0) return;
  // After a failed start, the next one begins from the start and abandons the objects of the failed one.
  memset(&timer_info, 0, sizeof timer_info);
  (void)mu_mutex_init(&timer_info.mutex, "Tarn_Timer");  // without a mutex the service runs unlocked
  timer_info.list = mu_list_create(sizeof(mu_timer_rec_t), mu_timer_compare);
  if (timer_info.list == nullptr) return;
  if (OS_THREAD_CREATE(&timer_info.tid, "TARN-Timer", mu_timer_thread, nullptr, kStackSize, kPriority, 0) != 0) return;
  timer_info.max_num = max_num;
  store_release(timer_initialized, u32{1});
}

}  // namespace tarn::timer
