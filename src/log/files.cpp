// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The log with its files: its start, the device's description, and the calls that clear a ring or delete the files.

#include <unistd.h>

#include <cstring>

#include "internal.h"
#include "tarn/timer.h"

using namespace tarn;
using namespace tarn::log;

namespace {

constexpr int kMsPerSecond = 1000;

// The exported function itself is the callback, because the timer table shows its address. It ignores the timer's
// argument.
mu_timer_cb_t save_callback() {
  return reinterpret_cast<mu_timer_cb_t>(reinterpret_cast<void (*)()>(mup_log_usr_savefile));
}

}  // namespace

mu_status_t mup_log_usr_init(uint16_t module_num, const char *names) {
  (void)mup_log_init(0, module_num, names);  // it prints its own failure; the files are created even then
  store_relaxed(control.level_hook, &mup_log_kern_level_set);
  if (!load_files()) {
    mu_printf("Log Malloc fail \n");
    return 0;
  }
  (void)mu_circle_timer_add(MUP_LOG_SAVE_PERIOD, save_callback(), nullptr);
  mu_printf("mu-log: init usr log OK (module_num %d, max_log_num %d, save_log_timer %d seconds)\n", module_num,
            MUP_LOG_SYS_NUM, MUP_LOG_SAVE_PERIOD / kMsPerSecond);
  return 0;
}

mu_status_t mup_log_usr_header_set(const void *header) {
  if (report_null(header)) return kBadArgument;
  ScopedLock lock(control.mutex);
  memcpy(&control.usr_header, header, sizeof control.usr_header);
  mark_dirty(kUsrDirty);
  return 0;
}

mu_status_t mup_log_usr_header_get(void *header) {
  if (report_null(header)) return kBadArgument;
  ScopedLock lock(control.mutex);
  memcpy(header, &control.usr_header, sizeof control.usr_header);
  return 0;
}

mu_status_t mup_log_usr_clean() {
  if (!is_inited()) return kNotStarted;
  ScopedLock lock(control.mutex);
  clear_ring(user_ring());
  mark_dirty(kUsrDirty);
  return 0;
}

mu_status_t mup_log_file_remove() {
  (void)unlink(kSysPath);
  (void)unlink(kUsrPath);
  (void)puts("remove the log file ");
  return 0;
}
