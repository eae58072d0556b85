// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Times of records: the files hold UTC, a start reads them as local time, and a copy shows local time.

#include "log/load.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

constexpr const char *kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char *kNewYork = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char *kLordHowe = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";  // daylight saving of half an hour
constexpr const char *kDublin = "IST-1GMT0,M10.5.0,M3.5.0/1";              // its winter is the saving time
// Offsets and changes at odd minutes and seconds, in March and in October.
constexpr const char *kOddSeconds = "XXX3:17:41YYY2:59:13,J60/1:23:45,J300/2:34:56";
constexpr const char *kZones[] = {"UTC0",         "UTC-2",    "IST-5:30",    "<+0545>-5:45",
                                  "<-12>12",      "<+14>-14", "AMT-0:19:32", "NST3:30NDT,M3.2.0,M11.1.0",
                                  kCentralEurope, kNewYork,   kLordHowe,     kDublin,
                                  kOddSeconds};

std::string stamp_of(time_t time) { return file_line({0, 4, time, ""}, numbered_names()).substr(0, 19); }

std::string local_stamp_of(time_t time) {
  tm local = {};
  localtime_r(&time, &local);
  char stamp[64];
  strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  return stamp;
}

// Seconds around the changes of 2026 in the zones above, which are at most 11 hours from UTC, and far from them.
std::vector<time_t> times_around_changes(size_t count) {
  const time_t changes[] = {1774746000, 1792890000, 1772953200, 1793512800, 1775314800,
                            1791041400, 1767225600, 1772340086, 1793079249};
  Random random(86400);
  std::vector<time_t> times;
  for (const time_t change : changes) {
    for (int hour = -12; hour <= 12; hour++) {
      for (const int second : {-1, 0, 1, 1800}) times.push_back(change + time_t{3600} * hour + second);
    }
  }
  constexpr time_t kThreeYears = time_t{3} * 365 * 86400;
  while (times.size() < count) times.push_back(1735689600 + static_cast<time_t>(random.below(kThreeYears)));
  times.resize(count);
  return times;
}

class LogTimes : public LoadedFiles {
 protected:
  time_t loaded_time(const std::string &stamp) {
    write_file(sys(), kSysMarker + stamp + "[Error]m0:text\n");
    start();
    EXPECT_EQ(ctrl->sys_idx, 1u) << stamp;
    return ctrl->sys_ring[0].time;
  }
};

}  // namespace

// ---- Written --------------------------------------------------------------------------------------------------------

TEST_F(LogTimes, AreWrittenInUtcWhateverTheZone) {
  start();
  put(&ctrl->sys_ring[0], {0, 4, kTen, "winter"});
  put(&ctrl->sys_ring[1], {0, 4, 1783504800, "summer"});
  for (const char *zone : {"UTC0", "UTC-2", kCentralEurope, "<-12>12", "<+14>-14"}) {
    set_zone(zone);
    EXPECT_EQ(save_system(), "SysLog:\n2026-01-02 10:00:00[Error]m0:winter\n2026-07-08 10:00:00[Error]m0:summer\n");
  }
}

TEST_F(LogTimes, OfEveryOrderAreWrittenAsTheCalendarHasThem) {
  start();
  Random random(3000);
  Records records;
  for (unsigned i = 0; i < MUP_LOG_SYS_NUM; i++) {
    time_t time = static_cast<time_t>(random.below(315537897600)) - 62135596800;  // the years 1 to 9999
    if (i % 4 == 1) time = records.back().time + 1;
    if (i % 4 == 2) time = records.back().time;
    if (i % 4 == 3) time = records.back().time - 1;
    records.push_back({0, 4, time, std::to_string(i)});
  }
  // Ends of days, months, years and the epoch, from both sides.
  const time_t edges[] = {0,          -1,         951782399,   951782400,   951868799,    951868800,    1709164799,
                          1709164800, 1709251199, 1709251200,  1767225599,  1767225600,   4107542399,   4107542400,
                          2147483647, 2147483648, -2203891201, -2203891200, 253402300799, -62135596800, -62167219200,
                          -86400,     -86401,     86399};
  for (size_t i = 0; i < std::size(edges); i++) records[i * 7].time = edges[i];
  for (unsigned i = 0; i < MUP_LOG_SYS_NUM; i++) put(&ctrl->sys_ring[i], records[i]);
  EXPECT_EQ(save_system(), kSysMarker + file_lines(records, numbered_names()));
}

