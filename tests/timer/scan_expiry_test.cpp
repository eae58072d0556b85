// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The expiry of timers in a scan: one-shot and circular ones, and changes of the list by callbacks.

#include "support/heap.h"
#include "timer/fixture.h"

using namespace tarn_test;

namespace {

using TimerOneShot = StartedTimers;
using TimerCircular = StartedTimers;
using TimerListDuringScan = StartedTimers;

}  // namespace

// ---- One-shot timers ------------------------------------------------------------------------------------------------

TEST_F(TimerOneShot, RunsOnceAfterItsIntervalAndIsGone) {
  const uint32_t id = once(1000, note('x'));
  clock_.run_ms(990);
  EXPECT_EQ(fired_, "");
  EXPECT_EQ(mu_timer_count(), 1u);
  clock_.run_ms(10);
  EXPECT_EQ(fired_, "x");
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(find(id), nullptr);
  clock_.run_ms(5000);
  EXPECT_EQ(fired_, "x");
}

TEST_F(TimerOneShot, IsFreedAfterItsCallback) {
  const HeapWatch heap;
  mu_timer_add(10, ignore, nullptr);
  const void *node = mu_list_first(timer_info.list);
  EXPECT_EQ(heap.live(), 1u);
  clock_.scan();
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(heap.freed(), std::vector<void *>{const_cast<void *>(node)});
}

TEST_F(TimerOneShot, StaysWhenItsCallbackArmsItAgain) {
  const struct {
    const char *name;
    void (*arm)(uint32_t id);
    uint32_t ticks;
  } rows[] = {{"start: its full interval", [](uint32_t id) { mu_timer_start(id); }, 3},
              {"restart: the new interval", [](uint32_t id) { mu_timer_restart(id, 50); }, 5}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    int runs = 0;
    uint32_t id = 0;
    id = once(30, [&] {
      if (++runs == 1) row.arm(id);
    });
    clock_.scan(3);
    ASSERT_NE(find(id), nullptr);
    EXPECT_EQ(find(id)->type, 0u);
    EXPECT_EQ(remain(id), row.ticks);
    EXPECT_EQ(find(id)->interval, row.ticks);
    clock_.scan(static_cast<int>(row.ticks) - 1);
    EXPECT_EQ(runs, 1);
    clock_.scan();
    EXPECT_EQ(runs, 2);
    EXPECT_EQ(mu_timer_count(), 0u) << "not armed again by its second run";
  }
}

