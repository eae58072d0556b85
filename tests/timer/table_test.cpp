// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The table of timers, to the byte.

#include <cstdio>
#include <thread>

#include "support/console.h"
#include "timer/fixture.h"

using namespace tarn_test;

namespace {

// libc's form of the address after the "0x" of the format: it has its own prefix.
std::string address(mu_timer_cb_t callback) {
  char text[40];
  snprintf(text, sizeof text, "0x%p", reinterpret_cast<void *>(callback));
  return text;
}

// A row from its columns before the callback: left-aligned in 4, 10, 7, 9, 8 and 6 places.
std::string row(const std::string &columns, mu_timer_cb_t callback = ignore) {
  return columns + address(callback) + "\r\n";
}

std::string statistics(uint32_t max_drain = 0, mu_timer_cb_t callback = nullptr, uint32_t expired = 0) {
  char longest[40];
  snprintf(longest, sizeof longest, "0x%08llx", reinterpret_cast<unsigned long long>(callback));
  return std::string("Max timer drain:(ptr=") + longest + ", drain=" + std::to_string(max_drain) +
         ")\r\nExpired timer Number: " + std::to_string(expired) + "\r\n\r\n";
}

std::string shown() {
  Console console;
  mu_timer_show();
  return console.take();
}

using TimerShow = StartedTimers;

}  // namespace

TEST(TimerTable, IsPrintedBeforeTheServiceStarts) {
  EXPECT_EQ(shown(),
            "\r\nNo. Id.       Remain Interval Type    Drain Callback\r\n"
            "Max timer drain:(ptr=0x00000000, drain=0)\r\n"
            "Expired timer Number: 0\r\n"
            "\r\n");
}

TEST_F(TimerShow, PrintsTheStatisticsEvenWithoutTimers) { EXPECT_EQ(shown(), kTableHeader + statistics()); }

TEST_F(TimerShow, PrintsEveryTimerInListOrderThenTheStatistics) {
  mu_timer_add(1000, ignore, nullptr);
  const uint32_t id = mu_circle_timer_add(25, run, nullptr);
  clock_.scan();
  find(id)->drain = 12;
  timer_info.max_drain = 34;
  timer_info.max_drain_cb = run;
  timer_info.expired = 56;
  EXPECT_EQ(shown(), kTableHeader + row("0   1         99     100      OneShot 0     ") +
                         row("1   2         1      2        Circle  12    ", run) + statistics(34, run, 56));
}

TEST_F(TimerShow, PrintsDrainsAndExpiries) {
  circle(10, note('x', 30));
  mu_timer_add(40, ignore, nullptr);
  clock_.scan();  // the first takes 3 ticks, which make the second due
  EXPECT_EQ(shown(), kTableHeader + row("0   1         1      1        Circle  3     ", run) + statistics(3, run, 2));
}

TEST_F(TimerShow, PrintsStoppedTimersAndPendingDeletions) {
  mu_timer_stop(mu_timer_add(1000, ignore, nullptr));
  mu_timer_del(mu_circle_timer_add(1000, ignore, nullptr));
  EXPECT_EQ(shown(), kTableHeader + row("0   1         100    100      OneShot 0     ") +
                         row("1   2         100    100      Circle  0     ") + statistics());
}

TEST_F(TimerShow, PrintsLargeNumbersWithoutCuttingThem) {
  timer_info.last_id = 1234567890;
  mu_timer_restart(mu_timer_add(10, ignore, nullptr), UINT32_MAX);
  EXPECT_EQ(shown(), kTableHeader + row("0   1234567891429496729429496729OneShot 0     ") + statistics());
}

// "%d" prints an id as signed.
TEST_F(TimerShow, PrintsAnIdAbove2147483647AsNegative) {
  timer_info.last_id = UINT32_MAX - 1;
  mu_timer_add(1000, ignore, nullptr);
  EXPECT_EQ(shown(), kTableHeader + row("0   -1        100    100      OneShot 0     ") + statistics());
}

TEST_F(TimerShow, CallsOnlyTypeOneCircular) {
  find(mu_circle_timer_add(1000, ignore, nullptr))->type = 2;
  EXPECT_EQ(shown(), kTableHeader + row("0   1         100    100      OneShot 0     ") + statistics());
}

TEST_F(TimerShow, CountsItsRowsFromZeroToTheLimit) {
  std::string expected = kTableHeader;
  for (int number = 0; number < 256; number++) {
    ASSERT_NE(mu_timer_add(1000, ignore, nullptr), 0u);
    char columns[40];
    snprintf(columns, sizeof columns, "%-4d%-10d", number, number + 1);
    expected += row(columns + std::string("100    100      OneShot 0     "));
  }
  EXPECT_EQ(shown(), expected + statistics());
}

TEST_F(TimerShow, ChangesNothing) {
  mu_timer_add(1000, ignore, nullptr);
  const mu_timer_info_t before = timer_info;
  const std::string first = shown();
  EXPECT_EQ(shown(), first);
  EXPECT_EQ(timer_info.expired, before.expired);
  EXPECT_EQ(timer_info.last_tick, before.last_tick);
  EXPECT_TRUE(mutex_is_free());
}

TEST_F(TimerShow, PrintsItsHeaderBeforeTheMutexAndTheRestUnderIt) {
  mu_timer_add(kLong, ignore, nullptr);
  Console console;
  mu_mutex_lock(timer_info.mutex);
  std::thread other(mu_timer_show);
  std::string before;
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (before.size() < sizeof kTableHeader - 1 && std::chrono::steady_clock::now() < limit) before += console.take();
  EXPECT_EQ(before, kTableHeader);
  mu_mutex_unlock(timer_info.mutex);
  other.join();
  EXPECT_EQ(console.take(), row("0   1         100000000100000000OneShot 0     ") + statistics());
}

TEST_F(TimerShow, WorksFromACallback) {
  std::string table;
  Console console;
  circle(10, [&] {
    mu_timer_show();
    table = console.take();
  });
  clock_.scan();
  // Its own timer has expired and is not yet reloaded.
  EXPECT_EQ(table, kTableHeader + row("0   1         0      1        Circle  0     ", run) + statistics(0, nullptr, 1));
}
