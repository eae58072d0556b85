// A log file copied out for a reader: filtered, its times in the reader's zone.

#include <algorithm>
#include <cstring>

#include "time_stamp.h"

using namespace tarn;
using namespace tarn::log;

namespace {

constexpr size_t kLineSize = 320;
constexpr size_t kModuleMax = 32;

// The day count of the proleptic Gregorian calendar. A year begins with March here, so that the leap day is its last,
// and 367 * month / 12 sums the days of the months before.
time_t utc_seconds(const tm &fields) {
  i64 year = i64{fields.tm_year} + 1900;
  i64 month = fields.tm_mon + 1 - 2;
  if (month < 1) {
    month += 12;
    year -= 1;
  }
  const i64 days = 367 * month / 12 - year / 100 + year / 400 + year / 4 + fields.tm_mday + 365 * year;
  constexpr i64 kEpoch = 62164713600;
  return ((days * 24 + fields.tm_hour) * 60 + fields.tm_min) * 60 + fields.tm_sec - kEpoch;
}

// Puts local time over the time that a record line begins with. False for a line that is no record.
bool localise(char *line) {
  const std::string_view text(line, strcspn(line, "\n"));
  tm fields;
  if (!has_dashes(text) || text.size() < kStampLength || !read_stamp(line, &fields)) return false;
  const time_t instant = utc_seconds(fields);
  tm local = {};
  localtime_r(&instant, &local);
  char stamp[80];  // six numbers of any size
  (void)snprintf(stamp, sizeof stamp, "%04u-%02u-%02u %02u:%02u:%02u", static_cast<u32>(local.tm_year) + 1900,
                 static_cast<u32>(local.tm_mon) + 1, static_cast<u32>(local.tm_mday), static_cast<u32>(local.tm_hour),
                 static_cast<u32>(local.tm_min), static_cast<u32>(local.tm_sec));
  memcpy(line, stamp, kStampLength);
  return true;
}

// Which records are copied.
struct Filter {
  char pattern[kModuleMax + sizeof "]:"];  // what follows the level in a record's line; "" lets every line through
  u8 level_count;

  bool lets_through(const char *record) const {
    if (pattern[0] == '\0') return true;
    if (strstr(record, pattern) == nullptr) return false;
    for (u8 level = 0; level < level_count; level++) {
      // Deliberate: a level's name counts wherever it stands. Held by LogFileGet.FindsALevelAnywhereInTheLine.
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
  if (report_null(out_path)) return 2;
  if (!is_inited()) return 1;
  Filter filter = {"", std::min<u8>(level_count, kLevelMax + 1)};
  if (module != nullptr) {
    if (strlen(module) > kModuleMax) return 2;
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
    // Deliberate: no failure for the caller. Held by LogFileGet.ReturnsZeroWhenAFileDoesNotOpen.
    mu_printf("open file fail \n");
    return 0;
  }
  copy_lines(from.get(), to.get(), filter);
  return 0;
}
