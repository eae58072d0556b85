// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Counters and suppression settings. Each call acts on the table or, if a configuration handler is installed, becomes a
// message to the handler. event_cfg_set is the other end: it turns a message into the call.

#include "internal.h"

using namespace tarn;
using namespace tarn::event;

namespace {

mu_event_msg_t request(mu_event_op op, u32 type) {
  mu_event_msg_t msg = {};  // zeroed: no byte of the stack reaches a handler
  msg.op = op;
  msg.type = type;
  return msg;
}

void clear_counters(mu_event_rec &event) {
  store_relaxed(event.count, u32{0});
  store_relaxed(event.suprs_cnt, u32{0});
}

// Deliberate: kept in units of 10 ms and counted in polls of 500 ms, so a window lasts 50 times the period. Held by
// EventSuppression.RunsTheWorkedCaseToItsEnd.
u32 to_period(u32 ms) { return ms > MU_TICK_MS ? ms / MU_TICK_MS : 1; }

// Does not change a suppression in progress, the window or `count`.
void configure(mu_event_rec &event, const mu_event_cfg_t &cfg) {
  store_relaxed(event.suprs_cnt, u32{0});
  store_relaxed(event.period, to_period(cfg.period));
  store_relaxed(event.threshold, u32{cfg.threshold});
  store_relaxed(event.suprs_en, static_cast<u8>(cfg.suprs_en != 0));
  call_if_set(event.release_cb, event.cookie);
}

}  // namespace

mu_status_t mu_event_counter_get(uint16_t device_id, uint32_t type, uint32_t *count, uint32_t clear) {
  *count = 0;
  if (!in_range_unsigned(type)) return -1;
  ScopedLock lock(glb_evt.lock);
  mu_event_msg_t msg = request(MU_EVENT_OP_COUNTER_GET, type);
  msg.clear = clear;
  if (forward(device_id, msg)) {
    *count = msg.count;
    return 0;
  }
  mu_event_rec &event = record_of(type);
  *count = load_relaxed(event.count);
  if (clear != 0) store_relaxed(event.count, u32{0});
  // Deliberate: -1 although the value was delivered; 0 means that a handler supplied it. Held by
  // EventCounterGet.ReturnsMinusOneWithTheLocalValue.
  return -1;
}

mu_status_t mu_event_counter_clear(uint16_t device_id, uint32_t type) {
  if (!in_range_unsigned(type)) return -1;
  ScopedLock lock(glb_evt.lock);
  mu_event_msg_t msg = request(MU_EVENT_OP_COUNTER_CLEAR, type);
  if (!forward(device_id, msg)) clear_counters(record_of(type));
  return 0;
}

mu_status_t mu_event_counter_clear_all(uint16_t device_id) {
  ScopedLock lock(glb_evt.lock);  // before mu_event_init the lock is null and the table empty
  mu_event_msg_t msg = request(MU_EVENT_OP_COUNTER_CLEAR_ALL, 0);
  if (forward(device_id, msg)) return 0;
  for (mu_event_rec &event : table()) clear_counters(event);
  return 0;
}

mu_status_t mu_event_set(uint16_t device_id, int type, const mu_event_cfg_t *cfg) {
  if (cfg == nullptr || !in_range_signed(type)) return -1;
  ScopedLock lock(glb_evt.lock);
  mu_event_msg_t msg = request(MU_EVENT_OP_SET, static_cast<u32>(type));
  put_cfg(msg, *cfg);
  if (!forward(device_id, msg)) configure(record_of(type), *cfg);
  return 0;
}

mu_status_t mu_event_get(uint16_t device_id, int type, mu_event_cfg_t *cfg) {
  if (cfg == nullptr || !in_range_signed(type)) return -1;
  ScopedLock lock(glb_evt.lock);
  mu_event_msg_t msg = request(MU_EVENT_OP_GET, static_cast<u32>(type));
  put_cfg(msg, *cfg);  // the caller's values remain if a handler does not answer
  if (forward(device_id, msg)) {
    *cfg = cfg_of(msg);
    return 0;
  }
  const mu_event_rec &event = record_of(type);
  cfg->threshold = load_relaxed(event.threshold);
  cfg->period = load_relaxed(event.period) * MU_TICK_MS;
  cfg->suprs_en = load_relaxed(event.suprs_en);
  return 0;
}

int event_cfg_set(uint16_t device_id, mu_event_msg_t *msg) {
  if (msg == nullptr) return -1;
  mu_event_cfg_t cfg = cfg_of(*msg);
  switch (msg->op) {
    case MU_EVENT_OP_COUNTER_GET:
      return mu_event_counter_get(device_id, msg->type, &msg->count, msg->clear);
    case MU_EVENT_OP_COUNTER_CLEAR:
      return mu_event_counter_clear(device_id, msg->type);
    case MU_EVENT_OP_COUNTER_CLEAR_ALL:
      return mu_event_counter_clear_all(device_id);
    case MU_EVENT_OP_SET:
      return mu_event_set(device_id, static_cast<int>(msg->type), &cfg);
    case MU_EVENT_OP_GET: {
      const mu_status_t status = mu_event_get(device_id, static_cast<int>(msg->type), &cfg);
      put_cfg(*msg, cfg);
      return status;
    }
    case MU_EVENT_OP_DUMP:
      mu_event_dump();
      return 0;
    default:
      return -1;
  }
}
