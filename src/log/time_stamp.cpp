// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The time of a record line, written, read, and put into local time.

#include "time_stamp.h"

#include <cstring>

namespace tarn::log {

namespace {

constexpr std::string_view kShape = "0000-00-00 00:00:00";
static_assert(kShape.size() == kStampLength);

constexpr int kMinutes = 60;
constexpr int kSeconds = 60;

char *put_two_digits(char *out, int number) {
  out[0] = static_cast<char>('0' + number / 10);
  out[1] = static_cast<char>('0' + number % 10);
  return out + 2;
}

int two_digits(std::string_view line, size_t at) { return (line[at] - '0') * 10 + (line[at + 1] - '0'); }

// Whether `line` begins with a time in exactly the written form.
bool is_plain_stamp(std::string_view line) {
  if (line.size() < kShape.size()) return false;
  for (size_t i = 0; i < kShape.size(); i++) {
    const bool fits = kShape[i] == '0' ? line[i] >= '0' && line[i] <= '9' : line[i] == kShape[i];
    if (!fits) return false;
  }
  return true;
}

// Reads a time as sscanf reads "%4d-%2d-%2d %2d:%2d:%2d", including blanks and signs. False when a number is missing.
bool read_stamp(const char *line, tm *fields) {
  *fields = {};
  // NOLINTNEXTLINE(cert-err34-c): no number has more than four digits
  if (sscanf(line, "%4d-%2d-%2d %2d:%2d:%2d", &fields->tm_year, &fields->tm_mon, &fields->tm_mday, &fields->tm_hour,
             &fields->tm_min, &fields->tm_sec) != 6) {
    return false;
  }
  fields->tm_year -= 1900;
  fields->tm_mon -= 1;
  return true;
}

bool read_slowly(std::string_view line, time_t *time) {
  tm fields;
  if (!read_stamp(line.data(), &fields)) return false;
  // Deliberate: times in the file are UTC, but mktime reads them as local time, so each restart moves a record by the
  // zone's offset. Held by LogTimes.AreReadBackAsLocalTime.
  *time = mktime(&fields);
  return true;
}

// The day count of the proleptic Gregorian calendar. A year begins with March here, so the leap day is its last day,
// and 367 * month / 12 sums the days of the earlier months.
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

}  // namespace

bool has_dashes(std::string_view line) { return line.size() > 7 && line[4] == '-' && line[7] == '-'; }

void StampWriter::write(time_t time) {
  time_ = time;
  tm utc = {};
  if (gmtime_r(&time, &utc) == nullptr) utc = {};  // the year is out of range
  const i64 year = i64{utc.tm_year} + 1900;
  char *rest = text_;
  if (year >= 0 && year <= 9999) {
    rest = put_two_digits(rest, static_cast<int>(year / 100));
    rest = put_two_digits(rest, static_cast<int>(year % 100));
  } else {
    rest += snprintf(text_, sizeof text_, "%04lld", static_cast<long long>(year));
  }
  *rest++ = '-';
  rest = put_two_digits(rest, utc.tm_mon + 1);
  *rest++ = '-';
  rest = put_two_digits(rest, utc.tm_mday);
  *rest++ = ' ';
  rest = put_two_digits(rest, utc.tm_hour);
  *rest++ = ':';
  rest = put_two_digits(rest, utc.tm_min);
  *rest++ = ':';
  rest = put_two_digits(rest, utc.tm_sec);
  length_ = static_cast<size_t>(rest - text_);
}

bool StampReader::read(std::string_view line, time_t *time) {
  const int minute = is_plain_stamp(line) ? two_digits(line, 14) : kMinutes;
  const int second = minute < kMinutes ? two_digits(line, 17) : kSeconds;
  if (second >= kSeconds) return read_slowly(line, time);  // another form, or a minute or second above 59
  if (slice(line, 0, sizeof hour_) != std::string_view(hour_, sizeof hour_)) enter_hour(line);
  if (!is_even_) return read_slowly(line, time);
  *time = start_ + static_cast<time_t>(minute) * kSeconds + second;
  return true;
}

// In an hour without a change of the clock, the last second is 3599 after the first.
void StampReader::enter_hour(std::string_view line) {
  copy_text(hour_, slice(line, 0, sizeof hour_));
  char text[kStampLength + 1] = "";
  char *const rest = copy_text(text, slice(line, 0, sizeof hour_));
  time_t last = 0;
  copy_text(rest, ":00:00");
  (void)read_slowly(text, &start_);
  copy_text(rest, ":59:59");
  (void)read_slowly(text, &last);
  is_even_ = last - start_ == kMinutes * kSeconds - 1;
}

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

}  // namespace tarn::log
