// From nothing to a running service: the state before the first add, the start, and starts that fail.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "support/virtual_clock.h"
#include "tarn/platform.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

constexpr char kNotStarted[] = "Timer number exceed(0)\n";

int g_runs;

void count_run(void *) { g_runs++; }

bool is_zero(const mu_timer_info_t &info) {
  static constexpr mu_timer_info_t zero{};
  return memcmp(&info, &zero, sizeof zero) == 0;
}

// A start that failed leaves its mutex and its list behind, by contract. Known here, they are no leak to a sanitizer.
void keep_what_a_failed_start_left() {
  static auto &kept = *new std::vector<const void *>;  // alive when leaks are looked for
  kept.push_back(timer_info.mutex);
  kept.push_back(timer_info.list);
}

// Counts the threads that the library asks for, and refuses them or not.
class ThreadGate {
 public:
  int asked = 0;
  bool refuse = false;

 private:
  using Entry = void *(*)(void *);
  Replace<int(pthread_t *, const pthread_attr_t *, Entry, void *)> gate_{
      libc::pthread_create, [this](pthread_t *thread, const pthread_attr_t *attributes, Entry entry, void *arg) {
        asked++;
        if (refuse) return EAGAIN;
        return libc::pthread_create.real(thread, attributes, entry, arg);
      }};
};

// The two functions that start the service.
struct Kind {
  const char *name;
  uint32_t (*add)(int, mu_timer_cb_t, void *);
};

void PrintTo(const Kind &kind, std::ostream *out) { *out << kind.name; }

class TimerStartContract : public testing::TestWithParam<Kind> {
 protected:
  static uint32_t add(mu_timer_cb_t callback) { return GetParam().add(1000, callback, nullptr); }
};

}  // namespace

// ---- Before the first add -------------------------------------------------------------------------------------------

TEST(TimerBeforeStartContract, HasNoState) {
  EXPECT_TRUE(is_zero(timer_info));
  EXPECT_EQ(timer_initialized, 0u);
  EXPECT_EQ(tmr_tid, 0);
}

TEST(TimerBeforeStartContract, StartsForNoFunctionButTheAdds) {
  const ThreadGate threads;
  const HeapWatch heap;
  Console console;
  mu_timer_del(1);
  mu_timer_stop(1);
  mu_timer_start(1);
  mu_timer_restart(1, 100);
  mu_timer_count();
  mu_timer_show();
  EXPECT_TRUE(is_zero(timer_info));
  EXPECT_EQ(timer_initialized, 0u);
  EXPECT_EQ(threads.asked, 0);
  EXPECT_EQ(heap.live(), 0u);
  console.take();
}

TEST(TimerBeforeStartContract, FindsNoTimer) {
  Console console;
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(mu_timer_del(1), 0u);
  EXPECT_EQ(console.take(), "Oops: Delete an invalid timer!!\r\n");
  EXPECT_EQ(mu_timer_stop(1), 0u);
  EXPECT_EQ(console.take(), "Oops: Stop an invalid timer!!\r\n");
  mu_timer_start(1);
  mu_timer_restart(1, 100);
  EXPECT_EQ(console.take(), "");
}

TEST(TimerBeforeStartContract, ShowsAnEmptyTable) {
  Console console;
  mu_timer_show();
  EXPECT_EQ(console.take(),
            "\r\nNo. Id.       Remain Interval Type    Drain Callback\r\n"
            "Max timer drain:(ptr=0x00000000, drain=0)\r\n"
            "Expired timer Number: 0\r\n"
            "\r\n");
}

// ---- The start ------------------------------------------------------------------------------------------------------

INSTANTIATE_TEST_SUITE_P(BothAdds, TimerStartContract,
                         testing::Values(Kind{"OneShot", mu_timer_add}, Kind{"Circular", mu_circle_timer_add}),
                         [](const auto &kind) { return std::string(kind.param.name); });

