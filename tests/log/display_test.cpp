// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mu_log2str: the display text of a record, compared with a calendar that is counted here.

#include <climits>
#include <memory>

#include "log/fixture.h"
#include "support/random.h"
#include "support/thinning.h"

using namespace tarn_test;

namespace {

using LogToStr = InitedLog;

constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kDaysPer400Years = 400 * 365 + 97;  // 100 leap days less 3 of the 4 centuries' years
constexpr int64_t kDaysTo2000 = 30 * 365 + 7;         // from 1970: leap days in 1972, 76, 80, 84, 88, 92, 96

// The first second of the first year and the last of the last one whose number, counted from 1900, an int holds.
constexpr int64_t kFirstTime = -67768040609740800;
constexpr int64_t kLastTime = 67768036191676799;

int64_t floor_divide(int64_t a, int64_t b) { return a / b - (a % b < 0 ? 1 : 0); }

bool is_leap(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int days_of(int year) { return is_leap(year) ? 366 : 365; }

std::string two_digits(int64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); }

// "MM/DD-hh:mm:ss" in UTC. All periods of 400 years have the same days: the year is found among those from 2000 on.
std::string calendar(int64_t time) {
  const int64_t day = floor_divide(time, kSecondsPerDay);
  const int64_t second = time - day * kSecondsPerDay;
  int64_t rest = day - kDaysTo2000;
  rest -= floor_divide(rest, kDaysPer400Years) * kDaysPer400Years;
  int year = 2000;
  for (; rest >= days_of(year); year++) rest -= days_of(year);
  const int days[] = {31, is_leap(year) ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  int month = 0;
  for (; rest >= days[month]; month++) rest -= days[month];
  return two_digits(month + 1) + '/' + two_digits(rest + 1) + '-' + two_digits(second / 3600) + ':' +
         two_digits(second / 60 % 60) + ':' + two_digits(second % 60);
}

mup_log_rec record_of(uint8_t module, uint8_t level, uint32_t line, int64_t time, const std::string &text) {
  mup_log_rec record = {};
  record.module = module;
  record.level = level;
  record.line = line;
  record.time = time;
  text.copy(record.text, sizeof record.text - 1);
  return record;
}

std::string display(const mup_log_rec &record) {
  char text[512];
  memset(text, 'e', sizeof text);
  mu_log2str(&record, text, sizeof text);
  return std::string(text, strnlen(text, sizeof text));
}

}  // namespace

TEST_F(LogToStr, ShowsTheLineOnlyWhenThereIsOne) {
  EXPECT_EQ(display(record_of(3, 4, 17, 0, "text")), "[01/01-00:00:00]-[Error 17]m3: text\r\n");
  EXPECT_EQ(display(record_of(3, 4, 0, 0, "text")), "[01/01-00:00:00]-[Error]m3: text\r\n");
  EXPECT_EQ(display(record_of(20, 1, 1, 0, "")), "[01/01-00:00:00]-[Emergency 1]m20: \r\n");
}

TEST_F(LogToStr, ShowsTheLineAsASignedNumber) {
  const struct {
    uint32_t line;
    const char *shown;
  } rows[] = {{1, "1"}, {0x7FFFFFFF, "2147483647"}, {0x80000000, "-2147483648"}, {0xFFFFFFFF, "-1"}};
  for (const auto &row : rows) {
    EXPECT_EQ(display(record_of(0, 8, row.line, 0, "t")),
              std::string("[01/01-00:00:00]-[Debug ") + row.shown + "]m0: t\r\n");
  }
}

TEST_F(LogToStr, NamesEveryLevelAndNoneAboveEight) {
  for (unsigned level = 0; level <= 255; level++) {
    SCOPED_TRACE(level);
    const std::string name = level <= 8 ? kLevelNames[level] : "";
    EXPECT_EQ(display(record_of(1, static_cast<uint8_t>(level), 0, 0, "t")),
              "[01/01-00:00:00]-[" + name + "]m1: t\r\n");
    EXPECT_EQ(display(record_of(1, static_cast<uint8_t>(level), 6, 0, "t")),
              "[01/01-00:00:00]-[" + name + " 6]m1: t\r\n");
  }
}

TEST_F(LogToStr, TheTextIsNotAFormat) {
  EXPECT_EQ(display(record_of(0, 4, 0, 0, "%s%d%n%%")), "[01/01-00:00:00]-[Error]m0: %s%d%n%%\r\n");
}

TEST_F(LogToStr, ShowsKnownTimes) {
  const struct {
    int64_t time;
    const char *shown;  // as `date -u -d @TIME` prints it
  } rows[] = {
      {0, "01/01-00:00:00"},
      {-1, "12/31-23:59:59"},
      {68255999, "02/29-23:59:59"},      // 1972
      {951782400, "02/29-00:00:00"},     // 2000 is a leap year
      {951868800, "03/01-00:00:00"},     //
      {1709251199, "02/29-23:59:59"},    // 2024
      {1767323045, "01/02-03:04:05"},    // 2026
      {2147483647, "01/19-03:14:07"},    // 2038
      {2147483648, "01/19-03:14:08"},    //
      {4107542399, "02/28-23:59:59"},    // 2100 is not
      {4107542400, "03/01-00:00:00"},    //
      {-2203891201, "02/28-23:59:59"},   // 1900 is not
      {-2203891200, "03/01-00:00:00"},   //
      {253402300799, "12/31-23:59:59"},  // 9999
      {kFirstTime, "01/01-00:00:00"},
      {kLastTime, "12/31-23:59:59"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.time);
    EXPECT_EQ(display(record_of(0, 4, 0, row.time, "t")), std::string("[") + row.shown + "]-[Error]m0: t\r\n");
    EXPECT_EQ(calendar(row.time), row.shown);
  }
}

TEST_F(LogToStr, ShowsUtcWhateverTheTimeZone) {
  set_zone("XXX-13:45");
  EXPECT_EQ(display(record_of(0, 4, 0, 0, "t")), "[01/01-00:00:00]-[Error]m0: t\r\n");
}

TEST_F(LogToStr, AgreesWithTheCalendarOnEveryDayOf220Years) {
  for (int64_t day = int64_t{-80} * 365; day < int64_t{140} * 365; day += kThinning) {  // 1890 to 2109
    const int64_t time = day * kSecondsPerDay + (day * 7919 % kSecondsPerDay + kSecondsPerDay) % kSecondsPerDay;
    ASSERT_EQ(display(record_of(0, 4, 0, time, "t")), "[" + calendar(time) + "]-[Error]m0: t\r\n") << time;
  }
}

TEST_F(LogToStr, AgreesWithTheCalendarAtTheEdgesOfEveryYear) {
  int64_t first = kDaysTo2000;  // of a year
  int year = 2000;
  for (; year > 1670; year--) first -= days_of(year - 1);
  for (; year < 3970; year++) {
    for (const int64_t day : {first, first + 58, first + 59, first + 60}) {  // January 1st, February 28th to March 1st
      const int64_t midnight = day * kSecondsPerDay;
      for (const int64_t time : {midnight - 1, midnight, midnight + kSecondsPerDay - 1}) {
        ASSERT_EQ(display(record_of(0, 4, 0, time, "t")), "[" + calendar(time) + "]-[Error]m0: t\r\n") << time;
      }
    }
    first += days_of(year);
  }
}

TEST_F(LogToStr, AgreesWithTheCalendarFarFromNow) {
  Random random(1);
  for (int i = 0; i < 20000 / kThinning; i++) {
    const int shift = i % 40;  // far and near alike
    const int64_t time = static_cast<int64_t>(random.number() >> 8) % kLastTime >> shift;
    for (const int64_t signed_time : {time, -time}) {
      ASSERT_EQ(display(record_of(0, 4, 0, signed_time, "t")), "[" + calendar(signed_time) + "]-[Error]m0: t\r\n")
          << signed_time;
    }
  }
}

TEST_F(LogToStr, ATimeBeyondTheCalendarStillGivesALine) {
  for (const int64_t time : {INT64_MAX, INT64_MIN, kLastTime + 1, kFirstTime - 1}) {
    SCOPED_TRACE(time);
    EXPECT_THAT(display(record_of(0, 4, 0, time, "t")),
                testing::MatchesRegex("\\[[0-9-]+/[0-9-]+-[0-9-]+:[0-9-]+:[0-9-]+\\]-\\[Error\\]m0: t\r\n"));
  }
}

TEST_F(LogToStr, WritesAtMostTheBytesThatItIsGiven) {
  const mup_log_rec records[] = {record_of(0, 4, 0, 0, "text"), record_of(12, 8, 77, 0, ""),
                                 record_of(20, 1, 0x80000000, kLastTime, std::string(255, 'x'))};
  const std::string lines[] = {"[01/01-00:00:00]-[Error]m0: text\r\n", "[01/01-00:00:00]-[Debug 77]m12: \r\n",
                               "[12/31-23:59:59]-[Emergency -2147483648]m20: " + std::string(255, 'x') + "\r\n"};
  for (size_t i = 0; i < std::size(records); i++) {
    const std::string &line = lines[i];
    for (size_t n = 0; n <= line.size() + 2; n++) {
      SCOPED_TRACE(testing::Message() << "record " << i << " bytes " << n);
      // Of the exact size, for the address sanitizer; then with a check of the bytes after it.
      const std::unique_ptr<char[]> exact(new char[n]);
      if (n > 0) memset(exact.get(), 'e', n);
      mu_log2str(&records[i], exact.get(), static_cast<uint32_t>(n));
      std::string expected = n == 0 ? "" : line.substr(0, n - 1) + '\0';
      ASSERT_EQ(std::string(exact.get(), std::min(n, expected.size())), expected);

      std::string wide(n + 64, 'e');
      mu_log2str(&records[i], wide.data(), static_cast<uint32_t>(n));
      ASSERT_EQ(wide.substr(0, expected.size()), expected);
      ASSERT_EQ(wide.substr(n), std::string(64, 'e'));
    }
  }
}

TEST_F(LogToStr, TakesTheLargestSize) {
  char text[512] = {};
  const mup_log_rec record = record_of(0, 4, 0, 0, "text");
  mu_log2str(&record, text, UINT32_MAX);
  EXPECT_STREQ(text, "[01/01-00:00:00]-[Error]m0: text\r\n");
}

TEST_F(LogToStr, ANullArgumentGivesTheAssertionMessage) {
  const mup_log_rec record = record_of(0, 4, 0, 0, "text");
  char text[8] = "abc";
  Console console;
  mu_log2str(nullptr, text, sizeof text);
  EXPECT_THAT(console.take(), assertion_of("mu_log2str"));
  EXPECT_STREQ(text, "abc");
  mu_log2str(&record, nullptr, 10);
  EXPECT_THAT(console.take(), assertion_of("mu_log2str"));
  mu_log2str(nullptr, nullptr, 0);
  EXPECT_THAT(console.take(), assertion_of("mu_log2str"));
}

TEST_F(LogToStr, PrintsNothingItself) {
  Console console;
  display(record_of(0, 4, 0, 0, "text"));
  display(record_of(255, 255, 0, 0, "text"));
  EXPECT_EQ(console.take(), "");
}
