// Counting semaphores: their counts, and the three ways to wait.

#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "tarn/os.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_SEM_DESTROY), long (*)(mu_sem_t)>);
static_assert(std::is_same_v<decltype(&OS_SEM_WAIT), void (*)(mu_sem_t, int)>);

namespace {

// The system's semaphore behind a handle, learned from a timed wait on it that takes nothing.
sem_t *system_semaphore(mu_sem_t sem) {
  sem_t *seen = nullptr;
  Replace timed_wait(libc::sem_timedwait, [&](sem_t *waited_for, const timespec *) {
    seen = waited_for;
    return 0;
  });
  OS_SEM_WAIT(sem, 1);
  return seen;
}

int count_of(mu_sem_t sem) {
  int count = -1;
  EXPECT_EQ(sem_getvalue(system_semaphore(sem), &count), 0);
  return count;
}

// Whether the thread `tid` comes to sleep in the kernel before `done`.
bool sleeps(const std::atomic<pid_t> &tid, const std::atomic<bool> &done) {
  while (!done) {
    std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string line;
    std::getline(stat, line);
    const size_t name_end = line.rfind(')');
    if (name_end != std::string::npos && line.compare(name_end, 3, ") S") == 0) return true;
    std::this_thread::yield();
  }
  return false;
}

void post_null() {
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  OS_SEM_POST(nullptr);
}

// One timed wait as the system sees it: the answers that it gives in turn, and the deadlines that it is asked for.
class ScriptedTimedWait {
 public:
  // Each answer is 0 for a taken semaphore, or an errno.
  ScriptedTimedWait(timeval now, std::vector<int> answers)
      : answers_(std::move(answers)),
        gettimeofday_(libc::gettimeofday,
                      [this, now](timeval *out, void *) {
                        *out = now;
                        clock_reads_++;
                        return 0;
                      }),
        sem_timedwait_(libc::sem_timedwait, [this](sem_t *, const timespec *deadline) {
          const size_t call = deadlines_.size();
          deadlines_.push_back(*deadline);
          if (call < answers_.size() && answers_[call] == 0) return 0;
          errno = call < answers_.size() ? answers_[call] : ETIMEDOUT;
          return -1;
        }) {}

  const std::vector<timespec> &deadlines() const { return deadlines_; }
  int clock_reads() const { return clock_reads_; }

 private:
  const std::vector<int> answers_;
  std::vector<timespec> deadlines_;
  int clock_reads_ = 0;
  Replace<int(timeval *, void *)> gettimeofday_;
  Replace<int(sem_t *, const timespec *)> sem_timedwait_;
};

}  // namespace

TEST(SemCreateContract, StartsAtTheGivenCount) {
  for (const uint32_t count : {0u, 1u, 2u, 65536u, 2147483647u}) {
    SCOPED_TRACE(count);
    const mu_sem_t sem = OS_SEM_CREATE(count);
    ASSERT_NE(sem, nullptr);
    EXPECT_EQ(count_of(sem), static_cast<int>(count));
    EXPECT_EQ(OS_SEM_DESTROY(sem), 0);
  }
}

TEST(SemCreateContract, DoesNotCheckWhetherTheSystemTookTheCount) {
  Console console;
  for (const uint32_t count : {2147483648u, 0xFFFFFFFFu}) {  // above SEM_VALUE_MAX
    SCOPED_TRACE(count);
    const mu_sem_t sem = OS_SEM_CREATE(count);
    EXPECT_NE(sem, nullptr);
    EXPECT_EQ(OS_SEM_DESTROY(sem), 0);
  }
  EXPECT_EQ(console.take(), "");
}

TEST(SemCreateContract, WithoutMemoryGivesNullAndPrintsNothing) {
  Console console;
  FailingMalloc no_memory(1);
  EXPECT_EQ(OS_SEM_CREATE(1), nullptr);
  EXPECT_EQ(no_memory.seen(), 1);
  EXPECT_EQ(console.take(), "");
}

