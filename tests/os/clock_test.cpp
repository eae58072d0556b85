// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The tick and the time.

#include <ctime>
#include <type_traits>

#include "os/fixture.h"
#include "support/virtual_clock.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_TICK_GET), uint64_t (*)()>);
static_assert(std::is_same_v<decltype(&OS_TIME_GET), int64_t (*)()>);

namespace {

constexpr time_t kEpoch = 1185252800;

int64_t time_at(time_t seconds, suseconds_t microseconds) {
  Replace wall_clock(libc::gettimeofday, [=](timeval *now, void *) {
    *now = {seconds, microseconds};
    return 0;
  });
  return OS_TIME_GET();
}

}  // namespace

TEST(OsTick, CountsTenMillisecondsOfTheMonotonicClockTruncated) {
  const struct {
    timespec now;
    uint64_t tick;
  } kRows[] = {
      {{0, 0}, 0},
      {{0, 9999999}, 0},
      {{0, 10000000}, 1},
      {{0, 19999999}, 1},
      {{0, 999999999}, 99},
      {{1, 0}, 100},
      {{5, 990000000}, 599},
      {{42949673, 0}, 4294967300},             // above 32 bits
      {{4294967296, 20000000}, 429496729602},  // seconds above 32 bits
      {{int64_t{1} << 40, 0}, (uint64_t{1} << 40) * 100},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.tick);
    clockid_t clock = -1;
    Replace monotonic(libc::clock_gettime, [&](clockid_t asked, timespec *now) {
      clock = asked;
      *now = row.now;
      return 0;
    });
    EXPECT_EQ(OS_TICK_GET(), row.tick);
    EXPECT_EQ(clock, CLOCK_MONOTONIC);
  }
}

TEST(OsTick, AdvancesByAHundredASecond) {
  VirtualClock clock(123456789);
  EXPECT_EQ(OS_TICK_GET(), 12345678u);
  clock.pass_ms(1);
  EXPECT_EQ(OS_TICK_GET(), 12345679u);
  clock.pass_ms(1000);
  EXPECT_EQ(OS_TICK_GET(), 12345779u);
}

TEST(OsTick, DoesNotFollowTheWallClock) {
  VirtualClock clock(50000);
  for (const time_t wall : {time_t{0}, kEpoch, VirtualClock::kStart + 1000000}) {
    clock.set_wall(wall);
    EXPECT_EQ(OS_TICK_GET(), 5000u);
  }
}

TEST(OsTick, NeverGoesBackwardsOnTheSystemsClock) {
  uint64_t before = OS_TICK_GET();
  EXPECT_GT(before, 0u);
  for (int i = 0; i < 10000; i++) {
    const uint64_t now = OS_TICK_GET();
    ASSERT_GE(now, before);
    before = now;
  }
}

TEST(OsTime, CountsFromThePrivateEpoch) {
  const struct {
    time_t seconds;
    suseconds_t microseconds;
    int64_t time;
  } kRows[] = {
      {kEpoch, 0, 0},
      {kEpoch, 9999, 0},
      {kEpoch, 10000, 1},
      {kEpoch, 999999, 99},
      {kEpoch + 1, 250000, 125},
      {kEpoch + 3600, 0, 360000},
      // Before the epoch. The microseconds still count upwards: -100 + 99.
      {kEpoch - 1, 0, -100},
      {kEpoch - 1, 9999, -100},
      {kEpoch - 1, 990000, -1},
      {kEpoch - 1, 999999, -1},
      {0, 0, -118525280000},
      {0, 999999, -118525279901},
      {-1, 0, -118525280100},
      {4102444800, 0, 291719200000},  // 2100-01-01: (4102444800 - 1185252800) * 100
      {4294967296, 0, 310971449600},  // (4294967296 - 1185252800) * 100
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.time);
    EXPECT_EQ(time_at(row.seconds, row.microseconds), row.time);
  }
}

TEST(OsTime, TheEpochIsFiftyThreeTwentyAfterFourOn24July2007) {
  tm date = {};
  date.tm_year = 2007 - 1900;
  date.tm_mon = 7 - 1;
  date.tm_mday = 24;
  date.tm_hour = 4;
  date.tm_min = 53;
  date.tm_sec = 20;
  EXPECT_EQ(time_at(timegm(&date), 0), 0);
  date.tm_sec = 21;
  EXPECT_EQ(time_at(timegm(&date), 250000), 125);
}
