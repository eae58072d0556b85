// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The state of the registry, its start, and the subscribers. The table, the lock and the polling timer live as long as
// the process.

#include <cstring>

#include "internal.h"
#include "tarn/timer.h"

using namespace tarn;
using namespace tarn::event;

mu_event_state_t glb_evt;

namespace {

// `inited` is cleared first, by an atomic store, so that no sender uses a state that is being cleared.
void clear_state() {
  store_release(glb_evt.inited, u32{0});
  store_release(glb_evt.max_event_num, 0);
  constexpr size_t kBegin = offsetof(mu_event_state_t, lock);
  memset(reinterpret_cast<u8 *>(&glb_evt) + kBegin, 0, sizeof glb_evt - kBegin);
}

bool make_table(int max_event_num) {
  glb_evt.events = allocate<mu_event_rec>(static_cast<u64>(max_event_num)).release();  // a negative number is too large
  if (glb_evt.events == nullptr) return false;
  store_release(glb_evt.max_event_num, max_event_num);
  return true;
}

void start_polling() {
  // By cast, so that the table of timers shows the exported function; it ignores the argument that a timer has.
  glb_evt.poll_timer = mu_circle_timer_add(MU_EVENT_POLL_MS, reinterpret_cast<mu_timer_cb_t>(mu_event_poll), nullptr);
  if (glb_evt.poll_timer == 0) mu_printf("Create event polling timer failed\n");
}

void make_lists() {
  int type = 0;
  for (mu_event_rec &event : table()) {
    mu_list_t *list = mu_list_create(sizeof(mu_event_subscriber_t), mu_event_compare);
    store_relaxed(event.cb_list, list);
    if (list == nullptr) mu_printf("Create event %d cb_list failed\n", type);
    type++;
  }
}

// The first node with that callback; null when there is none, or no list.
mu_list_node_t *find(const mu_list_t *list, mu_event_cb_t cb) {
  for (mu_list_node_t *node = mu_list_first(list); node != nullptr; node = mu_list_next(node)) {
    if (static_cast<const mu_event_subscriber_t *>(node->data)->cb == cb) return node;
  }
  return nullptr;
}

void append(mu_list_t *list, u32 type, mu_event_cb_t cb) {
  mu_event_subscriber_t subscriber;
  memset(&subscriber, 0, sizeof subscriber);  // the padding too
  subscriber.type = type;
  subscriber.cb = cb;
  // Deliberate: not checked. Without memory, or on a type without a list, nothing is added and no error is reported.
  // Held by EventRegister.SucceedsWithoutAddingWhenMemoryRunsOut and EventAttach.TheTypeAcceptsNoSubscribersAnyMore.
  (void)mu_list_add(list, &subscriber);
}

}  // namespace

mu_status_t mu_event_init(int max_event_num, mu_event_hook_t send_hook, mu_event_cfg_handler_t cfg_handler) {
  if (max_event_num == 0) return -1;
  // Deliberate: a second call is not refused; it abandons the objects of the first one. Held by
  // EventInit.ASecondCallStartsAnew.
  clear_state();
  if (!make_table(max_event_num)) return -1;
  (void)mu_mutex_init(&glb_evt.lock, "EVENT_LOCK");  // without a mutex the registry runs unlocked
  start_polling();
  glb_evt.send_hook = send_hook;
  store_relaxed(glb_evt.cfg_handler, cfg_handler);
  make_lists();
  store_release(glb_evt.inited, u32{1});
  return 0;
}

mu_status_t mu_event_register([[maybe_unused]] uint16_t device_id, uint32_t type, mu_event_cb_t cb) {
  if (cb == nullptr || !in_range_unsigned(type)) return -1;
  ScopedLock lock(glb_evt.lock);
  mu_event_rec &event = record_of(type);
  mu_list_t *list = load_relaxed(event.cb_list);
  if (find(list, cb) != nullptr) return 0;
  append(list, type, cb);
  store_relaxed(event.registered, u8{1});
  return 0;
}

mu_status_t mu_event_deregister([[maybe_unused]] uint16_t device_id, uint32_t type, mu_event_cb_t cb) {
  if (!in_range_unsigned(type)) return -1;
  ScopedLock lock(glb_evt.lock);
  mu_event_rec &event = record_of(type);
  mu_list_t *list = load_relaxed(event.cb_list);
  (void)mu_list_delete(list, find(list, cb));  // null, which changes nothing, if not registered
  if (mu_list_count(list) == 0) store_relaxed(event.registered, u8{0});
  return 0;
}

int32_t mu_event_compare(const void *a, const void *b) {
  const uint32_t left = *static_cast<const uint32_t *>(a);
  const uint32_t right = *static_cast<const uint32_t *>(b);
  return (left > right) - (left < right);
}
