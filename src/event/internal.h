// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the sources of the event service share.
//
// mu_event_suprs_attach and mu_event_dump take no lock, so every access to a field of a record is atomic (relaxed).
#ifndef TARN_EVENT_INTERNAL_H
#define TARN_EVENT_INTERNAL_H

#include <span>

#include "platform/support.h"
#include "tarn/event.h"

namespace tarn::event {

inline bool is_inited() { return load_acquire(glb_evt.inited) != 0; }

// Deliberate: two checks. The signed one accepts negative types: type -n addresses the record n places before the
// table. Held by EventNegativeType.SendAddressesTheRecordBeforeTheTable and
// EventNegativeType.FunctionsWithAnUnsignedTypeRefuseIt.
inline bool in_range_signed(int type) { return is_inited() && type < glb_evt.max_event_num; }
inline bool in_range_unsigned(u32 type) { return is_inited() && type < static_cast<u32>(glb_evt.max_event_num); }

// A record of the table, or with a negative type one before it.
inline mu_event_rec &record_of(int type) { return *(glb_evt.events + type); }
inline mu_event_rec &record_of(u32 type) { return glb_evt.events[type]; }

// The whole table; empty before mu_event_init, which stores the number of records after the pointer.
inline std::span<mu_event_rec> table() {
  const auto count = static_cast<size_t>(load_acquire(glb_evt.max_event_num));
  return {glb_evt.events, count};
}

// Only the holder of the lock increments.
inline void increment(u32 &counter) { store_relaxed(counter, load_relaxed(counter) + 1); }

inline void call_if_set(const mu_event_suprs_cb_t &callback, const u64 &cookie) {
  if (const mu_event_suprs_cb_t set = load_relaxed(callback)) set(load_relaxed(cookie));
}

// The configuration in a message.
inline mu_event_cfg_t cfg_of(const mu_event_msg_t &msg) { return {msg.suprs_en, msg.threshold, msg.period}; }
inline void put_cfg(mu_event_msg_t &msg, const mu_event_cfg_t &cfg) {
  msg.suprs_en = cfg.suprs_en;
  msg.threshold = cfg.threshold;
  msg.period = cfg.period;
}

// Hands the message to the configuration handler. Returns false when there is none.
inline bool forward(u16 device_id, mu_event_msg_t &msg) {
  const mu_event_cfg_handler_t handler = load_relaxed(glb_evt.cfg_handler);
  if (handler == nullptr) return false;
  (void)handler(device_id, &msg);
  return true;
}

}  // namespace tarn::event

#endif
