// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Deleting, stopping, starting, re-arming and counting between scans.

#include "support/console.h"
#include "timer/fixture.h"

using namespace tarn_test;

namespace {

using TimerDel = StartedTimers;
using TimerStop = StartedTimers;
using TimerStart = StartedTimers;
using TimerRestart = StartedTimers;
using TimerCount = StartedTimers;

}  // namespace

// ---- Delete ---------------------------------------------------------------------------------------------------------

TEST_F(TimerDel, MarksTheTimerAndKeepsItUntilTheNextScan) {
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  EXPECT_EQ(mu_timer_del(id), 0u);
  ASSERT_NE(find(id), nullptr);
  EXPECT_EQ(find(id)->deleted, 1u);
  EXPECT_EQ(find(id)->stopped, 0u);
  EXPECT_EQ(remain(id), 100u);
  EXPECT_EQ(mu_timer_count(), 1u);
  clock_.scan();
  EXPECT_EQ(find(id), nullptr);
  EXPECT_EQ(mu_timer_count(), 0u);
}

TEST_F(TimerDel, FindsATwiceDeletedTimerUntilItIsGone) {
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  Console console;
  EXPECT_EQ(mu_timer_del(id), 0u);
  EXPECT_EQ(mu_timer_del(id), 0u);
  EXPECT_EQ(console.take(), "");
  clock_.scan();
  EXPECT_EQ(mu_timer_del(id), 0u);
  EXPECT_EQ(console.take(), kNoDelete);
}

TEST_F(TimerDel, ReportsAnUnknownIdAsStopDoes) {
  mu_timer_add(1000, ignore, nullptr);
  for (const uint32_t id : kUnknownIds) {
    SCOPED_TRACE(id);
    Console console;
    EXPECT_EQ(mu_timer_del(id), 0u);
    EXPECT_EQ(console.take(), kNoDelete);
    EXPECT_EQ(mu_timer_stop(id), 0u);
    EXPECT_EQ(console.take(), kNoStop);
  }
  EXPECT_EQ(find(1)->deleted, 0u);
  EXPECT_EQ(find(1)->stopped, 0u);
}

TEST_F(TimerDel, TakesPrecedenceOverAStop) {
  const uint32_t first = mu_timer_add(1000, ignore, nullptr);
  const uint32_t second = mu_timer_add(1000, ignore, nullptr);
  Console console;
  mu_timer_stop(first);
  mu_timer_del(first);
  mu_timer_del(second);
  mu_timer_stop(second);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(find(second)->stopped, 1u);
  EXPECT_EQ(find(second)->deleted, 1u);
  clock_.scan();
  EXPECT_EQ(mu_timer_count(), 0u);
}

TEST_F(TimerDel, MeansTheFirstTimerOfThatIdAsStopDoes) {
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  mu_timer_rec_t twin = *find(id);
  mu_list_add(timer_info.list, &twin);
  const auto *second = static_cast<const mu_timer_rec_t *>(mu_list_last(timer_info.list)->data);
  mu_timer_del(id);
  mu_timer_stop(id);
  EXPECT_EQ(find(id)->deleted, 1u);
  EXPECT_EQ(find(id)->stopped, 1u);
  EXPECT_EQ(second->deleted, 0u);
  EXPECT_EQ(second->stopped, 0u);
}

// ---- Stop and start -------------------------------------------------------------------------------------------------

TEST_F(TimerStop, FreezesTheRemainingTicks) {
  for (const Add how : kAdds) {
    SCOPED_TRACE(name_of(how));
    const uint32_t id = add(how, 50, note('x'));
    clock_.scan(2);
    Console console;
    EXPECT_EQ(mu_timer_stop(id), 0u);
    EXPECT_EQ(mu_timer_stop(id), 0u) << "again";
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(find(id)->stopped, 1u);
    EXPECT_EQ(find(id)->deleted, 0u);
    EXPECT_EQ(scan(100), "");
    EXPECT_EQ(remain(id), 3u);
    EXPECT_EQ(find(id)->interval, 5u);
    EXPECT_EQ(mu_timer_count(), 1u);
    mu_timer_del(id);
    clock_.scan();
  }
}

TEST_F(TimerStart, ReloadsAStoppedTimerWithItsFullInterval) {
  const uint32_t id = once(50, note('x'));
  clock_.scan(3);
  mu_timer_stop(id);
  clock_.scan();
  mu_timer_start(id);
  EXPECT_EQ(remain(id), 5u) << "it does not resume";
  EXPECT_EQ(find(id)->stopped, 0u);
  EXPECT_EQ(scan(4), "");
  EXPECT_EQ(scan(), "x");
}

