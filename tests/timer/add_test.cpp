// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What an add stores: intervals, records, ids, and the limit of 256.

#include <climits>

#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "timer/fixture.h"

using namespace tarn_test;

namespace {

void fill(uint32_t count) {
  for (uint32_t i = 0; i < count; i++) ASSERT_NE(mu_timer_add(kLong, ignore, nullptr), 0u);
}

using TimerAdd = StartedTimers;
using TimerId = StartedTimers;
using TimerLimit = StartedTimers;

}  // namespace

// ---- Records --------------------------------------------------------------------------------------------------------

// Signed: 1 for at most 10 ms, otherwise a tenth, truncated.
TEST_F(TimerAdd, TurnsMillisecondsIntoTicks) {
  const std::pair<int, uint32_t> rows[] = {{INT_MIN, 1}, {-20, 1}, {-7, 1},   {-1, 1},     {0, 1},
                                           {1, 1},       {5, 1},   {9, 1},    {10, 1},     {11, 1},
                                           {15, 1},      {19, 1},  {20, 2},   {29, 2},     {30, 3},
                                           {39, 3},      {99, 9},  {100, 10}, {1000, 100}, {INT_MAX, 214748364}};
  for (const Add add_timer : kAdds) {
    for (const auto &[ms, ticks] : rows) {
      SCOPED_TRACE(testing::Message() << ms << " ms, " << name_of(add_timer));
      const mu_timer_rec_t *timer = find(add_timer(ms, ignore, nullptr));
      ASSERT_NE(timer, nullptr);
      EXPECT_EQ(timer->interval, ticks);
      EXPECT_EQ(timer->remain, ticks);
    }
  }
}

TEST_F(TimerAdd, StoresAWholeRecord) {
  for (const Add add_timer : kAdds) {
    for (void *const arg : {reinterpret_cast<void *>(UINT64_C(0xfedcba9876543210)), static_cast<void *>(nullptr)}) {
      SCOPED_TRACE(testing::Message() << name_of(add_timer) << " with " << arg);
      const uint32_t id = add_timer(250, ignore, arg);
      const mu_timer_rec_t *timer = find(id);
      ASSERT_NE(timer, nullptr);
      EXPECT_EQ(timer->interval, 25u);
      EXPECT_EQ(timer->remain, 25u);
      EXPECT_EQ(timer->callback, ignore);
      EXPECT_EQ(timer->arg, arg);
      EXPECT_EQ(timer->type, add_timer == mu_timer_add ? 0u : 1u);
      EXPECT_EQ(timer->id, id);
      EXPECT_EQ(timer->running, 0u);
      EXPECT_EQ(timer->deleted, 0u);
      EXPECT_EQ(timer->stopped, 0u);
      EXPECT_EQ(timer->drain, 0u);
    }
  }
}

TEST_F(TimerAdd, AppendsInTheOrderOfTheAdds) {
  mu_timer_add(3000, ignore, nullptr);
  mu_circle_timer_add(1000, ignore, nullptr);
  mu_timer_add(2000, ignore, nullptr);
  EXPECT_EQ(listed_ids(), (Ids{1, 2, 3}));
  EXPECT_EQ(mu_timer_count(), 3u);
}

TEST_F(TimerAdd, TakesOneBlockForATimer) {
  const HeapWatch heap;
  mu_timer_add(1000, ignore, nullptr);
  EXPECT_EQ(heap.live(), 1u);
}

TEST_F(TimerAdd, RefusesANullCallbackSilentlyAndWithoutTheMutex) {
  Console console;
  mu_mutex_lock(timer_info.mutex);  // an add that locks it would wait forever
  for (const Add add_timer : kAdds) EXPECT_EQ(add_timer(1000, nullptr, nullptr), 0u);
  mu_mutex_unlock(timer_info.mutex);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(timer_info.last_id, 0u);
}