TEST_P(TimerStartContract, FillsInTheState) {
  VirtualClock clock;
  EXPECT_EQ(add(count_run), 1u);
  EXPECT_EQ(timer_initialized, 1u);
  EXPECT_EQ(timer_info.max_num, 256u);
  EXPECT_NE(timer_info.mutex, nullptr);
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

TEST_P(TimerStartContract, HappensOnce) {
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

TEST_P(TimerStartContract, HappensForANullCallbackToo) {
  VirtualClock clock;
  Console console;
  EXPECT_EQ(add(nullptr), 0u);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(timer_initialized, 1u);
  EXPECT_EQ(timer_info.max_num, 256u);
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(timer_info.last_id, 0u);
}

TEST_P(TimerStartContract, ZeroesWhateverTheStateHeld) {
  VirtualClock clock;
  timer_info.last_id = 77;
  timer_info.last_drain = 5;
  timer_info.max_drain = 9;
  timer_info.max_drain_cb = count_run;
  timer_info.last_tick = 12345;
  timer_info.expired = 3;
  EXPECT_EQ(add(count_run), 1u);
  EXPECT_EQ(timer_info.last_drain, 0u);
  EXPECT_EQ(timer_info.max_drain, 0u);
  EXPECT_EQ(timer_info.max_drain_cb, nullptr);
  EXPECT_EQ(timer_info.last_tick, 0u);
  EXPECT_EQ(timer_info.expired, 0u);
}

TEST(TimerThreadContract, IsKnownByItsHandleAndItsKernelId) {
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

TEST(TimerThreadContract, StoresItsKernelIdBeforeItFirstSleeps) {
  VirtualClock clock;
  mu_timer_add(10, nullptr, nullptr);
  clock.settle();
  EXPECT_NE(tmr_tid, 0);
}

TEST(TimerThreadContract, IsAskedForOnceWithAStackOf32768BytesAndANullArgument) {
  VirtualClock clock;
  size_t stack = 0;
  const Replace sizes(libc::pthread_attr_setstacksize, [&](pthread_attr_t *attributes, size_t size) {
    stack = size;
    return libc::pthread_attr_setstacksize.real(attributes, size);
  });
  int asked = 0;
  const void *argument = &asked;
  {
    const Replace refusing(libc::pthread_create,
                           [&](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *arg) {
                             asked++;
                             argument = arg;
                             return EAGAIN;
                           });
    Console console;
    mu_timer_add(10, count_run, nullptr);
  }
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(stack, 32768u);
  EXPECT_EQ(argument, nullptr);
}

TEST(TimerThreadContract, SleepsTenMillisecondsBeforeItsFirstScan) {
  VirtualClock clock;
  mu_timer_add(10, count_run, nullptr);
  clock.settle();
  EXPECT_EQ(g_runs, 0);
  EXPECT_EQ(timer_info.last_tick, 0u);
  clock.run_ms(9);
  EXPECT_EQ(g_runs, 0);
  clock.run_ms(1);
  EXPECT_EQ(g_runs, 1);
}

// ---- Starts that fail -----------------------------------------------------------------------------------------------

TEST_P(TimerStartContract, FailsWithTheLimitMessageWhenTheThreadIsRefused) {
  ThreadGate threads;
  threads.refuse = true;
  Console console;
  EXPECT_EQ(add(count_run), 0u);
  EXPECT_EQ(console.take(), kNotStarted);
  EXPECT_EQ(threads.asked, 1);
  EXPECT_EQ(timer_initialized, 0u);
  EXPECT_EQ(timer_info.max_num, 0u);
  EXPECT_EQ(timer_info.last_id, 0u);
  EXPECT_EQ(mu_timer_count(), 0u);
}

// In the order of the start: the mutex, the list, the cell that takes the new thread's handle.
TEST_P(TimerStartContract, FailsWithTheLimitMessageWhenMemoryRunsOut) {
  const struct {
    int failing_allocation;
    int threads_asked;
    bool mutex_made;
    bool list_made;
  } rows[] = {{2, 0, true, false}, {3, 0, true, true}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.failing_allocation);
    const ThreadGate threads;
    const FailingMalloc failing(row.failing_allocation);
    Console console;
    EXPECT_EQ(add(count_run), 0u);
    EXPECT_EQ(console.take(), kNotStarted);
    EXPECT_EQ(failing.seen(), row.failing_allocation);
    EXPECT_EQ(threads.asked, row.threads_asked);
    EXPECT_EQ(timer_info.mutex != nullptr, row.mutex_made);
    EXPECT_EQ(timer_info.list != nullptr, row.list_made);
    EXPECT_EQ(timer_initialized, 0u);
    EXPECT_EQ(timer_info.max_num, 0u);
    keep_what_a_failed_start_left();
  }
}

TEST_P(TimerStartContract, PrintsNothingForANullCallbackWhenItFails) {
  ThreadGate threads;
  threads.refuse = true;
  Console console;
  EXPECT_EQ(add(nullptr), 0u);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(threads.asked, 1);
}

TEST_P(TimerStartContract, IsRepeatedFromItsBeginningByEveryAddAfterAFailure) {
  VirtualClock clock;
  const HeapWatch heap;
  Console console;
  {
    ThreadGate threads;
    threads.refuse = true;
    add(count_run);
    const mu_mutex_t mutex = timer_info.mutex;
    const mu_list_t *list = timer_info.list;
    EXPECT_EQ(heap.live(), 2u);
    keep_what_a_failed_start_left();
    timer_info.last_id = 9;  // to be zeroed again
    add(count_run);
    EXPECT_EQ(threads.asked, 2);
    EXPECT_NE(timer_info.mutex, mutex);
    EXPECT_NE(timer_info.list, list);
    EXPECT_EQ(timer_info.last_id, 0u);
    EXPECT_EQ(heap.live(), 4u) << "the mutex and the list made before are left behind";
    keep_what_a_failed_start_left();
  }
  EXPECT_EQ(console.take(), std::string(kNotStarted) + kNotStarted);
  EXPECT_EQ(add(count_run), 1u);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(timer_initialized, 1u);
  clock.scan();
  EXPECT_EQ(g_runs, 1);
}

TEST_P(TimerStartContract, GoesOnWithoutAMutexWhenNoneCouldBeMade) {
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
  clock.scan();
  EXPECT_EQ(g_runs, 1);
}

TEST(TimerFailedStartContract, LeavesTheOtherFunctionsUsable) {
  ThreadGate threads;
  threads.refuse = true;
  Console console;
  mu_timer_add(10, count_run, nullptr);
  console.take();
  EXPECT_EQ(mu_timer_del(1), 0u);
  EXPECT_EQ(console.take(), "Oops: Delete an invalid timer!!\r\n");
  mu_timer_restart(1, 10);
  EXPECT_EQ(mu_timer_count(), 0u);
  mu_timer_show();
  EXPECT_NE(console.take().find("Expired timer Number: 0\r\n"), std::string::npos);
}