TEST_F(LogTimes, OfYearsWithoutFourDigitsAreWritten) {
  start();
  const struct {
    time_t time;
    const char *stamp;
  } rows[] = {
      {253402300800, "10000-01-01 00:00:00"},
      {-62167219201, "-001-12-31 23:59:59"},
      {INT64_MAX, "1900-01-00 00:00:00"},  // no calendar reaches it
  };
  std::string expected = kSysMarker;
  for (size_t i = 0; i < std::size(rows); i++) {
    put(&ctrl->sys_ring[i], {0, 4, rows[i].time, "x"});
    expected += rows[i].stamp + std::string("[Error]m0:x\n");
  }
  EXPECT_EQ(save_system(), expected);
}

// ---- Read back ------------------------------------------------------------------------------------------------------

TEST_F(LogTimes, AreReadBackAsLocalTime) {
  start();
  set_zone("UTC-2");  // two hours ahead of UTC
  clock.set_wall(kTen);
  log_text(0, 4, "text");
  save();
  EXPECT_EQ(bytes_of(sys()), "SysLog:\n2026-01-02 10:00:00[Error]m0:text\n");
  EXPECT_EQ(copied(), "SysLog:\n2026-01-02 12:00:00[Error]m0:text\n");
  start();
  expect_system({{0, 4, kTen - 7200, "text"}});                         // 08:00:00 UTC
  EXPECT_EQ(copied(), "SysLog:\n2026-01-02 12:00:00[Error]m0:text\n");  // the file is as it was

  ctrl->dirty = 1;
  save();
  EXPECT_EQ(bytes_of(sys()), "SysLog:\n2026-01-02 08:00:00[Error]m0:text\n");
  start();
  expect_system({{0, 4, kTen - 14400, "text"}});  // 06:00:00 UTC
}

TEST_F(LogTimes, AreReadBackWithoutDaylightSaving) {
  struct Row {
    const char *zone;
    const char *stamp;
    time_t time;
  };
  const Row rows[] = {
      {"UTC0", "2026-01-02 10:00:00", kTen},
      {"UTC-2", "2026-01-02 10:00:00", kTen - 7200},
      {"IST-5:30", "2026-01-02 10:00:00", kTen - 19800},
      {"<-12>12", "2026-01-02 10:00:00", kTen + 43200},
      {kCentralEurope, "2026-01-02 10:00:00", kTen - 3600},
      {kCentralEurope, "2026-07-08 10:00:00", 1783504800 - 3600},  // the flag says 0: an hour ahead, not two
      {kNewYork, "2026-01-02 10:00:00", kTen + 18000},
      {kNewYork, "2026-07-08 10:00:00", 1783504800 + 18000},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << row.zone << " at " << row.stamp);
    set_zone(row.zone);
    EXPECT_EQ(loaded_time(row.stamp), row.time);
  }
}

TEST_F(LogTimes, AreReadBackAsMktimeReadsEach) {
  const std::vector<time_t> times = times_around_changes(MUP_LOG_SYS_NUM);
  std::string file = kSysMarker;
  for (const time_t time : times) file += stamp_of(time) + "[Error]m0:text\n";
  write_file(sys(), file);
  for (const char *zone : kZones) {
    SCOPED_TRACE(zone);
    set_zone(zone);
    start();
    Records expected;
    for (const time_t time : times) {
      tm fields = {};
      gmtime_r(&time, &fields);
      fields.tm_isdst = 0;
      expected.push_back({0, 4, mktime(&fields), "text"});
    }
    ASSERT_NO_FATAL_FAILURE(expect_system(expected));
  }
}

