// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The table of event types on the console.

#include "internal.h"

using namespace tarn;
using namespace tarn::event;

namespace {

constexpr char kDoubleRule[] = "===============================================================\n";
constexpr char kRule[] = "---------------------------------------------------------------\n";
static_assert(sizeof kDoubleRule == 63 + 2 && sizeof kRule == 63 + 2, "63 characters, a line end, a NUL");

int number(const u32 &field) { return static_cast<int>(load_relaxed(field)); }

void show_row(int type, const mu_event_rec &event) {
  if (load_relaxed(event.suprs_en) != 0) {
    mu_printf("%-4d %-10d %-8s %-7s %-9d %-9d %d\n", type, number(event.count), "Enable",
              load_relaxed(event.suprs_s) != 0 ? "Yes" : "No", number(event.suprs_cnt), number(event.threshold),
              static_cast<int>(load_relaxed(event.period) * MU_TICK_MS));
  } else {
    mu_printf("%-4d %-10d %-8s %-7s %-9s %-9s %s\n", type, number(event.count), "Disable", "-", "-", "-", "-");
  }
}

}  // namespace

void mu_event_dump() {
  mu_event_msg_t msg = {};
  msg.op = MU_EVENT_OP_DUMP;
  if (forward(0, msg)) return;
  mu_printf("%s", kDoubleRule);
  mu_printf("%-4s %-10s %-8s %-7s %-9s %-9s %-12s\n", "Type", "Count", "Suprs-en", "Suprs-s", "Suprs-cnt", "Threshold",
            "Period(ms)");
  mu_printf("%s", kRule);
  int type = 0;
  for (const mu_event_rec &event : table()) show_row(type++, event);
  mu_printf("\n");
}
