// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// From nothing to a running service: the state before the first add, the start, and starts that fail.

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "timer/fixture.h"

using namespace tarn_test;

namespace {

constexpr char kNotStarted[] = "Timer number exceed(0)\n";

int g_runs;

void count_run(void *) { g_runs++; }

bool is_zero(const mu_timer_info_t &info) {
  static constexpr mu_timer_info_t zero{};
  return memcmp(&info, &zero, sizeof zero) == 0;
}

// A failed start abandons its mutex and its list. Kept here, so that a sanitizer does not report a leak.
void keep_abandoned() {
  static auto &kept = *new std::vector<const void *>;  // alive when leaks are searched
  kept.push_back(timer_info.mutex);
  kept.push_back(timer_info.list);
}

// Counts the threads that the library requests, and may refuse them.
class ThreadGate {
 public:
  explicit ThreadGate(bool refuses = false) : refuses_(refuses) {}

  int asked = 0;
  const void *argument = this;  // of the latest

 private:
  const bool refuses_;
  using Entry = void *(*)(void *);
  Replace<int(pthread_t *, const pthread_attr_t *, Entry, void *)> gate_{
      libc::pthread_create, [this](pthread_t *thread, const pthread_attr_t *attributes, Entry entry, void *arg) {
        asked++;
        argument = arg;
        if (refuses_) return EAGAIN;
        return libc::pthread_create.real(thread, attributes, entry, arg);
      }};
};

// For each of the two functions that start the service.
class TimerService : public testing::TestWithParam<Add> {
 protected:
  static uint32_t add(mu_timer_cb_t callback) { return GetParam()(1000, callback, nullptr); }
};

INSTANTIATE_TEST_SUITE_P(BothAdds, TimerService, testing::ValuesIn(kAdds),
                         [](const auto &add) { return std::string(name_of(add.param)); });

}  // namespace

// ---- Before the first add -------------------------------------------------------------------------------------------

TEST(TimerBeforeStart, HasNoState) {
  EXPECT_TRUE(is_zero(timer_info));
  EXPECT_EQ(timer_initialized, 0u);
  EXPECT_EQ(tmr_tid, 0);
}

TEST(TimerBeforeStart, OtherFunctionsFindNoTimerAndDoNotStartTheService) {
  const ThreadGate threads;
  const HeapWatch heap;
  Console console;
  EXPECT_EQ(mu_timer_del(1), 0u);
  EXPECT_EQ(console.take(), kNoDelete);
  EXPECT_EQ(mu_timer_stop(1), 0u);
  EXPECT_EQ(console.take(), kNoStop);
  mu_timer_start(1);
  mu_timer_restart(1, 100);
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(console.take(), "");
  mu_timer_show();
  console.take();
  EXPECT_TRUE(is_zero(timer_info));
  EXPECT_EQ(timer_initialized, 0u);
  EXPECT_EQ(threads.asked, 0);
  EXPECT_EQ(heap.live(), 0u);
}

// ---- The start ------------------------------------------------------------------------------------------------------

TEST_P(TimerService, FillsInTheStateWhateverItHeld) {
  VirtualClock clock;
  memset(&timer_info, 0xee, sizeof timer_info);
  EXPECT_EQ(add(count_run), 1u);
  EXPECT_EQ(timer_initialized, 1u);
  EXPECT_EQ(timer_info.max_num, 256u);
  EXPECT_TRUE(mutex_is_free());
  ASSERT_NE(timer_info.list, nullptr);
  EXPECT_EQ(timer_info.list->data_size, sizeof(mu_timer_rec_t));
  EXPECT_EQ(timer_info.list->cmp, mu_timer_compare);
  EXPECT_EQ(timer_info.last_id, 1u);
  EXPECT_EQ(timer_info.last_drain, 0u);
  EXPECT_EQ(timer_info.max_drain, 0u);
  EXPECT_EQ(timer_info.max_drain_cb, nullptr);
  EXPECT_EQ(timer_info.last_tick, 0u);
  EXPECT_EQ(timer_info.expired, 0u);
}