TEST_F(TimerStart, ReloadsAnActiveTimer) {
  const uint32_t id = circle(50, note('x'));
  for (int i = 0; i < 10; i++) {
    EXPECT_EQ(scan(4), "");
    EXPECT_EQ(remain(id), 1u);
    mu_timer_start(id);
    EXPECT_EQ(remain(id), 5u);
  }
}

TEST_F(TimerStart, BringsBackADeletedTimer) {
  const uint32_t id = once(50, note('x'));
  clock_.scan(3);
  mu_timer_stop(id);
  mu_timer_del(id);
  mu_timer_start(id);
  EXPECT_EQ(find(id)->deleted, 0u);
  EXPECT_EQ(find(id)->stopped, 0u);
  EXPECT_EQ(remain(id), 5u);
  EXPECT_EQ(scan(4), "");
  EXPECT_EQ(scan(), "x");
}

TEST_F(TimerStart, IgnoresUnknownIdsSilentlyAsRestartDoes) {
  mu_timer_add(1000, ignore, nullptr);
  clock_.scan(10);
  Console console;
  for (const uint32_t id : kUnknownIds) {
    mu_timer_start(id);
    mu_timer_restart(id, 10);
  }
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(remain(1), 90u);
  EXPECT_EQ(find(1)->interval, 100u);
  EXPECT_EQ(mu_timer_count(), 1u);
}

TEST_F(TimerStart, DoesNotReviveATimerThatIsGone) {
  const uint32_t id = once(10, note('x'));
  EXPECT_EQ(scan(), "x");
  mu_timer_start(id);
  mu_timer_restart(id, 10);
  EXPECT_EQ(scan(5), "");
  EXPECT_EQ(mu_timer_count(), 0u);
}

// ---- Restart --------------------------------------------------------------------------------------------------------

// The adds compare as signed numbers: -1 makes one tick there and 429496729 here.
TEST_F(TimerRestart, TakesItsIntervalAsUnsigned) {
  const std::pair<uint32_t, uint32_t> rows[] = {{0, 1},
                                                {1, 1},
                                                {10, 1},
                                                {11, 1},
                                                {15, 1},
                                                {19, 1},
                                                {20, 2},
                                                {1000, 100},
                                                {0x7fffffff, 214748364},
                                                {0x80000000, 214748364},
                                                {static_cast<uint32_t>(-7), 429496728},
                                                {UINT32_MAX, 429496729}};
  const uint32_t id = mu_timer_add(50, ignore, nullptr);
  for (const auto &[ms, ticks] : rows) {
    SCOPED_TRACE(ms);
    mu_timer_restart(id, ms);
    EXPECT_EQ(find(id)->interval, ticks);
    EXPECT_EQ(remain(id), ticks);
  }
}

TEST_F(TimerRestart, ActivatesATimerInAnyState) {
  const std::pair<const char *, void (*)(uint32_t id)> rows[] = {
      {"active", [](uint32_t) {}},
      {"stopped", [](uint32_t id) { mu_timer_stop(id); }},
      {"deleted", [](uint32_t id) { mu_timer_del(id); }},
      {"both", [](uint32_t id) { mu_timer_del(id), mu_timer_stop(id); }}};
  for (const auto &[name, prepare] : rows) {
    SCOPED_TRACE(name);
    const uint32_t id = once(kLong, note('x'));
    prepare(id);
    mu_timer_restart(id, 30);
    EXPECT_EQ(find(id)->deleted, 0u);
    EXPECT_EQ(find(id)->stopped, 0u);
    EXPECT_EQ(scan(2), "");
    EXPECT_EQ(scan(), "x");
  }
}

TEST_F(TimerRestart, GivesACircularTimerItsNewPeriod) {
  const uint32_t id = circle(kLong, note('x'));
  mu_timer_restart(id, 20);
  EXPECT_EQ(scan(10), "xxxxx");
}

TEST_F(TimerRestart, KeepsTheRestOfTheRecord) {
  const uint32_t id = circle(50, note('x'));
  find(id)->drain = 4;
  const mu_timer_rec_t before = *find(id);
  mu_timer_restart(id, 70);
  const mu_timer_rec_t &after = *find(id);
  EXPECT_EQ(after.callback, before.callback);
  EXPECT_EQ(after.arg, before.arg);
  EXPECT_EQ(after.type, 1u);
  EXPECT_EQ(after.id, id);
  EXPECT_EQ(after.running, 0u);
  EXPECT_EQ(after.drain, 4u);
}

// ---- Count ----------------------------------------------------------------------------------------------------------

TEST_F(TimerCount, IncludesStoppedTimersAndPendingDeletions) {
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
