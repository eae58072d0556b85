// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The start of the channel: the event thread and the registry that it feeds. They are never stopped.

#include <pthread.h>

#include "internal.h"

using namespace tarn;

uint32_t evt_flag;

namespace {

constexpr size_t kStackSize = 32768;
constexpr int kPriority = 80;

// With pthread_create directly, not through platform/: the scheduling is part of the contract.
void start_event_thread() {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  (void)pthread_attr_setstacksize(&attributes, kStackSize);  // 64-bit Arm requires more: there the default applies
  (void)pthread_attr_setschedpolicy(&attributes, SCHED_RR);
  sched_param parameters = {};
  parameters.sched_priority = kPriority;
  (void)pthread_attr_setschedparam(&attributes, &parameters);
  (void)pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
  // By cast: the body takes no argument, so programs may also call it directly.
  const auto body = reinterpret_cast<mu_thread_entry_t>(reinterpret_cast<void (*)()>(remote_event_process));
  pthread_t thread;
  // Deliberate: not checked. A process that may not use SCHED_RR continues without the thread. Held by
  // PlatEventInit.GoesOnWithoutTheThread.
  (void)pthread_create(&thread, &attributes, body, nullptr);
  (void)pthread_attr_destroy(&attributes);
}

}  // namespace

void mup_plat_event_init() {
  if (load_acquire(evt_flag) != 0) return;
  // The thread starts first: datagrams that it receives before the registry is ready are dropped.
  start_event_thread();
  (void)mu_event_init(MUP_EVENT_NUM, nullptr, mup_event_cfg_forward);  // without memory the registry does not exist
  store_release(evt_flag, u32{1});
  mu_printf("mu-event: init OK (max_event_num %d)\n", MUP_EVENT_NUM);
}
