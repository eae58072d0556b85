// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the tests of the events share: a registry on the virtual clock, and a journal of all that it calls.
#ifndef TARN_TESTS_EVENT_FIXTURE_H
#define TARN_TESTS_EVENT_FIXTURE_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "support/random.h"
#include "support/virtual_clock.h"
#include "tarn/event.h"
#include "tarn/platform.h"

namespace event_test {

using tarn_test::Random;

// ---- The journal ----------------------------------------------------------------------------------------------------

using Journal = std::vector<std::string>;

inline Journal g_journal;

// What happened since the last call.
inline Journal take_journal() { return std::exchange(g_journal, {}); }

__attribute__((format(printf, 1, 2))) inline std::string line(const char *format, ...) {
  char text[160];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  return text;
}

inline std::string subscriber_line(int number, unsigned device, uint32_t type, const void *data, uint32_t len,
                                   uint64_t reserved = 0) {
  return line("subscriber %d: device %u type %" PRIu32 " data %p len %" PRIu32 " reserved %" PRIu64, number, device,
              type, data, len, reserved);
}

inline std::string hook_line(unsigned device, uint32_t type, const void *data, uint32_t len) {
  return line("hook: device %u type %" PRIu32 " data %p len %" PRIu32, device, type, data, len);
}

inline std::string suppress_line(uint64_t cookie) { return line("suppress %" PRIx64, cookie); }
inline std::string release_line(uint64_t cookie) { return line("release %" PRIx64, cookie); }

// ---- What the registry calls ----------------------------------------------------------------------------------------

template <int Number>
int subscriber(uint16_t device_id, uint32_t type, void *data, uint32_t len, uint64_t reserved) {
  g_journal.push_back(subscriber_line(Number, device_id, type, data, len, reserved));
  return -1;  // ignored
}

inline int hook(uint16_t device_id, uint32_t type, void *data, uint32_t len) {
  g_journal.push_back(hook_line(device_id, type, data, len));
  return -1;  // ignored
}

inline void suppressed(uint64_t cookie) { g_journal.push_back(suppress_line(cookie)); }
inline void released(uint64_t cookie) { g_journal.push_back(release_line(cookie)); }

// ---- The registry ---------------------------------------------------------------------------------------------------

inline mu_event_rec &rec(int type) { return glb_evt.events[type]; }

inline bool lock_is_held() {
  if (mu_mutex_trylock(glb_evt.lock) == EBUSY) return true;
  mu_mutex_unlock(glb_evt.lock);
  return false;
}

// Keeps what the registry abandons within the leak detector's reach.
inline void keep(const void *block) {
  static auto &blocks = *new std::vector<const void *>;
  blocks.push_back(block);
}

// Before a second mu_event_init, which abandons the registry.
inline void keep_registry() {
  for (int type = 0; type < glb_evt.max_event_num; type++) keep(rec(type).cb_list);
  keep(glb_evt.events);
  keep(glb_evt.lock);
}

// mu_event_suprs_attach, which loses the list of subscribers.
inline mu_status_t attach(int type, uint64_t cookie, mu_event_suprs_cb_t release_cb = released,
                          mu_event_suprs_cb_t suppress_cb = suppressed) {
  keep(rec(type).cb_list);
  return mu_event_suprs_attach(type, release_cb, suppress_cb, cookie);
}

inline mu_status_t configure(int type, uint32_t suprs_en, uint32_t threshold, uint32_t period_ms) {
  const mu_event_cfg_t cfg = {suprs_en, threshold, period_ms};
  return mu_event_set(0, type, &cfg);
}

inline mu_status_t send(int type) { return mu_event_send(0, type, nullptr, 0); }

using Callbacks = std::vector<mu_event_cb_t>;

// The callbacks of a type's subscribers, in order.
inline Callbacks subscribers_of(int type) {
  Callbacks found;
  for (const mu_list_node_t *node = mu_list_first(rec(type).cb_list); node != nullptr; node = mu_list_next(node)) {
    found.push_back(static_cast<const mu_event_subscriber_t *>(node->data)->cb);
  }
  return found;
}

// Adds an element to the list of a type, without mu_event_register.
inline void add_by_hand(int type, mu_event_cb_t cb) {
  mu_event_subscriber_t element = {};
  element.type = static_cast<uint32_t>(type);
  element.cb = cb;
  mu_list_add(rec(type).cb_list, &element);
}

// The bytes of an object.
template <typename T>
std::string bytes_of(const T &object) {
  return std::string(reinterpret_cast<const char *>(&object), sizeof object);
}

// The bytes of `glb_evt` before mu_event_init.
inline std::string all_zero() { return std::string(sizeof(mu_event_state_t), '\0'); }

// The bytes of the registry and of its table.
inline std::string state_bytes() {
  std::string bytes = bytes_of(glb_evt);
  if (glb_evt.events != nullptr) {
    bytes.append(reinterpret_cast<const char *>(glb_evt.events),
                 static_cast<size_t>(glb_evt.max_event_num) * sizeof(mu_event_rec));
  }
  return bytes;
}

// A registry whose polling timer sleeps on the virtual clock until the test lets time pass.
class Registry {
 public:
  explicit Registry(int types = 4, mu_event_hook_t send_hook = nullptr, mu_event_cfg_handler_t cfg_handler = nullptr) {
    EXPECT_EQ(mu_event_init(types, send_hook, cfg_handler), 0);
    clock.settle();
  }

  tarn_test::VirtualClock clock;
};

// Moves the registry's table so that `before` records of the test stand before it, each with an empty list.
class RecordsBeforeTheTable {
 public:
  explicit RecordsBeforeTheTable(size_t before) : records_(before + static_cast<size_t>(glb_evt.max_event_num)) {
    for (size_t i = 0; i < before; i++) {
      records_[i] = {};
      records_[i].cb_list = mu_list_create(16, mu_event_compare);
      keep(records_[i].cb_list);
    }
    memcpy(&records_[before], table_, static_cast<size_t>(glb_evt.max_event_num) * sizeof(mu_event_rec));
    glb_evt.events = &records_[before];
  }
  ~RecordsBeforeTheTable() { glb_evt.events = table_; }
  RecordsBeforeTheTable(const RecordsBeforeTheTable &) = delete;
  RecordsBeforeTheTable &operator=(const RecordsBeforeTheTable &) = delete;

 private:
  mu_event_rec *const table_ = glb_evt.events;
  std::vector<mu_event_rec> records_;
};

}  // namespace event_test

#endif
