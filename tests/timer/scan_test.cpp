// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The scan: the ticks that it counts, its times, and how it runs a callback.

#include <sys/syscall.h>
#include <unistd.h>

#include <iterator>

#include "support/heap.h"
#include "timer/fixture.h"

using namespace tarn_test;

namespace {

using TimerFirstScan = Timers;
using TimerScan = StartedTimers;

}  // namespace

// ---- The first scan -------------------------------------------------------------------------------------------------

// At age 5000 ms the first scan takes place at tick 501 and counts all 501.
TEST_F(TimerFirstScan, CountsTheAgeOfTheClock) {
  clock_.pass_ms(4000);
  once(5000, note('a'));
  once(5010, note('b'));
  const uint32_t later = once(5020, note('c'));
  EXPECT_EQ(scan(), "ab");
  ASSERT_NE(find(later), nullptr);
  EXPECT_EQ(remain(later), 1u);
  EXPECT_EQ(timer_info.last_tick, 501u);
  EXPECT_EQ(scan(), "c");
}

TEST_F(TimerFirstScan, RunsAnOverdueCircularTimerOnceAndReloadsIt) {
  const uint32_t id = circle(30, note('x'));
  EXPECT_EQ(scan(), "x") << "overshot by 98 ticks, run once";
  EXPECT_EQ(remain(id), 3u);
}

// Tick 2^32 + 6: cut to 32 bits it would be 6, and no timer would expire.
TEST_F(TimerFirstScan, CountsIn64Bits) {
  clock_.pass_ms(((INT64_C(1) << 32) + 5) * 10 - 1000);
  once(1000, note('a'));
  mu_timer_restart(once(1000, note('b')), UINT32_MAX);
  EXPECT_EQ(scan(), "ab");
  EXPECT_EQ(timer_info.last_tick, (UINT64_C(1) << 32) + 6);
}

// ---- Elapsed ticks --------------------------------------------------------------------------------------------------

TEST_F(TimerScan, ComesTenMillisecondsAfterTheEndOfTheOneBefore) {
  once(20, note('x', 35));
  EXPECT_EQ(clock_.now_ms(), 1010);
  clock_.scan();
  EXPECT_EQ(clock_.now_ms(), 1020);
  clock_.scan();
  EXPECT_EQ(clock_.now_ms(), 1030 + 35);
  clock_.scan();
  EXPECT_EQ(clock_.now_ms(), 1065 + 10);
  clock_.scan(7);
  EXPECT_EQ(clock_.now_ms(), 1075 + 70);
}

TEST_F(TimerScan, CountsTheTicksSinceTheEndOfTheOneBefore) {
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  clock_.scan();
  EXPECT_EQ(remain(id), 99u);
  clock_.scan(4);
  EXPECT_EQ(remain(id), 95u);
  clock_.pass_ms(300);  // a late wake-up: 30 ticks, including the sleep of one tick
  clock_.scan();
  EXPECT_EQ(remain(id), 65u);
}

TEST_F(TimerScan, CountsTickBoundariesAndNotMilliseconds) {
  clock_.pass_ms(14);
  clock_.scan();  // at 1024 ms: tick 102
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  clock_.pass_ms(19);  // 1043
  clock_.scan();
  EXPECT_EQ(timer_info.last_tick, 104u);
  EXPECT_EQ(remain(id), 98u);
}

TEST_F(TimerScan, StoresTheTickAtItsEnd) {
  EXPECT_EQ(timer_info.last_tick, 101u);
  clock_.scan();
  EXPECT_EQ(timer_info.last_tick, 102u);
  once(10, note('x', 70));
  clock_.scan();
  EXPECT_EQ(timer_info.last_tick, 103u + 7);
}

TEST_F(TimerScan, RunsATimerWhoseRemainEqualsTheElapsedTicks) {
  once(30, note('x'));
  EXPECT_EQ(scan(2), "");
  EXPECT_EQ(remain(1), 1u);
  EXPECT_EQ(scan(), "x");
}

TEST_F(TimerScan, ChargesACallbacksTicksToTheTimersAfterItOnly) {
  const uint32_t before = mu_timer_add(1000, ignore, nullptr);
  once(10, note('a', 50));
  once(60, note('b'));  // due: 1 tick of the scan and 5 of the callback
  const uint32_t not_due = once(70, note('c'));
  const uint32_t after = mu_timer_add(1000, ignore, nullptr);
  EXPECT_EQ(scan(), "ab");
  EXPECT_EQ(remain(before), 99u);
  EXPECT_EQ(remain(not_due), 1u);
  EXPECT_EQ(remain(after), 100u - 1 - 5);
}

