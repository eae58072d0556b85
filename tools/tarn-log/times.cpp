// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "times.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace tarn_tools::log {

namespace {

constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::size_t kDigitsMax = 9;  // of a number in a duration: no sum overflows

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Removes fixed pieces from the beginning of a text.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  bool is_at_end() const { return rest_.empty(); }

  bool take(char c) {
    if (rest_.empty() || rest_[0] != c) return false;
    rest_.remove_prefix(1);
    return true;
  }

  // A number of exactly `digits` digits.
  bool take_number(std::size_t digits, int *number) {
    if (rest_.size() < digits) return false;
    int value = 0;
    for (const char c : rest_.substr(0, digits)) {
      if (!is_digit(c)) return false;
      value = value * 10 + (c - '0');
    }
    rest_.remove_prefix(digits);
    *number = value;
    return true;
  }

  // The leading characters that are digits, or that are not.
  std::string_view take_while(bool digits) {
    std::size_t size = 0;
    while (size < rest_.size() && is_digit(rest_[size]) == digits) size++;
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return taken;
  }

 private:
  std::string_view rest_;
};

struct Civil {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

bool take_date(Scanner *text, Civil *civil) {
  return text->take_number(4, &civil->year) && text->take('-') && text->take_number(2, &civil->month) &&
         text->take('-') && text->take_number(2, &civil->day);
}

bool is_in_calendar(const Civil &civil) {
  using namespace std::chrono;
  const year_month_day date{year(civil.year), month(static_cast<unsigned>(civil.month)),
                            day(static_cast<unsigned>(civil.day))};
  return date.ok() && civil.hour < 24 && civil.minute < 60 && civil.second < 60;
}

std::int64_t utc_seconds(const Civil &civil) {
  using namespace std::chrono;
  const sys_days days = year_month_day{year(civil.year), month(static_cast<unsigned>(civil.month)),
                                       day(static_cast<unsigned>(civil.day))};
  return days.time_since_epoch().count() * kDay + civil.hour * kHour + civil.minute * kMinute + civil.second;
}

std::int64_t seconds(const Civil &civil, Zone zone) {
  if (zone == Zone::kUtc) return utc_seconds(civil);
  tm fields = {};
  fields.tm_year = civil.year - 1900;
  fields.tm_mon = civil.month - 1;
  fields.tm_mday = civil.day;
  fields.tm_hour = civil.hour;
  fields.tm_min = civil.minute;
  fields.tm_sec = civil.second;
  fields.tm_isdst = -1;
  return mktime(&fields);
}

// "Z" or "+hh:mm": the offset from UTC.
bool take_offset(Scanner *text, std::int64_t *offset) {
  if (text->take('Z')) {
    *offset = 0;
    return true;
  }
  const bool is_behind = text->take('-');
  int hours = 0;
  int minutes = 0;
  if (!is_behind && !text->take('+')) return false;
  if (!text->take_number(2, &hours) || !text->take(':') || !text->take_number(2, &minutes)) return false;
  if (hours >= 24 || minutes >= 60) return false;
  *offset = (hours * kHour + minutes * kMinute) * (is_behind ? -1 : 1);
  return true;
}

std::optional<std::int64_t> parse_absolute(std::string_view written, Zone zone) {
  Scanner text(written);
  Civil civil;
  std::int64_t offset = 0;
  if (!take_date(&text, &civil)) return std::nullopt;
  if (text.is_at_end()) return is_in_calendar(civil) ? std::optional(seconds(civil, zone)) : std::nullopt;
  if (!text.take(' ') && !text.take('T')) return std::nullopt;
  if (!text.take_number(2, &civil.hour) || !text.take(':') || !text.take_number(2, &civil.minute)) return std::nullopt;
  if (text.take(':') && !text.take_number(2, &civil.second)) return std::nullopt;
  if (!is_in_calendar(civil)) return std::nullopt;
  if (text.is_at_end()) return seconds(civil, zone);
  if (!take_offset(&text, &offset) || !text.is_at_end()) return std::nullopt;
  return utc_seconds(civil) - offset;
}

std::optional<std::int64_t> unit_seconds(std::string_view unit) {
  if (unit == "s" || unit == "sec") return 1;
  if (unit == "m" || unit == "min") return kMinute;
  if (unit == "h") return kHour;
  if (unit == "d") return kDay;
  if (unit == "w") return 7 * kDay;
  return std::nullopt;
}

std::optional<std::int64_t> parse_duration(std::string_view written) {
  Scanner text(written);
  std::int64_t sum = 0;
  do {
    const std::string_view number = text.take_while(true);
    const std::optional<std::int64_t> unit = unit_seconds(text.take_while(false));
    if (number.empty() || number.size() > kDigitsMax || !unit) return std::nullopt;
    std::int64_t value = 0;
    for (const char c : number) value = value * 10 + (c - '0');
    sum += value * *unit;
  } while (!text.is_at_end());
  return sum;
}

tm broken_down(std::int64_t time, Zone zone) {
  const time_t value = time;
  tm fields = {};
  if (zone == Zone::kUtc) {
    (void)gmtime_r(&value, &fields);  // cannot fail for four-digit years
  } else {
    (void)localtime_r(&value, &fields);
  }
  return fields;
}

std::int64_t midnight(std::int64_t time, Zone zone, int days_before) {
  tm fields = broken_down(time, zone);
  fields.tm_mday -= days_before;
  fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
  fields.tm_isdst = -1;
  return zone == Zone::kUtc ? timegm(&fields) : mktime(&fields);
}

std::string format(const tm &fields, char between) {
  std::array<char, 64> text = {};
  (void)snprintf(text.data(), text.size(), "%04d-%02d-%02d%c%02d:%02d:%02d", fields.tm_year + 1900, fields.tm_mon + 1,
                 fields.tm_mday, between, fields.tm_hour, fields.tm_min, fields.tm_sec);
  return text.data();
}

std::string format_offset(const tm &fields) {
  std::array<char, 32> text = {};
  const long minutes = std::labs(fields.tm_gmtoff) / kMinute;
  (void)snprintf(text.data(), text.size(), "%c%02ld:%02ld", fields.tm_gmtoff < 0 ? '-' : '+', minutes / 60,
                 minutes % 60);
  return text.data();
}

}  // namespace

std::optional<std::int64_t> parse_stamp(std::string_view text) {
  if (text.size() != kStampLength || text[10] != ' ') return std::nullopt;
  return parse_absolute(text, Zone::kUtc);
}

std::optional<std::int64_t> parse_time(std::string_view text, std::int64_t now, Zone zone) {
  if (text == "now") return now;
  if (text == "today") return midnight(now, zone, 0);
  if (text == "yesterday") return midnight(now, zone, 1);
  if (const auto time = parse_absolute(text, zone)) return time;
  if (const auto duration = parse_duration(text)) return now - *duration;
  return std::nullopt;
}

std::string show_time(std::int64_t time, Zone zone) {
  const tm fields = broken_down(time, zone);
  return format(fields, ' ') + (zone == Zone::kUtc ? "" : format_offset(fields));
}

std::string rfc3339_time(std::int64_t time, Zone zone) {
  const tm fields = broken_down(time, zone);
  return format(fields, 'T') + (zone == Zone::kUtc ? "Z" : format_offset(fields));
}

}  // namespace tarn_tools::log
