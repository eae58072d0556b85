// The start of the service, adding timers, and their ids.

#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "support/virtual_clock.h"
#include "tarn/os.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

void ignore(void *) {}

// What a failed start leaves behind is abandoned, as the header says: kept here within a leak checker's reach.
void keep_abandoned() {
  static auto &abandoned = *new std::vector<const void *>;  // alive when leaks are looked for
  abandoned.push_back(timer_info.mutex);
  abandoned.push_back(timer_info.list);
}

uint32_t interval_of(uint32_t id) {
  return static_cast<mu_timer_rec_t *>(mu_list_query(timer_info.list, &id)->data)->interval;
}

}  // namespace

TEST(TimerService, IsNotStartedByAnythingButAnAdd) {
  Console console;
  EXPECT_EQ(mu_timer_count(), 0u);
  mu_timer_start(1);
  mu_timer_restart(1, 10);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(mu_timer_del(1), 0u);
  EXPECT_EQ(console.take(), "Oops: Delete an invalid timer!!\r\n");
  EXPECT_EQ(mu_timer_stop(1), 0u);
  EXPECT_EQ(console.take(), "Oops: Stop an invalid timer!!\r\n");
  EXPECT_EQ(timer_initialized, 0u);
  EXPECT_EQ(timer_info.mutex, nullptr);
  EXPECT_EQ(timer_info.list, nullptr);
  EXPECT_EQ(timer_info.max_num, 0u);
}

TEST(TimerService, StartsWithTheFirstAdd) {
  VirtualClock clock;
  size_t stack_size = 0;
  Replace set(libc::pthread_attr_setstacksize, [&](pthread_attr_t *attributes, size_t size) {
    stack_size = size;
    return libc::pthread_attr_setstacksize.real(attributes, size);
  });
  mu_timer_add(1000000, ignore, nullptr);
  clock.settle();
  EXPECT_EQ(timer_initialized, 1u);
  EXPECT_EQ(timer_info.max_num, 256u);
  EXPECT_EQ(timer_info.last_id, 1u);
  EXPECT_NE(timer_info.mutex, nullptr);
  EXPECT_EQ(timer_info.list->data_size, sizeof(mu_timer_rec_t));
  EXPECT_EQ(timer_info.list->cmp, mu_timer_compare);
  EXPECT_EQ(stack_size, 32768u);
  EXPECT_NE(tmr_tid, OS_CURRENT_THREAD());
  EXPECT_NE(tmr_tid, 0);
}

TEST(TimerService, ANullCallbackStartsItToo) {
  VirtualClock clock;
  Console console;
  EXPECT_EQ(mu_timer_add(10, nullptr, nullptr), 0u);
  EXPECT_EQ(mu_circle_timer_add(10, nullptr, nullptr), 0u);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(timer_initialized, 1u);
  EXPECT_EQ(mu_timer_count(), 0u);
}

TEST(TimerService, AFailedStartIsTriedAgainByTheNextAdd) {
  VirtualClock clock;
  Console console;
  // Allocations of a start: the mutex, the list, the thread's handle.
  for (int failing : {2, 3}) {
    SCOPED_TRACE(failing);
    FailingMalloc no_memory(failing);
    EXPECT_EQ(mu_timer_add(10, ignore, nullptr), 0u);
    EXPECT_EQ(console.take(), "Timer number exceed(0)\n");
    EXPECT_EQ(timer_initialized, 0u);
    EXPECT_EQ(timer_info.max_num, 0u);
    keep_abandoned();
  }
  {
    Replace refuse(libc::pthread_create,
                   [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return EAGAIN; });
    EXPECT_EQ(mu_circle_timer_add(10, ignore, nullptr), 0u);
    EXPECT_EQ(console.take(), "Timer number exceed(0)\n");
    keep_abandoned();
  }
  EXPECT_EQ(mu_timer_add(10, ignore, nullptr), 1u);
  EXPECT_EQ(timer_initialized, 1u);
}

TEST(TimerService, GoesOnWithoutAMutex) {
  VirtualClock clock;
  FailingMalloc no_memory(1);
  EXPECT_EQ(mu_timer_add(20, ignore, nullptr), 1u);
  EXPECT_EQ(timer_info.mutex, nullptr);
  clock.scan();
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(timer_info.expired, 1u);
}

