// What a scan does, driven scan by scan on a virtual clock.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/heap.h"
#include "support/virtual_clock.h"
#include "tarn/os.h"
#include "tarn/platform.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

VirtualClock *g_clock;
std::string g_trace;

void trace(void *name) { g_trace += static_cast<const char *>(name); }

void trace_for_30_ms(void *name) {
  trace(name);
  g_clock->pass_ms(30);
}

char *named(const char *name) { return const_cast<char *>(name); }

class TimerScan : public testing::Test {
 protected:
  TimerScan() { g_clock = &clock_; }

  // Starts the service and lets the first scan pass, which counts the age of the clock as elapsed.
  void start() {
    mu_timer_add(
        10, [](void *) {}, nullptr);
    clock_.scan();
    ASSERT_EQ(mu_timer_count(), 0u);
  }

  // The callbacks of `count` scans, in order.
  std::string scan(int count = 1) {
    g_trace.clear();
    clock_.scan(count);
    return g_trace;
  }

  static mu_timer_rec_t &timer(uint32_t id) {
    return *static_cast<mu_timer_rec_t *>(mu_list_query(timer_info.list, &id)->data);
  }

  VirtualClock clock_;
};

}  // namespace

TEST_F(TimerScan, ComesEveryTenMilliseconds) {
  start();
  const int64_t before = clock_.now_ms();
  scan(7);
  EXPECT_EQ(clock_.now_ms(), before + 70);
}

TEST_F(TimerScan, CountsTheAgeOfTheClockInTheFirstScan) {
  // The clock is 1000 s old: 100000 ticks, and one more at the first scan.
  mu_timer_add(1000000, trace, named("a"));  // 100000 ticks
  mu_timer_add(1000010, trace, named("b"));  // 100001
  mu_timer_add(1000020, trace, named("c"));  // 100002: outlasts it
  EXPECT_EQ(scan(), "ab");
  EXPECT_EQ(timer(3).remain, 1u);
  EXPECT_EQ(scan(), "c");
}

TEST_F(TimerScan, RunsAOneShotOnceAndRemovesIt) {
  start();
  mu_timer_add(1000, trace, named("x"));
  EXPECT_EQ(scan(99), "");
  EXPECT_EQ(mu_timer_count(), 1u);
  EXPECT_EQ(scan(), "x");
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(scan(200), "");
}

TEST_F(TimerScan, RunsACircularTimerAgainAndAgain) {
  start();
  mu_circle_timer_add(30, trace, named("x"));
  EXPECT_EQ(scan(2), "");
  EXPECT_EQ(scan(), "x");
  EXPECT_EQ(scan(2), "");
  EXPECT_EQ(scan(), "x");
  EXPECT_EQ(timer_info.expired, 3u);  // with the one of start()
}

TEST_F(TimerScan, VisitsTimersInTheOrderOfAdding) {
  start();
  mu_timer_add(20, trace, named("a"));
  mu_timer_add(10, trace, named("b"));
  mu_timer_add(20, trace, named("c"));
  EXPECT_EQ(scan(), "b");
  EXPECT_EQ(scan(), "ac");
}

TEST_F(TimerScan, NeverCatchesUpOnAPeriod) {
  start();
  mu_circle_timer_add(30, trace, named("x"));
  clock_.pass_ms(500);  // the machine is busy: the next scan comes late
  EXPECT_EQ(scan(), "x");
  EXPECT_EQ(timer(2).remain, 3u);  // the overshoot is dropped
  EXPECT_EQ(scan(2), "");
  EXPECT_EQ(scan(), "x");
}

TEST_F(TimerScan, ChargesLaterTimersForASlowCallback) {
  start();
  mu_timer_add(10, trace_for_30_ms, named("a"));
  mu_timer_add(40, trace, named("b"));  // 4 ticks: one of the scan, three of the callback before it
  mu_timer_add(50, trace, named("c"));
  EXPECT_EQ(scan(), "ab");
  EXPECT_EQ(timer(4).remain, 1u);
}

TEST_F(TimerScan, AddsTheLatestRunTimeToEveryScan) {
  start();
  mu_timer_add(10, trace_for_30_ms, named("a"));
  scan();
  EXPECT_EQ(timer_info.last_drain, 3u);
  mu_timer_add(120, trace, named("b"));  // 12 ticks: four in each scan
  EXPECT_EQ(scan(2), "");
  EXPECT_EQ(timer(3).remain, 4u);
  EXPECT_EQ(scan(), "b");  // which takes no time, so the next scans count one tick each
  mu_timer_add(20, trace, named("c"));
  EXPECT_EQ(scan(), "");
  EXPECT_EQ(scan(), "c");
}