// A zone whose standard time moves by ten minutes at 10:20: the hour has 50 minutes, and no flag tells its halves
// apart.
TEST_F(LogTimes, OfAnHourInWhichStandardTimeMovesAreReadBackOneByOne) {
  const time_t change = kTen + time_t{20} * 60;
  std::string zone = "TZif";
  zone.resize(44);  // the header: version 1, one change, two offsets
  zone[35] = 1;
  zone[39] = 2;
  zone[43] = 4;
  for (const int shift : {24, 16, 8, 0}) zone += static_cast<char>(change >> shift);
  zone += '\1';                                      // the second offset applies from then on
  zone += std::string("\0\0\0\0\0\0", 6);            // 0 seconds ahead of UTC, no daylight saving, name 0
  zone += std::string("\0\0\x02\x58\0\0ZZZ\0", 10);  // 600 seconds
  write_file(path("zone"), zone);
  set_zone((":" + path("zone")).c_str());
  write_file(sys(), kSysMarker + std::string("2026-01-02 10:10:00[Error]m0:a\n2026-01-02 10:40:00[Error]m0:b\n"
                                             "2026-01-02 11:00:00[Error]m0:c\n2026-01-02 10:10:01[Error]m0:d\n"));
  start();
  expect_system({{0, 4, kTen + 600, "a"}, {0, 4, kTen + 1800, "b"}, {0, 4, kTen + 3000, "c"}, {0, 4, kTen + 601, "d"}});
}

TEST_F(LogTimes, InOtherFormsAreReadBackAsScanfReadsThem) {
  const char *stamps[] = {
      "2026-01-02 10:00:00", "2026-1 -2 10:00:00",   "0026-01-02 10:00:00",  "  26-01-02 10:00:00",
      "+026-01-02 10:00:00", "-026-01-02 10:00:00",  "2026-13-02 10:00:00",  "2026-00-00 00:00:00",
      "2026-02-31 24:60:60", "2026-99-99 99:99:99",  "2026- 1- 2 10:00:00",  "2026-01-02 1:2:3",
      "2026-01-02   10:0:0", "2026-01-0210:00:00",   "2026-01-02\t10: 0: 0", "2026-+1-+2 +1:+2:+3",
      "2026--1--2 -1:-2:-3", "2026-01-02 10:00: 7",  "2026-01-02 10:00:0",   "2026-01-02 10:00:000",
      "2026-01-02 10:00:0x", "2026-01-02 10 :00:0",  "2026-01-02 100:0:00",  "2026-01-2 10:00:00",
      "2026-01-002 0:00:00", "9999-12-31 23:59:59",  "0000-01-01 00:00:00",  "1970-01-01 00:00:00",
      "1969-12-31 23:59:59", "2024-02-29 12:00:00",  "2023-02-29 12:00:00",  "1900-02-29 12:00:00",
      "2000-02-29 12:00:00", "2038-01-19 03:14:08",  "20 6-01-02 10:00:00",  "202x-01-02 10:00:00",
      "2026-0x-02 10:00:00", "2026-01-0x 10:00:00",  "2026-01-02 x0:00:00",  "2026-01-02 10:x0:00",
      "2026-01-02 10:00:x0", "2026-01-02T10:00:00",  "2026-01-02 ",          "2026-01-02",
      "2026- 1- 2  3: 4: 5", "2026-01-02 03:61:00",  "2026-01-02 99:00:00",  "2026-01-02x03:04:05",
      "2026-01-02 03:04:60", "2026-01-02 10:00:+",   "2026-01-02 10:00:-0",  "2026-01-  10:00:00",
      "2026-01-02 10:00 :0", "2026-01-02\v10:00:00", "\t\t26-01-02 1:1:1",
  };
  for (const char *zone : {"UTC0", kCentralEurope}) {
    set_zone(zone);
    for (const char *stamp : stamps) {
      SCOPED_TRACE(testing::Message() << zone << ": " << stamp);
      expect_as_read(std::string(kSysMarker) + "2026-01-02 10:00:00[Error]m0:\n" + stamp + "[Error]m0:b\n" + good("c"));
      expect_as_read(std::string(kUsrMarker) + good("a") + stamp + "[Info]m16:b\n" + good("c"));
    }
  }
}

// ---- Copied ---------------------------------------------------------------------------------------------------------

