// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Subscribers, a send hook and suppression callbacks that note what they are called with.
#ifndef TARN_TESTS_EVENT_SUBSCRIBERS_H
#define TARN_TESTS_EVENT_SUBSCRIBERS_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tarn/event.h"

namespace event_plain {

struct Heard {
  char who;
  uint16_t device_id = 0;
  uint32_t type = 0;
  const void *data = nullptr;
  uint32_t len = 0;
  uint64_t reserved = 0;

  bool operator==(const Heard &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const Heard &call) {
  return out << call.who << '(' << call.device_id << ", " << call.type << ", " << call.data << ", " << call.len << ", "
             << call.reserved << ')';
}

inline std::vector<Heard> g_calls;

// Who was called since the last time, in order.
inline std::string take_calls() {
  std::string who;
  for (const Heard &call : g_calls) who += call.who;
  g_calls.clear();
  return who;
}

// A subscriber for each letter, every one a function of its own. Their results are ignored.
template <char kWho>
int subscriber(uint16_t device_id, uint32_t type, void *data, uint32_t len, uint64_t reserved) {
  g_calls.push_back({kWho, device_id, type, data, len, reserved});
  return kWho % 2 == 0 ? -1 : 1;
}

// The send hook, 'h'.
inline int hook(uint16_t device_id, uint32_t type, void *data, uint32_t len) {
  g_calls.push_back({'h', device_id, type, data, len});
  return -1;
}

// The suppression callbacks, '+' at its end and '-' at its begin, with the cookie in `reserved`.
inline void released(uint64_t cookie) { g_calls.push_back({'+', 0, 0, nullptr, 0, cookie}); }
inline void suppressed(uint64_t cookie) { g_calls.push_back({'-', 0, 0, nullptr, 0, cookie}); }

// mu_event_suprs_attach drops the type's list: kept here within a leak checker's reach.
inline mu_status_t attach(int type, mu_event_suprs_cb_t release_cb, mu_event_suprs_cb_t suppress_cb,
                          uint64_t cookie = 0) {
  static auto &dropped = *new std::vector<const void *>;
  if (type >= 0 && type < glb_evt.max_event_num) dropped.push_back(glb_evt.events[type].cb_list);
  return mu_event_suprs_attach(type, release_cb, suppress_cb, cookie);
}

// A second mu_event_init abandons what the first one made: kept here likewise.
inline mu_status_t init_anew(int max_event_num, mu_event_hook_t send_hook, mu_event_cfg_handler_t cfg_handler) {
  static auto &abandoned = *new std::vector<const void *>;
  abandoned.push_back(glb_evt.events);
  abandoned.push_back(glb_evt.lock);
  return mu_event_init(max_event_num, send_hook, cfg_handler);
}

// Turns suppression on.
inline void suppress_above(int type, uint32_t threshold, uint32_t period_ms) {
  const mu_event_cfg_t cfg = {1, threshold, period_ms};
  mu_event_set(0, type, &cfg);
}

}  // namespace event_plain

#endif