TEST_F(TimerScan, AddsUpTheTicksOfAllItsCallbacks) {
  once(10, note('a', 30));
  once(10, note('b', 40));
  const uint32_t after = mu_timer_add(1000, ignore, nullptr);
  clock_.scan();
  EXPECT_EQ(remain(after), 100u - 1 - 3 - 4);
  EXPECT_EQ(timer_info.last_drain, 4u) << "of the latest callback only";
}

TEST_F(TimerScan, AddsTheLatestRunTimeToEveryScan) {
  once(10, note('a', 30));
  const uint32_t id = mu_timer_add(10000, ignore, nullptr);
  once(230, note('b'));  // 23 ticks: 4 in this scan and in each after it
  for (uint32_t scans = 1; scans <= 5; scans++) {
    EXPECT_EQ(scan(), scans == 1 ? "a" : "");
    EXPECT_EQ(remain(id), 1000u - 4 * scans);
    EXPECT_EQ(timer_info.last_drain, 3u);
  }
  EXPECT_EQ(scan(), "b");  // still 3 ticks too many; the callback takes no time
  EXPECT_EQ(remain(id), 1000u - 4 * 6);
  EXPECT_EQ(timer_info.last_drain, 0u);
  clock_.scan(3);
  EXPECT_EQ(remain(id), 976u - 3);
}

// ---- Visits ---------------------------------------------------------------------------------------------------------

TEST_F(TimerScan, DeletesPendingTimerBeforeCountingDown) {
  const HeapWatch heap;
  for (const Add how : kAdds) {
    const uint32_t id = add(how, 10, note('x'));
    mu_timer_stop(id);  // a delete takes precedence over a stop
    mu_timer_del(id);
    mu_timer_del(add(how, 10, note('y')));
  }
  EXPECT_EQ(heap.live(), 4u);
  EXPECT_EQ(scan(3), "");
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(timer_info.expired, 0u);
}

TEST_F(TimerScan, FreesAdjacentDeletedTimersAtOnce) {
  for (int i = 0; i < 6; i++) mu_timer_add(kLong, ignore, nullptr);
  for (const uint32_t id : {1u, 2u, 3u, 6u}) mu_timer_del(id);
  clock_.scan();
  EXPECT_EQ(listed_ids(), (Ids{4, 5}));
}

TEST_F(TimerScan, RunsCallbacksInListOrderOnTheTimerThreadWithTheirArguments) {
  static std::vector<void *> args;
  static long thread_id;
  const mu_timer_cb_t callback = [](void *arg) {
    args.push_back(arg);
    thread_id = syscall(SYS_gettid);
  };
  void *const first = reinterpret_cast<void *>(UINT64_C(0xfedcba9876543210));
  void *const second = &args;
  mu_timer_add(20, callback, first);
  mu_timer_add(10, callback, second);
  mu_timer_add(20, callback, nullptr);
  clock_.scan();
  EXPECT_EQ(args, std::vector<void *>{second});
  clock_.scan();
  EXPECT_EQ(args, (std::vector<void *>{second, first, nullptr}));
  EXPECT_EQ(thread_id, tmr_tid);
}

TEST_F(TimerScan, ShowsACallbackItsTimerAsRunningExpiredAndWithNothingRemaining) {
  for (const Add how : kAdds) {
    SCOPED_TRACE(name_of(how));
    mu_timer_rec_t seen = {};
    uint32_t expired = 0;
    bool free = false;
    const uint32_t expired_before = timer_info.expired;
    const uint32_t id = add(how, 20, [&] {
      free = mutex_is_free();
      seen = *static_cast<const mu_timer_rec_t *>(mu_list_last(timer_info.list)->data);
      expired = timer_info.expired;
    });
    clock_.scan(2);
    EXPECT_TRUE(free) << "the mutex, while the callback runs";
    EXPECT_TRUE(mutex_is_free());
    EXPECT_EQ(seen.id, id);
    EXPECT_EQ(seen.running, 1u);
    EXPECT_EQ(seen.remain, 0u);
    EXPECT_EQ(expired, expired_before + 1);
    if (how == mu_circle_timer_add) {
      EXPECT_EQ(find(id)->running, 0u);
    }
  }
}

TEST_F(TimerScan, CountsEveryExpiry) {
  mu_circle_timer_add(20, ignore, nullptr);
  mu_timer_add(50, ignore, nullptr);
  clock_.scan(10);  // 5 of the circular timer, 1 of the other
  EXPECT_EQ(timer_info.expired, 6u);
}

