// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Calls from other threads and from callbacks: while a callback runs, and while another thread holds the timer mutex.

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

#include "support/console.h"
#include "timer/fixture.h"

using namespace tarn_test;

namespace {

using TimerRunning = StartedTimers;
using Request = uint32_t (*)(uint32_t id);

// Returns false when the condition does not become true within a minute.
template <typename Condition>
bool wait_until(const Condition &condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::yield();
  }
  return true;
}

constexpr Request kRequests[] = {mu_timer_del, mu_timer_stop};

}  // namespace

TEST_F(TimerRunning, IsReportedToOtherThreadsThatDeleteOrStop) {
  for (const Request request : kRequests) {
    for (const Add how : kAdds) {
      SCOPED_TRACE(testing::Message() << (request == mu_timer_del ? "delete, " : "stop, ") << name_of(how));
      Held held;
      int runs = 0;
      const uint32_t id = add(how, 10, [&] {
        if (runs++ == 0) held.enter();
      });
      clock_.wake_next();
      held.wait_until_entered();
      EXPECT_EQ(request(id), 1u);
      EXPECT_EQ(request(id), 1u) << "again";
      uint32_t from_a_third_thread = 9;
      std::thread([&] { from_a_third_thread = request(id); }).join();
      EXPECT_EQ(from_a_third_thread, 1u);
      held.release();
      clock_.settle();
      if (how == mu_circle_timer_add) {
        EXPECT_EQ(request(id), 0u) << "not running any more";
      }
      clock_.scan(5);
      EXPECT_EQ(runs, 1) << "it never fires again";
      const bool rests = request == mu_timer_stop && how == mu_circle_timer_add;
      EXPECT_EQ(mu_timer_count(), rests ? 1u : 0u);
      if (rests) mu_timer_del(id);
      clock_.scan();
    }
  }
}

TEST_F(TimerRunning, IsNotReportedToTheTimerThread) {
  for (const Request request : kRequests) {
    SCOPED_TRACE(request == mu_timer_del ? "delete" : "stop");
    uint32_t id = 0;
    uint32_t result = 9;
    id = once(10, [&] { result = request(id); });
    clock_.scan();
    EXPECT_EQ(result, 0u);
  }
}

TEST_F(TimerRunning, BelongsToOneTimerOnlyAndLetsOtherThreadsCallEveryFunction) {
  Held held;
  const uint32_t id = once(10, [&] { held.enter(); });
  const uint32_t other = mu_timer_add(kLong, ignore, nullptr);
  clock_.wake_next();
  held.wait_until_entered();
  for (const Request request : kRequests) EXPECT_EQ(request(other), 0u);
  mu_timer_start(other);
  EXPECT_EQ(mu_timer_count(), 2u) << "still in the list";
  mu_timer_add(kLong, ignore, nullptr);
  EXPECT_EQ(mu_timer_count(), 3u);
  {
    Console console;
    mu_timer_show();
    EXPECT_NE(console.take(), "");
  }
  mu_timer_restart(id, 70);  // brings the one-shot timer back, though its callback is not finished
  held.release();
  clock_.settle();
  ASSERT_NE(find(id), nullptr);
  EXPECT_EQ(remain(id), 7u);
  EXPECT_EQ(mu_timer_count(), 3u);
}

// A caller may hold a lock that a callback waits for: the service holds no lock during a callback.
TEST_F(TimerRunning, DoesNotCloseACircleOfLocks) {
  std::mutex own;
  Held held;
  const uint32_t id = circle(10, [&] {
    held.enter();
    const std::lock_guard lock(own);
    note('x')();
  });
  {
    const std::lock_guard lock(own);
    clock_.wake_next();
    held.wait_until_entered();
    held.release();
    EXPECT_EQ(mu_timer_del(id), 1u);
    EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 2u);
    EXPECT_EQ(mu_timer_count(), 2u);
  }
  clock_.scan();
  EXPECT_EQ(fired_, "x");
  EXPECT_EQ(mu_timer_count(), 1u);
}

// ---- The mutex ------------------------------------------------------------------------------------------------------

namespace {

bool sleeps(long thread) {
  char path[64];
  snprintf(path, sizeof path, "/proc/self/task/%ld/stat", thread);
  FILE *file = fopen(path, "re");
  if (file == nullptr) return false;
  char line[256];
  const bool read = fgets(line, sizeof line, file) != nullptr;
  fclose(file);
  const char *const name_end = read ? strrchr(line, ')') : nullptr;
  return name_end != nullptr && name_end[1] == ' ' && name_end[2] == 'S';
}

// Returns when the kernel reports that the thread waits, or when `ended` reports its end.
bool wait_until_it_sleeps(long thread, const std::atomic<bool> &ended) {
  return wait_until([&] { return ended || sleeps(thread); });
}

using TimerMutex = StartedTimers;

}  // namespace

