// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Records as readable text.

#include <cstdio>

#include "internal.h"

using namespace tarn;
using namespace tarn::log;

namespace {

constexpr size_t kDisplaySize = 512;

void show_ring(const Ring &ring) {
  for (u32 age = 0; age < ring.size; age++) {
    const mup_log_rec &record = ring.oldest(age);
    if (record.text[0] == '\0') continue;
    char text[kDisplaySize];
    mu_log2str(&record, text, sizeof text);
    mu_printf("%s", text);
  }
}

}  // namespace

void mu_log2str(const mup_log_rec *rec, char *dst, uint32_t n) {
  if (report_null(rec) || report_null(dst)) return;
  tm utc = {};
  if (gmtime_r(&rec->time, &utc) == nullptr) utc = {};  // the year is out of range
  char number[sizeof " -2147483648"] = "";
  if (rec->line != 0) (void)snprintf(number, sizeof number, " %d", static_cast<int>(rec->line));
  (void)snprintf(dst, n, "[%02d/%02d-%02d:%02d:%02d]-[%s%s]%s: %s\r\n", utc.tm_mon + 1, utc.tm_mday, utc.tm_hour,
                 utc.tm_min, utc.tm_sec, mup_log_level_str_get(rec->level), number, module_name(rec->module),
                 rec->text);
}

mu_status_t mup_log_show([[maybe_unused]] uint64_t reserved, int32_t clear) {
  if (!is_inited()) return 0;
  ScopedLock lock(control.mutex);
  const Ring ring = system_ring();
  if (clear == 0) {
    show_ring(ring);
    return 0;
  }
  clear_ring(ring);
  mark_dirty(kSysDirty);
  return 0;
}
