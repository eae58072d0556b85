// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The state of the log, and the look-ups that its sources share.

#include <cstring>

#include "internal.h"

namespace tarn::log {

mup_log_ctrl control;

bool report_null(const void *argument, const char *function, int line) {
  if (argument == nullptr) mu_printf("%s() _%d_: assert fail\n", function, line);
  return argument == nullptr;
}

const char *module_name(u8 module) { return module < control.module_num ? control.modules[module].name : ""; }

int find_module(std::string_view name) {
  if (name.size() >= MUP_LOG_NAME_SIZE) return kNotFound;
  for (int id = 0; id < control.module_num; id++) {
    const char *own = control.modules[id].name;  // NUL-filled to its end
    if (own[name.size()] == '\0' && memcmp(own, name.data(), name.size()) == 0) return id;
  }
  return kNotFound;
}

void clear_ring(const Ring &ring) {
  for (u32 i = 0; i < ring.size; i++) {
    mup_log_rec &record = ring.slots[i];
    if (record.text[0] != '\0') memset(record.text, 0, sizeof record.text);
  }
  *ring.next = 0;
}

}  // namespace tarn::log

mup_log_ctrl *mup_log_ctrl_get() { return &tarn::log::control; }