// A call made while another thread holds the mutex does nothing and does not return until the mutex is released.
TEST_F(TimerMutex, IsWaitedForByEveryFunction) {
  static uint32_t id;
  static uint32_t result;
  const struct {
    const char *name;
    void (*call)();
    uint32_t result;
  } rows[] = {
      {"add", [] { result = mu_timer_add(70, ignore, nullptr); }, 2},
      {"circle add", [] { result = mu_circle_timer_add(70, ignore, nullptr); }, 3},
      {"count", [] { result = mu_timer_count(); }, 3},
      {"start", [] { mu_timer_start(id), result = 0; }, 0},
      {"restart", [] { mu_timer_restart(id, 70), result = 0; }, 0},
      {"stop", [] { result = mu_timer_stop(id); }, 0},
      {"del", [] { result = mu_timer_del(id); }, 0},
      {"show", [] { mu_timer_show(), result = 0; }, 0},
  };
  id = mu_timer_add(1000, ignore, nullptr);
  clock_.scan();
  Console console;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    std::atomic<long> thread_id{0};
    std::atomic<bool> ended{false};
    result = 99;
    mu_mutex_lock(timer_info.mutex);
    const mu_timer_rec_t before = *find(id);
    const uint32_t count = mu_list_count(timer_info.list);
    std::thread thread([&] {
      thread_id = syscall(SYS_gettid);
      row.call();
      ended = true;
    });
    ASSERT_TRUE(wait_until([&] { return thread_id != 0; }));
    EXPECT_TRUE(wait_until_it_sleeps(thread_id, ended));
    EXPECT_FALSE(ended);
    EXPECT_EQ(memcmp(find(id), &before, sizeof before), 0);
    EXPECT_EQ(mu_list_count(timer_info.list), count);
    mu_mutex_unlock(timer_info.mutex);
    thread.join();
    EXPECT_EQ(result, row.result);
    EXPECT_TRUE(mutex_is_free());
  }
  console.take();
  EXPECT_EQ(find(id)->interval, 7u);
  EXPECT_EQ(find(id)->stopped, 1u);
  EXPECT_EQ(find(id)->deleted, 1u);
}

namespace {

// The callback of one timer, which waits until the test releases it. Relaxed atomics: they must not order the callback
// before the test's reads.
class HeldCallback : public StartedTimers {
 protected:
  HeldCallback() {
    const uint32_t id = circle(10, [this] {
      entered_.store(true, std::memory_order_relaxed);
      while (!let_go_.load(std::memory_order_relaxed)) std::this_thread::yield();
      written_ = 7;
    });
    clock_.wake_next();
    EXPECT_TRUE(wait_until([this] { return entered_.load(std::memory_order_relaxed); }));
    mu_mutex_lock(timer_info.mutex);
    timer_ = find(id);
  }

  uint32_t running() const { return __atomic_load_n(&timer_->running, __ATOMIC_ACQUIRE); }

  // With the mutex held: nothing but the flag can report the end.
  void wait_for_the_end() {
    let_go_.store(true, std::memory_order_relaxed);
    EXPECT_TRUE(wait_until([this] { return running() == 0; }));
  }

  void give_the_mutex_back() {
    mu_mutex_unlock(timer_info.mutex);
    clock_.settle();
  }

  mu_timer_rec_t *timer_ = nullptr;
  std::atomic<bool> entered_{false};
  std::atomic<bool> let_go_{false};
  int written_ = 0;  // by the callback, plainly
};

using TimerRunningFlag = HeldCallback;
using TimerRunTime = HeldCallback;

}  // namespace

TEST_F(TimerRunningFlag, IsClearedBeforeTheMutexIsTakenAgain) {
  EXPECT_EQ(running(), 1u);
  wait_for_the_end();
  EXPECT_EQ(timer_->remain, 0u) << "all else waits for the mutex, the reload too";
  give_the_mutex_back();
  EXPECT_EQ(timer_->remain, 1u);
}

// A thread that sees it cleared may use the data that the callback wrote: a deleter that receives 0 has seen only this.
TEST_F(TimerRunningFlag, OrdersTheCallbackBeforeWhoeverSeesItCleared) {
  wait_for_the_end();
  EXPECT_EQ(written_, 7);
  give_the_mutex_back();
}

TEST_F(TimerRunTime, IncludesTheWaitForTheMutex) {
  wait_for_the_end();
  EXPECT_TRUE(wait_until_it_sleeps(static_cast<long>(tmr_tid), false));
  clock_.pass_ms(40);
  give_the_mutex_back();
  EXPECT_EQ(timer_->drain, 4u);
  EXPECT_EQ(timer_info.last_drain, 4u);
}