TEST(TimerAdd, TurnsMillisecondsIntoTicks) {
  const std::pair<int, uint32_t> rows[] = {
      {INT32_MIN, 1}, {-7, 1}, {0, 1},  {5, 1},      {10, 1}, {11, 1}, {15, 1},
      {19, 1},        {20, 2}, {29, 2}, {1000, 100}, {30, 3}, {39, 3}, {INT32_MAX, 214748364}};
  VirtualClock clock;
  for (const auto &[ms, ticks] : rows) {
    EXPECT_EQ(interval_of(mu_timer_add(ms, ignore, nullptr)), ticks) << ms;
    EXPECT_EQ(interval_of(mu_circle_timer_add(ms, ignore, nullptr)), ticks) << ms;
  }
}

TEST(TimerAdd, MakesAWholeRecord) {
  VirtualClock clock;
  int arg = 0;
  mu_timer_add(30, ignore, &arg);
  mu_circle_timer_add(50, ignore, nullptr);
  const mu_list_node_t *node = mu_list_first(timer_info.list);
  for (uint32_t type : {0u, 1u}) {
    const auto &timer = *static_cast<mu_timer_rec_t *>(node->data);
    EXPECT_EQ(timer.interval, type == 0 ? 3u : 5u);
    EXPECT_EQ(timer.remain, timer.interval);
    EXPECT_EQ(timer.callback, ignore);
    EXPECT_EQ(timer.arg, type == 0 ? &arg : nullptr);
    EXPECT_EQ(timer.type, type);
    EXPECT_EQ(timer.id, type + 1);
    EXPECT_EQ(timer.running + timer.deleted + timer.stopped + timer.drain, 0u);
    node = mu_list_next(node);
  }
}

TEST(TimerAdd, RefusesThe257thUntilADeletedOneIsFreed) {
  VirtualClock clock;
  Console console;
  mu_timer_add(1000, ignore, nullptr);
  clock.scan();  // past the scan that counts the age of the clock
  for (int i = 0; i < 256; i++) EXPECT_NE(mu_timer_add(10000, ignore, nullptr), 0u);
  EXPECT_EQ(mu_timer_count(), 256u);
  EXPECT_EQ(mu_timer_add(10000, ignore, nullptr), 0u);
  EXPECT_EQ(console.take(), "Timer number exceed(256)\n");
  mu_timer_del(100);
  EXPECT_EQ(mu_circle_timer_add(10000, ignore, nullptr), 0u);  // pending deletions count
  EXPECT_EQ(console.take(), "Timer number exceed(256)\n");
  clock.scan();
  EXPECT_EQ(mu_timer_add(10000, ignore, nullptr), 258u);
  EXPECT_EQ(console.take(), "");
}

TEST(TimerAdd, ReturnsAnIdWithoutATimerWhenMemoryRunsOut) {
  VirtualClock clock;
  EXPECT_EQ(mu_timer_add(10000, ignore, nullptr), 1u);
  FailingMalloc no_memory(1);
  EXPECT_EQ(mu_timer_add(10000, ignore, nullptr), 2u);
  EXPECT_EQ(mu_timer_count(), 1u);
}

TEST(TimerId, WrapsAroundToTheNextFreeId) {
  VirtualClock clock;
  const uint32_t first = mu_timer_add(10000, ignore, nullptr);
  clock.settle();
  timer_info.last_id = UINT32_MAX - 1;
  EXPECT_EQ(mu_timer_add(10000, ignore, nullptr), UINT32_MAX);
  mu_timer_del(first);  // still in the list, so its id is taken
  EXPECT_EQ(mu_timer_add(10000, ignore, nullptr), 2u);
  EXPECT_EQ(timer_info.last_id, 2u);
}

TEST(TimerCompare, IsThreeWayAndUnsigned) {
  mu_timer_rec_t timer = {};
  const std::tuple<uint32_t, uint32_t, int> rows[] = {
      {1, 1, 0}, {2, 1, 1}, {1, 2, -1}, {UINT32_MAX, 1, 1}, {1, UINT32_MAX, -1}, {0x80000000, 0x7FFFFFFF, 1}};
  for (const auto &[own, searched, result] : rows) {
    timer.id = own;
    EXPECT_EQ(mu_timer_compare(&timer, &searched), result) << own << ' ' << searched;
  }
}