// ---- The run times of callbacks: of a timer, the latest, the longest ------------------------------------------------

namespace {

VirtualClock *g_clock;

// Callbacks that differ in their address; the argument is their run time in ms.
template <int Number>
void take_ms(void *ms) {
  g_clock->pass_ms(*static_cast<const int64_t *>(ms));
  static volatile int runs;  // keeps the instances from being folded into one
  runs = runs + Number;
}

class TimerDrain : public StartedTimers {
 protected:
  TimerDrain() { g_clock = &clock_; }

  // Waits for the next run of a timer of one tick.
  void run_for(int64_t ms) {
    ms_ = ms;
    clock_.scan();
  }

  int64_t ms_ = 0;
};

}  // namespace

TEST_F(TimerDrain, IsTheNumberOfTickBoundariesThatTheCallbackSpans) {
  const uint32_t id = mu_circle_timer_add(10, take_ms<1>, &ms_);
  run_for(9);  // from 1020 to 1029 ms
  EXPECT_EQ(find(id)->drain, 0u);
  EXPECT_EQ(timer_info.max_drain, 0u);
  EXPECT_EQ(timer_info.max_drain_cb, nullptr);
  run_for(1);  // from 1039 to 1040
  EXPECT_EQ(find(id)->drain, 1u);
  EXPECT_EQ(timer_info.max_drain, 1u);
  EXPECT_EQ(timer_info.max_drain_cb, take_ms<1>);
}

TEST_F(TimerDrain, KeepsATimersLongestRunAndTheLatestRunOfAll) {
  const struct {
    int64_t ms;
    uint32_t last;
    uint32_t longest;
  } rows[] = {{30, 3, 3}, {50, 5, 5}, {10, 1, 5}, {0, 0, 5}, {60, 6, 6}};
  const uint32_t id = mu_circle_timer_add(10, take_ms<1>, &ms_);
  for (const auto &row : rows) {
    SCOPED_TRACE(row.ms);
    run_for(row.ms);
    EXPECT_EQ(timer_info.last_drain, row.last);
    EXPECT_EQ(find(id)->drain, row.longest);
    EXPECT_EQ(timer_info.max_drain, row.longest);
  }
  mu_timer_restart(id, 500);
  mu_timer_stop(id);
  mu_timer_start(id);
  EXPECT_EQ(find(id)->drain, 6u) << "no start clears it";
}

TEST_F(TimerDrain, IsKeptForEachTimer) {
  static int64_t ms[] = {20, 40, 0};
  uint32_t ids[std::size(ms)];
  for (size_t i = 0; i < std::size(ms); i++) ids[i] = mu_circle_timer_add(10, take_ms<1>, &ms[i]);
  clock_.scan();
  EXPECT_EQ(find(ids[0])->drain, 2u);
  EXPECT_EQ(find(ids[1])->drain, 4u);
  EXPECT_EQ(find(ids[2])->drain, 0u);
  EXPECT_EQ(timer_info.last_drain, 0u);
}

TEST_F(TimerDrain, NamesTheFirstCallbackOfTheLongestRunThoughItsTimerIsGone) {
  static int64_t ms[] = {20, 40, 40, 50};
  mu_timer_add(10, take_ms<0>, &ms[0]);
  mu_timer_add(10, take_ms<1>, &ms[1]);
  mu_timer_add(10, take_ms<2>, &ms[2]);
  clock_.scan(3);
  ASSERT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(timer_info.max_drain, 4u);
  EXPECT_EQ(timer_info.max_drain_cb, take_ms<1>) << "an equal run does not take its place";
  mu_timer_add(10, take_ms<3>, &ms[3]);
  clock_.scan();
  EXPECT_EQ(timer_info.max_drain, 5u);
  EXPECT_EQ(timer_info.max_drain_cb, take_ms<3>);
}

// 2^32 + 3 ticks are 3 in 32 bits, for the statistics and for the timers after it.
TEST_F(TimerDrain, IsADifferenceOf32Bits) {
  ms_ = ((INT64_C(1) << 32) + 3) * 10;
  mu_timer_add(10, take_ms<1>, &ms_);
  const uint32_t after = mu_timer_add(1000, ignore, nullptr);
  clock_.scan();
  EXPECT_EQ(timer_info.last_drain, 3u);
  EXPECT_EQ(timer_info.max_drain, 3u);
  ASSERT_NE(find(after), nullptr);
  EXPECT_EQ(remain(after), 100u - 1 - 3);
}