TEST(SemDestroyContract, FreesTheBlock) {
  HeapWatch heap;
  const mu_sem_t sem = OS_SEM_CREATE(3);
  EXPECT_EQ(heap.live(), 1u);
  EXPECT_EQ(OS_SEM_DESTROY(sem), 0);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(SemDestroyContract, RefusesNull) {
  Console console;
  EXPECT_EQ(OS_SEM_DESTROY(nullptr), -1);
  EXPECT_EQ(console.take(), "");
}

TEST(SemPostContract, AddsOne) {
  const mu_sem_t sem = OS_SEM_CREATE(0);
  OS_SEM_POST(sem);
  EXPECT_EQ(count_of(sem), 1);
  OS_SEM_POST(sem);
  EXPECT_EQ(count_of(sem), 2);
  OS_SEM_DESTROY(sem);
}

TEST(SemPostContract, HandsNullOnUnchecked) { EXPECT_DEATH(post_null(), ""); }

TEST(SemWaitContract, NullReturnsAtOnceInEveryMode) {
  Console console;
  ScriptedTimedWait system({1000, 0}, {});
  for (const int timeout : {0, -1, -2, 1, 1500, INT_MAX, INT_MIN}) OS_SEM_WAIT(nullptr, timeout);
  EXPECT_TRUE(system.deadlines().empty());
  EXPECT_EQ(console.take(), "");
}

TEST(SemWaitContract, TimeoutZeroTakesOneIfThereIsOne) {
  const mu_sem_t sem = OS_SEM_CREATE(2);
  for (const int left : {1, 0, 0}) {
    OS_SEM_WAIT(sem, 0);
    EXPECT_EQ(count_of(sem), left);
  }
  OS_SEM_DESTROY(sem);
}

TEST(SemWaitContract, TimeoutZeroReadsNoClockAndSetsNoDeadline) {
  ScriptedTimedWait system({1000, 0}, {});
  const mu_sem_t sem = OS_SEM_CREATE(1);
  OS_SEM_WAIT(sem, 0);
  OS_SEM_WAIT(sem, 0);
  EXPECT_TRUE(system.deadlines().empty());
  EXPECT_EQ(system.clock_reads(), 0);
  OS_SEM_DESTROY(sem);
}

TEST(SemWaitContract, TimeoutMinusOneTakesWhatIsThere) {
  ScriptedTimedWait system({1000, 0}, {});
  const mu_sem_t sem = OS_SEM_CREATE(2);
  OS_SEM_WAIT(sem, -1);
  EXPECT_TRUE(system.deadlines().empty());
  EXPECT_EQ(count_of(sem), 1);
  OS_SEM_DESTROY(sem);
}

TEST(SemWaitContract, TimeoutMinusOneWaitsForAPost) {
  const mu_sem_t sem = OS_SEM_CREATE(0);
  std::atomic<pid_t> tid{0};
  std::atomic<bool> done{false};
  std::thread waiter([&] {
    tid = gettid();
    OS_SEM_WAIT(sem, -1);
    done = true;
  });
  EXPECT_TRUE(sleeps(tid, done));
  EXPECT_FALSE(done);
  OS_SEM_POST(sem);
  waiter.join();
  EXPECT_EQ(count_of(sem), 0);
  OS_SEM_DESTROY(sem);
}

TEST(SemWaitContract, ASignalEndsAWaitWithoutLimit) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};  // and without SA_RESTART
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  const mu_sem_t sem = OS_SEM_CREATE(0);
  std::atomic<pid_t> tid{0};
  std::atomic<bool> done{false};
  std::thread waiter([&] {
    tid = gettid();
    OS_SEM_WAIT(sem, -1);
    done = true;
  });
  // The thread may be seen asleep elsewhere, so one signal need not meet the wait; a wait that is resumed meets many.
  int signals = 0;
  while (signals < 1000 && sleeps(tid, done)) {
    pthread_kill(waiter.native_handle(), SIGUSR1);
    signals++;
  }
  EXPECT_TRUE(done);
  if (!done) OS_SEM_POST(sem);
  waiter.join();
  OS_SEM_DESTROY(sem);
}

