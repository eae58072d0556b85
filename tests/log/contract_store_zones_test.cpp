// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Times in zones: the files hold UTC, a copy shows local time, and a start reads the files as local time.

#include <random>

#include "contract_store.h"

using namespace tarn_test;

namespace {

constexpr const char *kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char *kNewYork = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char *kLordHowe = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";  // half an hour of daylight saving
constexpr const char *kDublin = "IST-1GMT0,M10.5.0,M3.5.0/1";              // its winter is the saving time
constexpr const char *kZones[] = {"UTC0",         "UTC-2",    "IST-5:30",    "<+0545>-5:45",
                                  "<-12>12",      "<+14>-14", "AMT-0:19:32", "NST3:30NDT,M3.2.0,M11.1.0",
                                  kCentralEurope, kNewYork,   kLordHowe,     kDublin};

std::string copied(const Store &store) {
  EXPECT_EQ(mup_log_file_get(store.out().c_str(), 0, nullptr, 0), 0);
  return Store::bytes_of(store.out());
}

time_t loaded_time(Store &store, const std::string &stamp) {
  Store::write(store.sys(), std::string(kSysMarker) + stamp + "[Error]m0:text\n");
  store.start();
  EXPECT_EQ(store.ctrl->sys_idx, 1u) << stamp;
  return store.ctrl->sys_ring[0].time;
}

std::string stamp_of(time_t time) { return file_line({0, 4, time, ""}, numbered_names()).substr(0, 19); }

std::string local_stamp_of(time_t time) {
  tm local = {};
  localtime_r(&time, &local);
  char stamp[64];
  strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  return stamp;
}

// Seconds around the changes of 2026 in the zones above, and far from them.
std::vector<time_t> times_around_changes(size_t count) {
  const time_t changes[] = {1774746000, 1792890000, 1772953200, 1793512800, 1775314800, 1791041400, 1767225600};
  std::mt19937 random(86400);
  std::vector<time_t> times;
  for (const time_t change : changes) {
    for (int hour = -14; hour <= 14; hour++) {
      for (const int second : {-1, 0, 1, 1800}) times.push_back(change + time_t{3600} * hour + second);
    }
  }
  while (times.size() < count) times.push_back(1735689600 + static_cast<time_t>(random() % 94608000));  // three years
  times.resize(count);
  return times;
}

}  // namespace

TEST(LogStoreZonesContract, ARecordMovesByTheZonesOffsetWithEachStart) {
  Store store;
  store.start();
  Store::set_zone("UTC-2");  // two hours ahead of UTC
  store.clock.set_wall(1767348000);
  log_text(0, 4, "text");
  ASSERT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.sys()), "SysLog:\n2026-01-02 10:00:00[Error]m0:text\n");
  EXPECT_EQ(copied(store), "SysLog:\n2026-01-02 12:00:00[Error]m0:text\n");
  store.start();
  store.expect_system({{0, 4, 1767340800, "text"}});                         // 08:00:00 UTC
  EXPECT_EQ(copied(store), "SysLog:\n2026-01-02 12:00:00[Error]m0:text\n");  // the file is as it was

  store.ctrl->dirty = 1;
  ASSERT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.sys()), "SysLog:\n2026-01-02 08:00:00[Error]m0:text\n");
  store.start();
  store.expect_system({{0, 4, 1767333600, "text"}});  // 06:00:00 UTC
}

TEST(LogStoreZonesContract, ACopyShowsLocalTimeInEveryZone) {
  Store store;
  store.start();
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
    Store::set_zone(row.zone);
    Store::write(store.sys(), std::string(kSysMarker) + row.utc + "[Error]m0:text\n");
    EXPECT_EQ(copied(store), std::string(kSysMarker) + row.local + "[Error]m0:text\n");
  }
}

TEST(LogStoreZonesContract, AStartReadsTheFilesAsLocalTimeWithoutDaylightSaving) {
  Store store;
  struct Row {
    const char *zone;
    const char *stamp;
    time_t time;
  };
  const Row rows[] = {
      {"UTC0", "2026-01-02 10:00:00", 1767348000},
      {"UTC-2", "2026-01-02 10:00:00", 1767348000 - 7200},
      {"IST-5:30", "2026-01-02 10:00:00", 1767348000 - 19800},
      {"<-12>12", "2026-01-02 10:00:00", 1767348000 + 43200},
      {kCentralEurope, "2026-01-02 10:00:00", 1767348000 - 3600},
      {kCentralEurope, "2026-07-08 10:00:00", 1783504800 - 3600},  // the flag says 0: an hour ahead, not two
      {kNewYork, "2026-01-02 10:00:00", 1767348000 + 18000},
      {kNewYork, "2026-07-08 10:00:00", 1783504800 + 18000},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << row.zone << " at " << row.stamp);
    Store::set_zone(row.zone);
    EXPECT_EQ(loaded_time(store, row.stamp), row.time);
  }
}

TEST(LogStoreZonesContract, AFileOfManyTimesIsReadAsMktimeReadsEach) {
  Store store;
  const std::vector<time_t> times = times_around_changes(MUP_LOG_SYS_NUM);
  std::string file = kSysMarker;
  for (const time_t time : times) file += stamp_of(time) + "[Error]m0:text\n";
  Store::write(store.sys(), file);
  for (const char *zone : kZones) {
    SCOPED_TRACE(zone);
    Store::set_zone(zone);
    store.start();
    std::vector<Record> expected;
    for (const time_t time : times) {
      tm fields = {};
      gmtime_r(&time, &fields);
      fields.tm_isdst = 0;
      expected.push_back({0, 4, mktime(&fields), "text"});
    }
    ASSERT_NO_FATAL_FAILURE(store.expect_system(expected));
  }
}

TEST(LogStoreZonesContract, AFileOfManyTimesIsCopiedAsLocaltimeShowsEach) {
  Store store;
  store.start();
  const std::vector<time_t> times = times_around_changes(1500);
  std::string file = kSysMarker;
  for (const time_t time : times) file += stamp_of(time) + "[Error]m0:text\n";
  Store::write(store.sys(), file);
  for (const char *zone : kZones) {
    SCOPED_TRACE(zone);
    Store::set_zone(zone);
    std::string expected = kSysMarker;
    for (const time_t time : times) expected += local_stamp_of(time) + "[Error]m0:text\n";
    EXPECT_TRUE(copied(store) == expected);
  }
}

TEST(LogStoreZonesContract, TheZoneThatIsSetLastCounts) {
  // Nothing of an earlier zone is remembered from one copy, or one start, to the next.
  Store store;
  const std::string stamp = "2026-01-02 10:00:00";
  for (const int hours : {0, 5, -5, 0, 1}) {
    SCOPED_TRACE(hours);
    Store::set_zone(("X" + std::string(hours < 0 ? "XX" : "XX-") + std::to_string(std::abs(hours))).c_str());
    EXPECT_EQ(loaded_time(store, stamp), 1767348000 - hours * 3600);
    EXPECT_EQ(copied(store), kSysMarker + stamp_of(1767348000 + hours * 3600) + "[Error]m0:text\n");
  }
}