// The result of these calls in the timer's own callback. A timer with 0 remaining is removed, whatever its flags.
TEST_F(TimerOneShot, StaysOnlyIfItsCallbackLeavesTicksInRemain) {
  const struct {
    const char *name;
    void (*act)(uint32_t id);
    bool kept;
    uint32_t deleted;
    uint32_t stopped;
  } rows[] = {
      {"nothing", [](uint32_t) {}, false, 0, 0},
      {"stop", [](uint32_t id) { mu_timer_stop(id); }, false, 0, 0},
      {"delete", [](uint32_t id) { mu_timer_del(id); }, false, 0, 0},
      {"restart, stop", [](uint32_t id) { mu_timer_restart(id, 50), mu_timer_stop(id); }, true, 0, 1},
      {"stop, start", [](uint32_t id) { mu_timer_stop(id), mu_timer_start(id); }, true, 0, 0},
      {"restart, delete", [](uint32_t id) { mu_timer_restart(id, 50), mu_timer_del(id); }, true, 1, 0},
      {"delete, restart", [](uint32_t id) { mu_timer_del(id), mu_timer_restart(id, 50); }, true, 0, 0},
      {"delete, start", [](uint32_t id) { mu_timer_del(id), mu_timer_start(id); }, true, 0, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    uint32_t id = 0;
    id = once(10, [&] { row.act(id); });
    clock_.scan();
    const mu_timer_rec_t *timer = find(id);
    ASSERT_EQ(timer != nullptr, row.kept);
    if (timer == nullptr) continue;
    EXPECT_EQ(timer->deleted, row.deleted);
    EXPECT_EQ(timer->stopped, row.stopped);
    EXPECT_EQ(timer->running, 0u);
    mu_timer_del(id);
    clock_.scan();
  }
}

// ---- Circular timers ------------------------------------------------------------------------------------------------

TEST_F(TimerCircular, RunsOnceAnInterval) {
  const uint32_t id = circle(30, note('x'));
  EXPECT_EQ(scan(2), "");
  EXPECT_EQ(scan(), "x");
  EXPECT_EQ(remain(id), 3u);
  EXPECT_EQ(scan(2), "");
  EXPECT_EQ(scan(), "x");
  EXPECT_EQ(scan(3 * 9), "xxxxxxxxx");
  EXPECT_EQ(mu_timer_count(), 1u);
}

TEST_F(TimerCircular, DropsTheTicksByWhichItOvershot) {
  const uint32_t id = circle(50, note('x'));
  clock_.pass_ms(580);  // the machine is busy: the next scan comes late
  EXPECT_EQ(scan(), "x");
  EXPECT_EQ(remain(id), 5u);
  EXPECT_EQ(scan(4), "");
  EXPECT_EQ(scan(), "x");
}

TEST_F(TimerCircular, ReloadsTheIntervalThatItsCallbackGaveIt) {
  uint32_t id = 0;
  id = circle(10, [&] { mu_timer_restart(id, 80); });
  clock_.scan();
  EXPECT_EQ(find(id)->interval, 8u);
  EXPECT_EQ(remain(id), 8u);
}

TEST_F(TimerCircular, ReloadsAfterItsOwnStopAndThenRests) {
  uint32_t id = 0;
  id = circle(30, [&] {
    note('x')();
    mu_timer_stop(id);
  });
  EXPECT_EQ(scan(3), "x");
  EXPECT_EQ(remain(id), 3u);
  EXPECT_EQ(scan(10), "");
  EXPECT_EQ(remain(id), 3u);
}

TEST_F(TimerCircular, IsRemovedByTheScanAfterItsOwnDelete) {
  uint32_t id = 0;
  uint32_t result = 9;
  id = circle(10, [&] {
    note('x')();
    result = mu_timer_del(id);
  });
  EXPECT_EQ(scan(), "x");
  EXPECT_EQ(result, 0u) << "on the timer thread itself, which could not wait for its own end";
  EXPECT_EQ(mu_timer_count(), 1u);
  EXPECT_EQ(scan(), "");
  EXPECT_EQ(mu_timer_count(), 0u);
}

TEST_F(TimerCircular, IsEveryTimerWhoseTypeIsNotZero) {
  const uint32_t id = mu_timer_add(20, ignore, nullptr);
  find(id)->type = 2;
  clock_.scan(2);
  ASSERT_NE(find(id), nullptr);
  EXPECT_EQ(remain(id), 2u);
}

// ---- The list while callbacks run -----------------------------------------------------------------------------------

TEST_F(TimerListDuringScan, ReachesATimerAddedBeforeTheLastNodeWasRead) {
  once(10, [this] {
    note('a')();
    once(10, note('c'));
  });
  mu_timer_add(kLong, ignore, nullptr);  // read before the callback; the new timer comes after it
  EXPECT_EQ(scan(), "ac");
}

TEST_F(TimerListDuringScan, LeavesATimerAddedByTheLastNodeToTheNextScan) {
  once(10, [this] {
    note('a')();
    once(10, note('b'));
  });
  EXPECT_EQ(scan(), "a");
  EXPECT_EQ(remain(2), 1u);
  EXPECT_EQ(scan(), "b");
}

TEST_F(TimerListDuringScan, RemovesADueTimerThatACallbackBeforeItDeleted) {
  once(10, [this] {
    note('a')();
    mu_timer_del(2);
  });
  once(10, note('b'));
  once(10, note('c'));
  EXPECT_EQ(scan(), "ac");
  EXPECT_EQ(mu_timer_count(), 0u);
}

TEST_F(TimerListDuringScan, KeepsATimerThatWasPassedWhenACallbackDeletesIt) {
  mu_timer_add(kLong, ignore, nullptr);
  once(10, [] { mu_timer_del(1); });
  clock_.scan();
  EXPECT_NE(find(1), nullptr) << "its turn is in the next scan";
  clock_.scan();
  EXPECT_EQ(find(1), nullptr);
}

TEST_F(TimerListDuringScan, SkipsADueTimerThatACallbackBeforeItStopped) {
  once(10, [] { mu_timer_stop(2); });
  once(10, note('b'));
  EXPECT_EQ(scan(5), "");
  EXPECT_EQ(remain(2), 1u);
}
