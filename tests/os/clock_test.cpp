#include <gtest/gtest.h>

#include "support/virtual_clock.h"
#include "tarn/os.h"

using namespace tarn_test;

TEST(OsTick, CountsTenMillisecondsOfTheMonotonicClock) {
  VirtualClock clock(123456789);
  EXPECT_EQ(OS_TICK_GET(), 12345678u);
  clock.pass_ms(1);
  EXPECT_EQ(OS_TICK_GET(), 12345679u);
  clock.pass_ms(1000);
  EXPECT_EQ(OS_TICK_GET(), 12345779u);
}

TEST(OsTick, IsTruncated) {
  const std::pair<long, uint64_t> rows[] = {{0, 700}, {9999999, 700}, {10000000, 701}, {999999999, 799}};
  for (const auto &[nanoseconds, tick] : rows) {
    Replace now(libc::clock_gettime, [ns = nanoseconds](clockid_t clock, timespec *time) {
      EXPECT_EQ(clock, CLOCK_MONOTONIC);
      *time = {7, ns};
      return 0;
    });
    EXPECT_EQ(OS_TICK_GET(), tick) << nanoseconds;
  }
}

TEST(OsTick, IsComputedIn64Bits) {
  Replace now(libc::clock_gettime, [](clockid_t, timespec *time) {
    *time = {int64_t{1} << 40, 0};
    return 0;
  });
  EXPECT_EQ(OS_TICK_GET(), (uint64_t{1} << 40) * 100);
}

TEST(OsTick, DoesNotFollowTheWallClock) {
  VirtualClock clock;
  const uint64_t before = OS_TICK_GET();
  clock.set_wall(0);
  EXPECT_EQ(OS_TICK_GET(), before);
}

TEST(OsTime, CountsFromThePrivateEpoch) {
  struct Row {
    time_t seconds;
    int64_t microseconds;
    int64_t time;
  };
  constexpr Row kRows[] = {
      {1185252800, 0, 0},            // 2007-07-24 04:53:20 UTC
      {1185252801, 250000, 125},     // 1.25 s later
      {1185252800, 9999, 0},         // truncated
      {1185252800, 10000, 1},        //
      {1185252799, 990000, -1},      // before the epoch
      {1185252799, 0, -100},         //
      {0, 0, -118525280000},         //
      {4102444800, 0, 291719200000}  // 2100-01-01: (4102444800 - 1185252800) * 100
  };
  VirtualClock clock;
  for (const Row &row : kRows) {
    clock.set_wall(row.seconds, row.microseconds);
    EXPECT_EQ(OS_TIME_GET(), row.time) << row.seconds << '.' << row.microseconds;
  }
}
