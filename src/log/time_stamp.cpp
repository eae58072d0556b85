// The time of a record line, read and written.

#include "time_stamp.h"

namespace tarn::log {

namespace {

constexpr std::string_view kShape = "0000-00-00 00:00:00";
static_assert(kShape.size() == kStampLength);

char *put_two_digits(char *out, int number) {
  out[0] = static_cast<char>('0' + number / 10);
  out[1] = static_cast<char>('0' + number % 10);
  return out + 2;
}

}  // namespace

bool has_dashes(std::string_view line) { return line.size() > 7 && line[4] == '-' && line[7] == '-'; }

bool is_plain_stamp(std::string_view line) {
  if (line.size() < kShape.size()) return false;
  for (size_t i = 0; i < kShape.size(); i++) {
    const bool fits = kShape[i] == '0' ? line[i] >= '0' && line[i] <= '9' : line[i] == kShape[i];
    if (!fits) return false;
  }
  return true;
}

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

size_t write_stamp(char (&out)[kStampSize], time_t time) {
  tm utc = {};
  if (gmtime_r(&time, &utc) == nullptr) utc = {};  // a year that no calendar holds
  const i64 year = i64{utc.tm_year} + 1900;
  char *rest = out;
  if (year >= 0 && year <= 9999) {
    rest = put_two_digits(rest, static_cast<int>(year / 100));
    rest = put_two_digits(rest, static_cast<int>(year % 100));
  } else {
    rest += snprintf(out, sizeof out, "%04lld", static_cast<long long>(year));
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
  return static_cast<size_t>(rest - out);
}

}  // namespace tarn::log
