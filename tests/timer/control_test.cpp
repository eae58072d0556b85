// Deleting, stopping, starting; and the table.

#include <gtest/gtest.h>
#include <semaphore.h>

#include <cinttypes>
#include <cstdio>
#include <string>

#include "support/console.h"
#include "support/virtual_clock.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

void ignore(void *) {}

class TimerControl : public testing::Test {
 protected:
  TimerControl() {
    mu_timer_add(10, ignore, nullptr);
    clock_.scan();  // past the scan that counts the age of the clock
  }

  static mu_timer_rec_t &timer(uint32_t id) {
    return *static_cast<mu_timer_rec_t *>(mu_list_query(timer_info.list, &id)->data);
  }

  VirtualClock clock_;
};

using TimerStart = TimerControl;
using TimerRestart = TimerControl;
using TimerShow = TimerControl;

// A callback that waits until the test lets it end.
sem_t g_entered;
sem_t g_may_end;
void wait_for_test(void *) {
  sem_post(&g_entered);
  sem_wait(&g_may_end);
}

}  // namespace

TEST_F(TimerControl, OfAnUnknownIdSaysSo) {
  Console console;
  for (uint32_t id : {0u, 99u, UINT32_MAX}) {
    EXPECT_EQ(mu_timer_del(id), 0u);
    EXPECT_EQ(console.take(), "Oops: Delete an invalid timer!!\r\n");
    EXPECT_EQ(mu_timer_stop(id), 0u);
    EXPECT_EQ(console.take(), "Oops: Stop an invalid timer!!\r\n");
    mu_timer_start(id);
    mu_timer_restart(id, 10);
    EXPECT_EQ(console.take(), "");
  }
}

TEST_F(TimerControl, DeletingTwiceFindsTheTimerAgain) {
  Console console;
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  EXPECT_EQ(mu_timer_del(id), 0u);
  EXPECT_EQ(mu_timer_del(id), 0u);
  EXPECT_EQ(console.take(), "");
  clock_.scan();
  EXPECT_EQ(mu_timer_del(id), 0u);
  EXPECT_EQ(console.take(), "Oops: Delete an invalid timer!!\r\n");
}

TEST_F(TimerControl, TellsAnotherThreadThatTheCallbackIsRunning) {
  sem_init(&g_entered, 0, 0);
  sem_init(&g_may_end, 0, 0);
  const uint32_t id = mu_circle_timer_add(10, wait_for_test, nullptr);
  const uint32_t idle = mu_circle_timer_add(1000, ignore, nullptr);
  clock_.wake_next();
  sem_wait(&g_entered);
  EXPECT_EQ(mu_timer_stop(id), 1u);
  EXPECT_EQ(mu_timer_del(id), 1u);
  EXPECT_EQ(mu_timer_del(idle), 0u);
  EXPECT_EQ(mu_timer_count(), 2u);
  sem_post(&g_may_end);
  clock_.settle();
  EXPECT_EQ(mu_timer_del(id), 0u);  // no longer running
  clock_.scan(5);
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(timer_info.expired, 2u);  // it never fired again
}

TEST_F(TimerStart, ReloadsTheInterval) {
  const uint32_t id = mu_timer_add(100, ignore, nullptr);
  clock_.scan(4);
  EXPECT_EQ(timer(id).remain, 6u);
  mu_timer_start(id);
  EXPECT_EQ(timer(id).remain, 10u);
}

TEST_F(TimerStart, BringsBackADeletedTimer) {
  const uint32_t id = mu_timer_add(30, ignore, nullptr);
  mu_timer_stop(id);
  mu_timer_del(id);
  mu_timer_start(id);
  EXPECT_EQ(timer(id).deleted + timer(id).stopped, 0u);
  clock_.scan(3);
  EXPECT_EQ(timer_info.expired, 2u);
}

TEST_F(TimerRestart, BringsBackADeletedTimerWithANewInterval) {
  const uint32_t id = mu_timer_add(30, ignore, nullptr);
  mu_timer_stop(id);
  mu_timer_del(id);
  mu_timer_restart(id, 50);
  EXPECT_EQ(timer(id).deleted + timer(id).stopped, 0u);
  EXPECT_EQ(timer(id).interval, 5u);
  EXPECT_EQ(timer(id).remain, 5u);
}

TEST_F(TimerRestart, TakesItsIntervalAsUnsigned) {
  const uint32_t id = mu_timer_add(30, ignore, nullptr);
  const std::pair<uint32_t, uint32_t> rows[] = {
      {0, 1}, {10, 1}, {19, 1}, {20, 2}, {static_cast<uint32_t>(-7), 429496728}, {UINT32_MAX, 429496729}};
  for (const auto &[ms, ticks] : rows) {
    mu_timer_restart(id, ms);
    EXPECT_EQ(timer(id).interval, ticks) << ms;
    EXPECT_EQ(timer(id).remain, ticks) << ms;
  }
}

TEST_F(TimerShow, PrintsEveryTimerThenTheStatistics) {
  mu_timer_add(15000, ignore, nullptr);
  const uint32_t id = mu_circle_timer_add(500, ignore, nullptr);
  clock_.scan(3);
  timer(id).drain = 12;
  timer_info.max_drain = 34;
  timer_info.max_drain_cb = ignore;
  char pointer[32];
  snprintf(pointer, sizeof pointer, "%p", reinterpret_cast<void *>(ignore));
  char longest[32];
  snprintf(longest, sizeof longest, "0x%08" PRIxPTR, reinterpret_cast<uintptr_t>(ignore));
  Console console;
  mu_timer_show();
  // The columns are 4, 10, 7, 9, 8 and 6 wide; the literal 0x stands before libc's own prefix.
  EXPECT_EQ(console.take(), std::string("\r\nNo. Id.       Remain Interval Type    Drain Callback\r\n") +
                                "0   2         1497   1500     OneShot 0     0x" + pointer + "\r\n" +
                                "1   3         47     50       Circle  12    0x" + pointer + "\r\n" +
                                "Max timer drain:(ptr=" + longest + ", drain=34)\r\n" + "Expired timer Number: 1\r\n" +
                                "\r\n");
}

TEST(TimerTable, IsPrintedBeforeTheServiceStarts) {
  Console console;
  mu_timer_show();
  EXPECT_EQ(console.take(),
            "\r\nNo. Id.       Remain Interval Type    Drain Callback\r\n"
            "Max timer drain:(ptr=0x00000000, drain=0)\r\n"
            "Expired timer Number: 0\r\n"
            "\r\n");
}