TEST_F(TimerAdd, ReturnsAnIdWithoutATimerWhenMemoryRunsOut) {
  Console console;
  for (const Add add_timer : kAdds) {
    const FailingMalloc failing(1);
    const uint32_t expected = timer_info.last_id + 1;
    EXPECT_EQ(add_timer(1000, ignore, nullptr), expected);
    EXPECT_EQ(failing.seen(), 1);
    EXPECT_EQ(mu_timer_count(), 0u);
    EXPECT_EQ(timer_info.last_id, expected);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(mu_timer_del(expected), 0u);
    EXPECT_EQ(console.take(), kNoDelete);
  }
  EXPECT_EQ(mu_timer_add(1000, ignore, nullptr), 3u) << "the id of a timer that does not exist is used up";
}

// ---- Ids ------------------------------------------------------------------------------------------------------------

TEST_F(TimerId, RunsFromOneForBothKinds) {
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 1u);
  EXPECT_EQ(mu_circle_timer_add(kLong, ignore, nullptr), 2u);
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 3u);
  EXPECT_EQ(timer_info.last_id, 3u);
  timer_info.last_id = 41;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 42u) << "from the id handed out last";
}

TEST_F(TimerId, IsNotUsedAgainSoonAfterItsTimerIsGone) {
  mu_timer_del(mu_timer_add(kLong, ignore, nullptr));
  clock_.scan();
  ASSERT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 2u);
}

TEST_F(TimerId, WrapsToOneAfterTheLargest) {
  timer_info.last_id = UINT32_MAX - 1;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), UINT32_MAX);
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 1u);
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 2u);
}

TEST_F(TimerId, PassesOverIdsInUse) {
  fill(3);  // 1, 2, 3
  mu_timer_del(2);
  clock_.scan();  // 1 and 3 remain
  timer_info.last_id = UINT32_MAX;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 2u);
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 4u);
  EXPECT_EQ(listed_ids(), (Ids{1, 3, 2, 4}));
}

TEST_F(TimerId, PassesOverTimersThatAreStoppedOrWhoseDeletionIsPending) {
  fill(3);
  mu_timer_del(1);
  mu_timer_stop(2);
  timer_info.last_id = UINT32_MAX;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 4u);
  EXPECT_EQ(timer_info.last_id, 4u);
}

// ---- The limit ------------------------------------------------------------------------------------------------------

TEST_F(TimerLimit, Is256Timers) {
  Console console;
  fill(255);
  EXPECT_EQ(mu_circle_timer_add(kLong, ignore, nullptr), 256u);
  EXPECT_EQ(console.take(), "");
  for (const Add add_timer : kAdds) {
    EXPECT_EQ(add_timer(kLong, ignore, nullptr), 0u);
    EXPECT_EQ(console.take(), kFull);
    EXPECT_TRUE(mutex_is_free());
  }
  EXPECT_EQ(mu_timer_add(kLong, nullptr, nullptr), 0u);
  EXPECT_EQ(console.take(), "") << "a null callback is refused before";
  EXPECT_EQ(mu_timer_count(), 256u);
  EXPECT_EQ(timer_info.last_id, 256u) << "a refused add uses no id";
}

TEST_F(TimerLimit, CountsATimerWhoseDeletionIsPendingUntilTheNextScan) {
  fill(256);
  mu_timer_del(100);
  Console console;
  for (const Add add_timer : kAdds) {
    EXPECT_EQ(add_timer(kLong, ignore, nullptr), 0u);
    EXPECT_EQ(console.take(), kFull);
  }
  clock_.scan();
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 257u);
  EXPECT_EQ(console.take(), "");
}

TEST_F(TimerLimit, CountsStoppedTimers) {
  fill(256);
  mu_timer_stop(100);
  clock_.scan();
  Console console;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 0u);
  EXPECT_EQ(console.take(), kFull);
}

TEST_F(TimerLimit, IsTheNumberInTheState) {
  timer_info.max_num = 2;
  fill(2);
  Console console;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 0u);
  EXPECT_EQ(console.take(), "Timer number exceed(2)\n");
}