TEST_F(TimerScan, NotesTheLongestRuns) {
  start();
  const uint32_t slow = mu_circle_timer_add(10, trace_for_30_ms, named("a"));
  const uint32_t fast = mu_circle_timer_add(10, trace, named("b"));
  EXPECT_EQ(scan(), "ab");
  EXPECT_EQ(timer(slow).drain, 3u);
  EXPECT_EQ(timer(fast).drain, 0u);
  EXPECT_EQ(timer_info.max_drain, 3u);
  EXPECT_EQ(timer_info.max_drain_cb, trace_for_30_ms);
  EXPECT_EQ(timer_info.last_drain, 0u);  // of the latest callback
}

TEST_F(TimerScan, KeepsTheTickOfItsEnd) {
  start();
  mu_timer_add(10, trace_for_30_ms, named("a"));
  scan();
  EXPECT_EQ(timer_info.last_tick, static_cast<uint64_t>(clock_.now_ms() / 10));
}

TEST_F(TimerScan, DeletesPendingTimerBeforeCountingDown) {
  start();
  const uint32_t id = mu_timer_add(10, trace, named("x"));
  mu_timer_stop(id);  // a delete takes precedence over a stop
  EXPECT_EQ(mu_timer_del(id), 0u);
  EXPECT_EQ(mu_timer_count(), 1u);
  HeapWatch heap;
  EXPECT_EQ(scan(), "");
  EXPECT_EQ(mu_timer_count(), 0u);
}

TEST_F(TimerScan, LeavesAStoppedTimerAlone) {
  start();
  const uint32_t id = mu_circle_timer_add(50, trace, named("x"));
  scan(2);
  EXPECT_EQ(mu_timer_stop(id), 0u);
  EXPECT_EQ(scan(20), "");
  EXPECT_EQ(timer(id).remain, 3u);
  mu_timer_start(id);  // from the full interval: it does not resume
  EXPECT_EQ(scan(4), "");
  EXPECT_EQ(scan(), "x");
}

TEST_F(TimerScan, LetsACallbackArmItsOwnTimerAgain) {
  start();
  static uint32_t id;
  id = mu_timer_add(
      10, [](void *) { mu_timer_restart(id, 30); }, nullptr);
  const uint32_t expired = timer_info.expired;
  scan();
  EXPECT_EQ(mu_timer_count(), 1u);
  EXPECT_EQ(timer(id).interval, 3u);
  scan(2);
  EXPECT_EQ(timer_info.expired, expired + 1);
  scan();
  EXPECT_EQ(timer_info.expired, expired + 2);
}

TEST_F(TimerScan, RemovesAOneShotThatItsCallbackStopped) {
  start();
  static uint32_t id;
  id = mu_timer_add(
      10, [](void *) { mu_timer_stop(id); }, nullptr);
  scan();
  EXPECT_EQ(mu_timer_count(), 0u);
}

TEST_F(TimerScan, LetsACallbackDeleteItsOwnTimer) {
  start();
  static uint32_t id;
  static uint32_t result;
  id = mu_circle_timer_add(
      10, [](void *) { result = mu_timer_del(id); }, nullptr);
  const uint32_t expired = timer_info.expired;
  result = 9;
  scan(5);
  EXPECT_EQ(result, 0u);  // the timer thread could not wait for itself
  EXPECT_EQ(timer_info.expired, expired + 1);
  EXPECT_EQ(mu_timer_count(), 0u);
}

TEST_F(TimerScan, VisitsATimerThatTheLastCallbackAddedInTheNextScan) {
  start();
  mu_timer_add(
      10, [](void *) { mu_timer_add(10, trace, named("new")); }, nullptr);
  EXPECT_EQ(scan(), "");
  EXPECT_EQ(scan(), "new");
}

TEST_F(TimerScan, HoldsNoMutexWhileACallbackRuns) {
  start();
  static int busy;
  busy = -1;
  mu_timer_add(
      10,
      [](void *) {
        busy = mu_mutex_trylock(timer_info.mutex);
        mu_mutex_unlock(timer_info.mutex);
      },
      nullptr);
  scan();
  EXPECT_EQ(busy, 0);
}

TEST_F(TimerScan, RunsCallbacksOnTheTimerThread) {
  start();
  static long thread;
  mu_timer_add(
      10, [](void *) { thread = OS_CURRENT_THREAD(); }, nullptr);
  scan();
  EXPECT_EQ(thread, tmr_tid);
}