TEST_P(TimerService, StartsOnce) {
  VirtualClock clock;
  add(count_run);
  clock.settle();
  const ThreadGate threads;
  const mu_timer_info_t before = timer_info;
  EXPECT_EQ(mu_timer_add(1000, count_run, nullptr), 2u);
  EXPECT_EQ(mu_circle_timer_add(1000, count_run, nullptr), 3u);
  EXPECT_EQ(threads.asked, 0);
  EXPECT_EQ(timer_info.list, before.list);
  EXPECT_EQ(timer_info.mutex, before.mutex);
  EXPECT_TRUE(pthread_equal(timer_info.tid, before.tid));
}

TEST_P(TimerService, StartsForANullCallbackToo) {
  VirtualClock clock;
  Console console;
  EXPECT_EQ(add(nullptr), 0u);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(timer_initialized, 1u);
  EXPECT_EQ(timer_info.max_num, 256u);
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(timer_info.last_id, 0u);
}

// ---- The thread -----------------------------------------------------------------------------------------------------

TEST(TimerThread, IsKnownByItsHandleAndItsKernelId) {
  static pthread_t handle;
  static long kernel_id;
  VirtualClock clock;
  mu_timer_add(
      10,
      [](void *) {
        handle = pthread_self();
        kernel_id = syscall(SYS_gettid);
      },
      nullptr);
  clock.scan();
  EXPECT_NE(kernel_id, 0);
  EXPECT_NE(kernel_id, syscall(SYS_gettid));
  EXPECT_EQ(tmr_tid, kernel_id);
  EXPECT_TRUE(pthread_equal(timer_info.tid, handle));
}

TEST(TimerThread, StoresItsKernelIdAndSleepsTenMillisecondsBeforeItsFirstScan) {
  VirtualClock clock;
  mu_timer_add(10, count_run, nullptr);
  clock.settle();
  EXPECT_NE(tmr_tid, 0);
  EXPECT_EQ(timer_info.last_tick, 0u);
  clock.run_ms(9);
  EXPECT_EQ(g_runs, 0);
  clock.run_ms(1);
  EXPECT_EQ(g_runs, 1);
}

TEST(TimerThread, IsAskedForOnceWithAStackOf32768BytesAndANullArgument) {
  VirtualClock clock;
  size_t stack = 0;
  const Replace sizes(libc::pthread_attr_setstacksize, [&](pthread_attr_t *attributes, size_t size) {
    stack = size;
    return libc::pthread_attr_setstacksize.real(attributes, size);
  });
  const ThreadGate threads(true);
  Console console;
  mu_timer_add(10, count_run, nullptr);
  console.take();
  EXPECT_EQ(threads.asked, 1);
  EXPECT_EQ(stack, 32768u);
  EXPECT_EQ(threads.argument, nullptr);
}

// ---- Starts that fail -----------------------------------------------------------------------------------------------

// In the order of the start: the mutex, the list, the cell for the new thread's handle.
TEST_P(TimerService, FailsWithTheLimitMessageWhenMemoryRunsOut) {
  const struct {
    int failing_allocation;
    bool list_made;
  } rows[] = {{2, false}, {3, true}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.failing_allocation);
    const ThreadGate threads;
    const FailingMalloc failing(row.failing_allocation);
    Console console;
    EXPECT_EQ(add(count_run), 0u);
    EXPECT_EQ(console.take(), kNotStarted);
    EXPECT_EQ(failing.seen(), row.failing_allocation);
    EXPECT_EQ(threads.asked, 0);
    EXPECT_NE(timer_info.mutex, nullptr);
    EXPECT_EQ(timer_info.list != nullptr, row.list_made);
    EXPECT_EQ(timer_initialized, 0u);
    EXPECT_EQ(timer_info.max_num, 0u);
    keep_abandoned();
  }
}

