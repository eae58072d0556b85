// The table of timers and the count, to the byte.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>

#include "support/console.h"
#include "support/virtual_clock.h"
#include "tarn/platform.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

constexpr char kHeader[] = "\r\nNo. Id.       Remain Interval Type    Drain Callback\r\n";
constexpr int kLong = 1000000000;

VirtualClock *g_clock;

void ignore(void *) {}
void take_30_ms(void *) { g_clock->pass_ms(30); }

// How libc prints the address behind the "0x" of the format: with a prefix of its own.
std::string address(mu_timer_cb_t callback) {
  char text[40];
  snprintf(text, sizeof text, "0x%p", reinterpret_cast<void *>(callback));
  return text;
}

std::string statistics(const std::string &max_callback, int max_drain, int expired) {
  return "Max timer drain:(ptr=0x" + max_callback + ", drain=" + std::to_string(max_drain) +
         ")\r\nExpired timer Number: " + std::to_string(expired) + "\r\n\r\n";
}

std::string shown() {
  Console console;
  mu_timer_show();
  return console.take();
}

class TimerShowContract : public testing::Test {
 protected:
  TimerShowContract() {
    g_clock = &clock_;
    mu_timer_add(0, nullptr, nullptr);
    clock_.scan();
  }

  VirtualClock clock_{1000};
};

}  // namespace

TEST_F(TimerShowContract, PrintsTheStatisticsEvenWithoutTimers) {
  EXPECT_EQ(shown(), kHeader + statistics("00000000", 0, 0));
}

TEST_F(TimerShowContract, PrintsARowForEachTimerInListOrder) {
  mu_timer_add(1000, ignore, nullptr);
  mu_circle_timer_add(25, ignore, nullptr);
  clock_.scan();
  // Left-aligned in 4, 10, 7, 9, 8 and 6 places.
  EXPECT_EQ(shown(), kHeader + ("0   1         99     100      OneShot 0     " + address(ignore)) +
                         ("\r\n1   2         1      2        Circle  0     " + address(ignore)) + "\r\n" +
                         statistics("00000000", 0, 0));
}

TEST_F(TimerShowContract, PrintsDrainsAndExpiries) {
  mu_circle_timer_add(10, take_30_ms, nullptr);
  mu_timer_add(40, ignore, nullptr);
  clock_.scan();  // the first takes 3 ticks, which make the second due
  char max[40];
  snprintf(max, sizeof max, "%08llx", reinterpret_cast<unsigned long long>(take_30_ms));
  EXPECT_EQ(shown(), kHeader + ("0   1         1      1        Circle  3     " + address(take_30_ms)) + "\r\n" +
                         statistics(max, 3, 2));
}

TEST_F(TimerShowContract, PrintsStoppedTimersAndPendingDeletions) {
  mu_timer_stop(mu_timer_add(1000, ignore, nullptr));
  mu_timer_del(mu_circle_timer_add(1000, ignore, nullptr));
  EXPECT_EQ(shown(), kHeader + ("0   1         100    100      OneShot 0     " + address(ignore)) +
                         ("\r\n1   2         100    100      Circle  0     " + address(ignore)) + "\r\n" +
                         statistics("00000000", 0, 0));
}

TEST_F(TimerShowContract, PrintsLargeNumbersWithoutCuttingThem) {
  timer_info.last_id = 1234567890;
  mu_timer_restart(mu_timer_add(10, ignore, nullptr), UINT32_MAX);
  EXPECT_EQ(shown(), kHeader + ("0   1234567891429496729429496729OneShot 0     " + address(ignore)) + "\r\n" +
                         statistics("00000000", 0, 0));
}

// "%d" takes an id as signed.
TEST_F(TimerShowContract, PrintsAnIdAbove2147483647AsNegative) {
  timer_info.last_id = UINT32_MAX - 1;
  mu_timer_add(1000, ignore, nullptr);
  EXPECT_EQ(shown(), kHeader + ("0   -1        100    100      OneShot 0     " + address(ignore)) + "\r\n" +
                         statistics("00000000", 0, 0));
}

TEST_F(TimerShowContract, CallsOnlyTypeOneCircular) {
  mu_circle_timer_add(1000, ignore, nullptr);
  static_cast<mu_timer_rec_t *>(mu_list_first(timer_info.list)->data)->type = 2;
  EXPECT_NE(shown().find(" OneShot "), std::string::npos);
}

TEST_F(TimerShowContract, CountsItsRowsFromZeroToTheLimit) {
  std::string expected = kHeader;
  for (int row = 0; row < 256; row++) {
    ASSERT_NE(mu_timer_add(1000, ignore, nullptr), 0u);
    char text[40];
    snprintf(text, sizeof text, "%-4d%-10d", row, row + 1);
    expected += text + ("100    100      OneShot 0     " + address(ignore)) + "\r\n";
  }
  EXPECT_EQ(shown(), expected + statistics("00000000", 0, 0));
}

TEST_F(TimerShowContract, ChangesNothing) {
  mu_timer_add(1000, ignore, nullptr);
  const mu_timer_info_t before = timer_info;
  const std::string first = shown();
  EXPECT_EQ(shown(), first);
  EXPECT_EQ(timer_info.expired, before.expired);
  EXPECT_EQ(timer_info.last_tick, before.last_tick);
  EXPECT_EQ(mu_mutex_trylock(timer_info.mutex), 0);
  mu_mutex_unlock(timer_info.mutex);
}

TEST_F(TimerShowContract, PrintsItsHeaderBeforeTheMutexAndTheRestUnderIt) {
  mu_timer_add(kLong, ignore, nullptr);
  Console console;
  mu_mutex_lock(timer_info.mutex);
  std::thread other(mu_timer_show);
  std::string before;
  while (before.size() < sizeof kHeader - 1) before += console.take();
  EXPECT_EQ(before, kHeader);
  mu_mutex_unlock(timer_info.mutex);
  other.join();
  EXPECT_EQ(console.take(), ("0   1         100000000100000000OneShot 0     " + address(ignore)) + "\r\n" +
                                statistics("00000000", 0, 0));
}

TEST_F(TimerShowContract, WorksFromACallback) {
  static std::string table;
  static Console *console;
  mu_circle_timer_add(
      10,
      [](void *) {
        mu_timer_show();
        table = console->take();
      },
      nullptr);
  Console own;
  console = &own;
  clock_.scan();
  // Its own timer has run out and not been reloaded yet.
  EXPECT_NE(table.find("\r\n0   1         0      1        Circle  0     0x"), std::string::npos) << table;
  EXPECT_NE(table.find("Expired timer Number: 1\r\n"), std::string::npos) << table;
}

// ---- The count ------------------------------------------------------------------------------------------------------

TEST_F(TimerShowContract, StandsBesideACountThatIncludesStoppedTimersAndPendingDeletions) {
  EXPECT_EQ(mu_timer_count(), 0u);
  for (uint32_t timers = 1; timers <= 4; timers++) {
    mu_timer_add(kLong, ignore, nullptr);
    EXPECT_EQ(mu_timer_count(), timers);
  }
  mu_timer_del(1);
  mu_timer_stop(2);
  EXPECT_EQ(mu_timer_count(), 4u);
  clock_.scan();
  EXPECT_EQ(mu_timer_count(), 3u);
}