TEST_F(LogTimes, AreCopiedAsLocalTimeInEveryZone) {
  start();
  struct Row {
    const char *zone;
    const char *utc;
    const char *local;
  };
  const Row rows[] = {
      {"UTC0", "2026-01-02 10:00:00", "2026-01-02 10:00:00"},
      {"UTC-2", "2026-12-31 23:00:00", "2027-01-01 01:00:00"},
      {"IST-5:30", "2026-01-02 18:30:00", "2026-01-03 00:00:00"},
      {"<+0545>-5:45", "2026-02-28 18:14:59", "2026-02-28 23:59:59"},
      {"<+0545>-5:45", "2026-02-28 18:15:00", "2026-03-01 00:00:00"},
      {"<+0545>-5:45", "2024-02-28 18:15:00", "2024-02-29 00:00:00"},
      {"<-12>12", "2026-01-01 00:00:00", "2025-12-31 12:00:00"},
      {"<+14>-14", "2026-12-31 10:00:00", "2027-01-01 00:00:00"},
      {"AMT-0:19:32", "2026-01-01 00:00:00", "2026-01-01 00:19:32"},
      // Clocks go forward on 29 March and back on 25 October 2026, at 01:00 UTC.
      {kCentralEurope, "2026-03-29 00:59:59", "2026-03-29 01:59:59"},
      {kCentralEurope, "2026-03-29 01:00:00", "2026-03-29 03:00:00"},
      {kCentralEurope, "2026-10-25 00:59:59", "2026-10-25 02:59:59"},
      {kCentralEurope, "2026-10-25 01:00:00", "2026-10-25 02:00:00"},
      // On 8 March at 07:00 UTC and on 1 November 2026 at 06:00 UTC.
      {kNewYork, "2026-03-08 06:59:59", "2026-03-08 01:59:59"},
      {kNewYork, "2026-03-08 07:00:00", "2026-03-08 03:00:00"},
      {kNewYork, "2026-11-01 05:59:59", "2026-11-01 01:59:59"},
      {kNewYork, "2026-11-01 06:00:00", "2026-11-01 01:00:00"},
      // On the southern half, by half an hour: back on 5 April, forward on 4 October 2026.
      {kLordHowe, "2026-04-04 14:59:59", "2026-04-05 01:59:59"},
      {kLordHowe, "2026-04-04 15:00:00", "2026-04-05 01:30:00"},
      {kLordHowe, "2026-10-03 15:29:59", "2026-10-04 01:59:59"},
      {kLordHowe, "2026-10-03 15:30:00", "2026-10-04 02:30:00"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << row.zone << " at " << row.utc);
    set_zone(row.zone);
    write_file(sys(), std::string(kSysMarker) + row.utc + "[Error]m0:text\n");
    EXPECT_EQ(copied(), std::string(kSysMarker) + row.local + "[Error]m0:text\n");
  }
}

TEST_F(LogTimes, AreCopiedAsLocaltimeShowsEach) {
  start();
  const std::vector<time_t> times = times_around_changes(1500);
  std::string file = kSysMarker;
  for (const time_t time : times) file += stamp_of(time) + "[Error]m0:text\n";
  write_file(sys(), file);
  for (const char *zone : kZones) {
    SCOPED_TRACE(zone);
    set_zone(zone);
    std::string expected = kSysMarker;
    for (const time_t time : times) expected += local_stamp_of(time) + "[Error]m0:text\n";
    EXPECT_TRUE(copied() == expected);
  }
}

// The day count compared with the calendar's rule, for the first of each month and the end of February in 800 years.
TEST_F(LogTimes, AreCopiedWithTheDaysOfTheCalendar) {
  start();
  std::string content;
  for (int year = 1600; year < 2400; year++) {
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    char line[80];
    for (int month = 1; month <= 12; month++) {
      snprintf(line, sizeof line, "%04d-%02d-01 12:34:56[Error]m0:x\n", year, month);
      content += line;
    }
    snprintf(line, sizeof line, "%04d-02-%d 00:00:00[Error]m0:x\n", year, leap ? 29 : 28);
    content += line;
  }
  EXPECT_EQ(copy_of(content), content);
}

TEST_F(LogTimes, FollowTheZoneThatIsSetLast) {
  // A copy or a start uses nothing of an earlier zone.
  const std::string stamp = "2026-01-02 10:00:00";
  for (const int hours : {0, 5, -5, 0, 1}) {
    SCOPED_TRACE(hours);
    set_zone(("X" + std::string(hours < 0 ? "XX" : "XX-") + std::to_string(std::abs(hours))).c_str());
    EXPECT_EQ(loaded_time(stamp), kTen - hours * 3600);
    EXPECT_EQ(copied(), kSysMarker + stamp_of(kTen + hours * 3600) + "[Error]m0:text\n");
  }
}
