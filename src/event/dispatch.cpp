// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Sending: one occurrence of an event to the send hook and to every subscriber, unless its type is suppressed.

#include "internal.h"

using namespace tarn;
using namespace tarn::event;

namespace {

struct Occurrence {
  u16 device_id;
  u32 type;
  void *data;
  u32 len;
};

// Drops and counts an occurrence of a suppressed type. The one that finds the window full begins the suppression and is
// dropped too. True if the occurrence was dropped.
bool suppress(mu_event_rec &event) {
  if (load_relaxed(event.suprs_en) == 0) return false;
  if (load_relaxed(event.suprs_s) == 0) {
    if (load_relaxed(event.period_cnt) < load_relaxed(event.threshold)) return false;
    call_if_set(event.suppress_cb, event.cookie);
    store_relaxed(event.suprs_s, u8{1});
  }
  increment(event.suprs_cnt);
  return true;
}

void run_send_hook(const Occurrence &occurrence) {
  if (glb_evt.send_hook == nullptr) return;
  (void)glb_evt.send_hook(occurrence.device_id, occurrence.type, occurrence.data, occurrence.len);
}

// In the order of their registration.
void run_subscribers(const mu_list_t *list, const Occurrence &occurrence) {
  if (list == nullptr) return;
  for (const mu_list_node_t *node = list->head; node != nullptr; node = node->next) {
    const mu_event_cb_t cb = static_cast<const mu_event_subscriber_t *>(node->data)->cb;
    if (cb != nullptr) (void)cb(occurrence.device_id, occurrence.type, occurrence.data, occurrence.len, 0);
  }
}

}  // namespace

mu_status_t mu_event_send(uint16_t device_id, int type, void *data, uint32_t len) {
  if (!in_range_signed(type)) return -1;
  ScopedLock lock(glb_evt.lock);
  mu_event_rec &event = record_of(type);
  if (suppress(event)) return -1;
  const Occurrence occurrence = {device_id, static_cast<u32>(type), data, len};
  run_send_hook(occurrence);
  run_subscribers(load_relaxed(event.cb_list), occurrence);
  increment(event.period_cnt);  // also when suppression is disabled: it may be enabled at any time
  increment(event.count);
  return 0;
}
