// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Copies a log file for a reader: filtered, with times in the reader's zone.

#include <algorithm>
#include <cstring>

#include "time_stamp.h"

using namespace tarn;
using namespace tarn::log;

namespace {

constexpr size_t kLineSize = 320;
constexpr size_t kModuleMax = 32;

// Which records are copied.
struct Filter {
  char pattern[kModuleMax + sizeof "]:"];  // the text after the level in a record's line; "" passes every line
  u8 level_count;

  bool lets_through(const char *record) const {
    if (pattern[0] == '\0') return true;
    if (strstr(record, pattern) == nullptr) return false;
    for (u8 level = 0; level < level_count; level++) {
      // Deliberate: a level's name counts anywhere in the line. Held by LogFileGet.FindsALevelAnywhereInTheLine.
      if (strstr(record, mup_log_level_str_get(level)) != nullptr) return true;
    }
    return false;
  }
};

void copy_lines(FILE *from, FILE *to, const Filter &filter) {
  char line[kLineSize];
  while (fgets(line, sizeof line, from) != nullptr) {
    if (!localise(line) || filter.lets_through(line)) (void)fputs(line, to);
  }
}

}  // namespace

mu_status_t mup_log_file_get(const char *out_path, int8_t which, const char *module, uint8_t level_count) {
  if (report_null(out_path)) return kBadArgument;
  if (!is_inited()) return kNotStarted;
  Filter filter = {"", std::min<u8>(level_count, kLevelMax + 1)};
  if (module != nullptr) {
    if (strlen(module) > kModuleMax) return kBadArgument;
    (void)snprintf(filter.pattern, sizeof filter.pattern, "]%s:", module);
  }
  char source[sizeof control.sys_path];
  (void)snprintf(source, sizeof source, "%.31s", which != 0 ? control.usr_path : control.sys_path);
  ScopedLock lock(control.mutex);
  File from{fopen(source, "r")};
  File to{fopen(out_path, "w")};
  if (!from || !to) {
    from.reset();
    to.reset();
    // Deliberate: not a failure for the caller. Held by LogFileGet.ReturnsZeroWhenAFileDoesNotOpen.
    mu_printf("open file fail \n");
    return 0;
  }
  copy_lines(from.get(), to.get(), filter);
  return 0;
}