TEST_P(TimerService, FailsWithTheLimitMessageWhenTheThreadIsRefused) {
  const ThreadGate threads(true);
  Console console;
  EXPECT_EQ(add(count_run), 0u);
  EXPECT_EQ(console.take(), kNotStarted);
  EXPECT_EQ(threads.asked, 1);
  EXPECT_EQ(timer_initialized, 0u);
  EXPECT_EQ(timer_info.max_num, 0u);
  EXPECT_EQ(timer_info.last_id, 0u);
  keep_abandoned();
  // The other functions use the existing state.
  EXPECT_EQ(mu_timer_del(1), 0u);
  EXPECT_EQ(console.take(), kNoDelete);
  mu_timer_restart(1, 10);
  EXPECT_EQ(mu_timer_count(), 0u);
  mu_timer_show();
  EXPECT_NE(console.take().find("Expired timer Number: 0\r\n"), std::string::npos);
  // A null callback fails silently, after another attempt.
  EXPECT_EQ(add(nullptr), 0u);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(threads.asked, 2);
}

TEST_P(TimerService, IsStartedFromTheBeginningByEveryAddAfterAFailure) {
  VirtualClock clock;
  const HeapWatch heap;
  Console console;
  {
    const ThreadGate threads(true);
    add(count_run);
    const mu_mutex_t mutex = timer_info.mutex;
    const mu_list_t *list = timer_info.list;
    EXPECT_EQ(heap.live(), 2u);
    keep_abandoned();
    timer_info.last_id = 9;  // to be zeroed again
    add(count_run);
    EXPECT_EQ(threads.asked, 2);
    EXPECT_NE(timer_info.mutex, mutex);
    EXPECT_NE(timer_info.list, list);
    EXPECT_EQ(timer_info.last_id, 0u);
    EXPECT_EQ(heap.live(), 4u) << "the mutex and the list made before are abandoned";
    keep_abandoned();
  }
  EXPECT_EQ(console.take(), std::string(kNotStarted) + kNotStarted);
  EXPECT_EQ(add(count_run), 1u);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(timer_initialized, 1u);
  clock.scan();
  EXPECT_EQ(g_runs, 1);
}

TEST_P(TimerService, GoesOnWithoutAMutexWhenNoneCouldBeMade) {
  VirtualClock clock;
  {
    const FailingMalloc failing(1);
    EXPECT_EQ(add(count_run), 1u);
    EXPECT_GT(failing.seen(), 1);
  }
  clock.settle();
  EXPECT_EQ(timer_info.mutex, nullptr);
  EXPECT_EQ(timer_initialized, 1u);
  EXPECT_EQ(timer_info.max_num, 256u);
  EXPECT_EQ(mu_timer_count(), 1u);
  clock.scan();
  EXPECT_EQ(g_runs, 1);
  EXPECT_EQ(timer_info.expired, 1u);
}

// ---- The compare callback -------------------------------------------------------------------------------------------

TEST(TimerCompare, ComparesIdsAsUnsignedNumbers) {
  const struct {
    uint32_t own;
    uint32_t searched;
    int32_t result;
  } rows[] = {{1, 1, 0},
              {2, 1, 1},
              {1, 2, -1},
              {0, 0, 0},
              {0x80000000, 0x7fffffff, 1},
              {0x7fffffff, 0x80000000, -1},
              {UINT32_MAX, 0, 1},
              {0, UINT32_MAX, -1},
              {UINT32_MAX, 1, 1},
              {1, UINT32_MAX, -1},
              {UINT32_MAX, UINT32_MAX, 0}};
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << row.own << " against " << row.searched);
    mu_timer_rec_t record;
    memset(&record, 0xee, sizeof record);  // only the id matters
    record.id = row.own;
    EXPECT_EQ(mu_timer_compare(&record, &row.searched), row.result);
  }
}