TEST(SemWaitContract, ComputesTheDeadlineFromTheWallClock) {
  const struct {
    const char *reason;
    timeval now;
    int timeout_ms;
    timespec deadline;
  } kRows[] = {
      {"carry of the worked example", {1000, 600000}, 1500, {1002, 100000000}},
      {"no carry", {1000, 0}, 1, {1000, 1000000}},
      {"microseconds kept", {1000, 123456}, 10, {1000, 133456000}},
      {"whole seconds alone", {1000, 999999}, 3000, {1003, 999999000}},
      {"999999 us does not carry", {1000, 999}, 999, {1000, 999999000}},
      {"1000000 us carries to 0", {1000, 1000}, 999, {1001, 0}},
      {"largest carry", {1000, 999999}, 999, {1001, 998999000}},
      {"seconds above 31 bits", {2147483647, 999999}, 1, {2147483648, 999000}},
      {"largest timeout", {1000, 0}, 2147483647, {1000 + 2147483, 647000000}},
      // Negative: division and remainder round towards zero.
      {"-2 ms", {1000, 600000}, -2, {1000, 598000000}},
      {"-2 ms, below the second", {1000, 1000}, -2, {1000, -1000000}},
      {"-1000 ms", {1000, 600000}, -1000, {999, 600000000}},
      {"-1500 ms", {1000, 600000}, -1500, {999, 100000000}},
      {"-1500 ms, below the second", {1000, 0}, -1500, {999, -500000000}},
      {"least timeout", {3000000, 0}, INT_MIN, {3000000 - 2147483, -648000000}},
  };
  const mu_sem_t sem = OS_SEM_CREATE(0);
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.reason);
    ScriptedTimedWait system(row.now, {ETIMEDOUT});
    OS_SEM_WAIT(sem, row.timeout_ms);
    EXPECT_EQ(system.clock_reads(), 1);
    ASSERT_EQ(system.deadlines().size(), 1u);
    EXPECT_EQ(system.deadlines()[0].tv_sec, row.deadline.tv_sec);
    EXPECT_EQ(system.deadlines()[0].tv_nsec, row.deadline.tv_nsec);
  }
  OS_SEM_DESTROY(sem);
}

TEST(SemWaitContract, AnInterruptedTimedWaitGoesOnToTheSameDeadline) {
  ScriptedTimedWait system({1000, 600000}, {EINTR, EINTR, EINTR, 0});
  const mu_sem_t sem = OS_SEM_CREATE(0);
  OS_SEM_WAIT(sem, 1500);
  EXPECT_EQ(system.clock_reads(), 1);
  ASSERT_EQ(system.deadlines().size(), 4u);
  for (const timespec &deadline : system.deadlines()) {
    EXPECT_EQ(deadline.tv_sec, 1002);
    EXPECT_EQ(deadline.tv_nsec, 100000000);
  }
  OS_SEM_DESTROY(sem);
}

TEST(SemWaitContract, AnyOtherOutcomeEndsATimedWait) {
  const mu_sem_t sem = OS_SEM_CREATE(0);
  for (const int outcome : {0, ETIMEDOUT, EINVAL, EAGAIN, EPERM}) {
    SCOPED_TRACE(outcome);
    ScriptedTimedWait system({1000, 0}, {outcome, 0});
    OS_SEM_WAIT(sem, 10);
    EXPECT_EQ(system.deadlines().size(), 1u);
    ScriptedTimedWait after_a_signal({1000, 0}, {EINTR, outcome, 0});
    OS_SEM_WAIT(sem, 10);
    EXPECT_EQ(after_a_signal.deadlines().size(), 2u);
  }
  OS_SEM_DESTROY(sem);
}

TEST(SemWaitContract, ATimedWaitTakesOneThatIsThere) {
  const mu_sem_t sem = OS_SEM_CREATE(2);
  OS_SEM_WAIT(sem, INT_MAX);
  EXPECT_EQ(count_of(sem), 1);
  OS_SEM_WAIT(sem, 1);
  EXPECT_EQ(count_of(sem), 0);
  OS_SEM_DESTROY(sem);
}

// The wall clock that the library reads stands far behind the system's own, so each deadline has passed.
TEST(SemWaitContract, ADeadlineThatHasPassedDoesNotWait) {
  Replace old_clock(libc::gettimeofday, [](timeval *now, void *) {
    *now = {100000000, 0};
    return 0;
  });
  const mu_sem_t sem = OS_SEM_CREATE(0);
  for (const int timeout : {1, 1500, INT_MAX / 100, -2, -1500, INT_MIN}) {
    SCOPED_TRACE(timeout);
    OS_SEM_WAIT(sem, timeout);
    EXPECT_EQ(count_of(sem), 0);
  }
  OS_SEM_DESTROY(sem);
}
