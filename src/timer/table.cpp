// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The table of timers on the console.

#include <cstdio>

#include "internal.h"

using namespace tarn;
using namespace tarn::timer;

namespace {

void show_row(int row, const mu_timer_rec_t &timer) {
  // The literal "0x" comes before the pointer although libc prints its own prefix.
  mu_printf("%-4d%-10d%-7d%-9d%-8s%-6d0x%p\r\n", row, static_cast<int>(timer.id), static_cast<int>(timer.remain),
            static_cast<int>(timer.interval), timer.type == 1 ? "Circle" : "OneShot", static_cast<int>(timer.drain),
            reinterpret_cast<void *>(timer.callback));
}

}  // namespace

void mu_timer_show() {
  (void)puts("\r\nNo. Id.       Remain Interval Type    Drain Callback\r");
  ScopedLock lock(timer_info.mutex);
  int row = 0;
  for (const mu_list_node_t *node = mu_list_first(timer_info.list); node != nullptr; node = mu_list_next(node)) {
    show_row(row++, timer_of(node));
  }
  mu_printf("Max timer drain:(ptr=0x%08llx, drain=%d)\r\n",
            static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(timer_info.max_drain_cb)),
            static_cast<int>(timer_info.max_drain));
  mu_printf("Expired timer Number: %d\r\n", static_cast<int>(timer_info.expired));
  (void)puts("\r");
}
