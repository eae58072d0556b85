// The tick, the time and the two delays.

#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <type_traits>
#include <vector>

#include "support/libc.h"
#include "support/virtual_clock.h"
#include "tarn/os.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_TICK_GET), uint64_t (*)()>);
static_assert(std::is_same_v<decltype(&OS_TIME_GET), int64_t (*)()>);
static_assert(std::is_same_v<decltype(&OS_DELAY), void (*)(uint32_t)>);
static_assert(std::is_same_v<decltype(&OS_SLEEP), void (*)(uint32_t)>);

namespace {

constexpr time_t kEpoch = 1185252800;

int64_t time_at(time_t seconds, suseconds_t microseconds) {
  Replace wall_clock(libc::gettimeofday, [=](timeval *now, void *) {
    *now = {seconds, microseconds};
    return 0;
  });
  return OS_TIME_GET();
}

// The select calls that the library makes, each answered at once.
class Selects {
 public:
  struct Call {
    int count;
    bool sets;
    bool has_timeout;
    timeval timeout;
  };

  explicit Selects(int error = 0)
      : select_(libc::select, [this, error](int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout) {
          calls_.push_back({count, read != nullptr || write != nullptr || except != nullptr, timeout != nullptr,
                            timeout != nullptr ? *timeout : timeval{-1, -1}});
          if (error == 0) return 0;
          errno = error;
          return -1;
        }) {}
  const std::vector<Call> &calls() const { return calls_; }

 private:
  std::vector<Call> calls_;
  Replace<int(int, fd_set *, fd_set *, fd_set *, timeval *)> select_;
};

void expect_one_wait(const Selects &selects, time_t seconds, suseconds_t microseconds) {
  ASSERT_EQ(selects.calls().size(), 1u);
  const Selects::Call &call = selects.calls()[0];
  EXPECT_EQ(call.count, 1);
  EXPECT_FALSE(call.sets);
  EXPECT_TRUE(call.has_timeout);
  EXPECT_EQ(call.timeout.tv_sec, seconds);
  EXPECT_EQ(call.timeout.tv_usec, microseconds);
}

}  // namespace

TEST(TickContract, CountsTenMillisecondsTruncated) {
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

TEST(TickContract, AdvancesByAHundredASecond) {
  VirtualClock clock(12345);
  EXPECT_EQ(OS_TICK_GET(), 1234u);
  clock.pass_ms(1000);
  EXPECT_EQ(OS_TICK_GET(), 1334u);
}

TEST(TickContract, DoesNotFollowTheWallClock) {
  VirtualClock clock(50000);
  for (const time_t wall : {time_t{0}, kEpoch, VirtualClock::kStart + 1000000}) {
    clock.set_wall(wall);
    EXPECT_EQ(OS_TICK_GET(), 5000u);
  }
}

TEST(TickContract, NeverGoesBackwardsOnTheSystemsClock) {
  uint64_t before = OS_TICK_GET();
  EXPECT_GT(before, 0u);
  for (int i = 0; i < 10000; i++) {
    const uint64_t now = OS_TICK_GET();
    ASSERT_GE(now, before);
    before = now;
  }
}

TEST(TimeContract, CountsTenMillisecondsSinceThePrivateEpoch) {
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
      // Before the epoch. The microseconds still count upwards: -100 + 99 for the last one.
      {kEpoch - 1, 0, -100},
      {kEpoch - 1, 9999, -100},
      {kEpoch - 1, 999999, -1},
      {0, 0, -118525280000},
      {0, 999999, -118525279901},
      {-1, 0, -118525280100},
      {4294967296, 0, 310971449600},  // (4294967296 - 1185252800) * 100
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.time);
    EXPECT_EQ(time_at(row.seconds, row.microseconds), row.time);
  }
}

TEST(TimeContract, TheEpochIsFiftyThreeTwentyAfterFourOn24July2007) {
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

TEST(DelayContract, WaitsInOneSelectWithoutDescriptors) {
  const struct {
    uint32_t us;
    time_t seconds;
    suseconds_t microseconds;
  } kRows[] = {
      {0, 0, 0},  // makes the call too
      {1, 0, 1},       {999999, 0, 999999},        {1000000, 1, 0},
      {1000001, 1, 1}, {2147483648, 2147, 483648}, {4294967295, 4294, 967295},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.us);
    const Selects selects;
    OS_DELAY(row.us);
    expect_one_wait(selects, row.seconds, row.microseconds);
  }
}

TEST(SleepContract, WaitsMillisecondsInOneSelect) {
  const struct {
    uint32_t ms;
    time_t seconds;
    suseconds_t microseconds;
  } kRows[] = {
      {1, 0, 1000},
      {999, 0, 999000},
      {1000, 1, 0},
      {1500, 1, 500000},
      {4294967, 4294, 967000},  // the largest that does not wrap
      // The product modulo 2^32 = 4294967296.
      {4294968, 0, 704},
      {5000000, 705, 32704},
      {4294967295, 4294, 966296},  // -1 * 1000
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.ms);
    const Selects selects;
    OS_SLEEP(row.ms);
    expect_one_wait(selects, row.seconds, row.microseconds);
  }
}

TEST(SleepContract, ZeroMakesNoSystemCall) {
  const Selects selects;
  OS_SLEEP(0);
  EXPECT_TRUE(selects.calls().empty());
}

// 536870912 * 1000 = 125 * 2^32: the product wraps to 0, but the argument is not 0.
TEST(SleepContract, AProductThatWrapsToZeroStillMakesTheCall) {
  const Selects selects;
  OS_SLEEP(536870912);
  expect_one_wait(selects, 0, 0);
}

TEST(DelayContract, ASignalEndsIt) {
  const Selects selects(EINTR);
  OS_DELAY(5000000);
  expect_one_wait(selects, 5, 0);
}

TEST(SleepContract, ASignalEndsIt) {
  const Selects selects(EINTR);
  OS_SLEEP(5000);
  expect_one_wait(selects, 5, 0);
}
