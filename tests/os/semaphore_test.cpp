// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Counting semaphores: their counts, and the three ways to wait.

#include <semaphore.h>
#include <sys/resource.h>

#include <climits>
#include <type_traits>
#include <vector>

#include "os/fixture.h"
#include "support/heap.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_SEM_DESTROY), long (*)(mu_sem_t)>);
static_assert(std::is_same_v<decltype(&OS_SEM_WAIT), void (*)(mu_sem_t, int)>);

namespace {

// The system's semaphore of a handle, obtained from a timed wait that does not take it.
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

void post_null() {
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  OS_SEM_POST(nullptr);
}

// One timed wait as the system sees it: its successive answers, and the deadlines of the calls.
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

// A semaphore for a test.
class OsSemaphore : public testing::Test {
 protected:
  ~OsSemaphore() override {
    if (sem_ != nullptr) OS_SEM_DESTROY(sem_);
  }
  mu_sem_t create(uint32_t count) { return sem_ = OS_SEM_CREATE(count); }

  mu_sem_t sem_ = nullptr;
};

}  // namespace

TEST_F(OsSemaphore, HoldsItsInitialCount) {
  for (const uint32_t count : {0u, 1u, 2u, 3u, 65536u, 2147483647u}) {
    SCOPED_TRACE(count);
    const mu_sem_t sem = OS_SEM_CREATE(count);
    ASSERT_NE(sem, nullptr);
    EXPECT_EQ(count_of(sem), static_cast<int>(count));
    EXPECT_EQ(OS_SEM_DESTROY(sem), 0);
  }
}

TEST_F(OsSemaphore, CreateDoesNotCheckWhetherTheSystemTookTheCount) {
  const Quiet quiet;
  for (const uint32_t count : {2147483648u, 0xFFFFFFFFu}) {  // above SEM_VALUE_MAX
    SCOPED_TRACE(count);
    const mu_sem_t sem = OS_SEM_CREATE(count);
    EXPECT_NE(sem, nullptr);
    EXPECT_EQ(OS_SEM_DESTROY(sem), 0);
  }
}

// libc stores in the semaphore whether processes share it.
TEST_F(OsSemaphore, IsPrivateToTheProcess) {
  Replace dirty(libc::malloc, dirty_block);
  sem_t own[2];
  memset(own, 0xA5, sizeof own);
  sem_init(&own[0], /*shared between processes=*/0, 5);
  sem_init(&own[1], /*shared between processes=*/1, 5);
  ASSERT_NE(memcmp(&own[0], &own[1], sizeof(sem_t)), 0);
  EXPECT_EQ(memcmp(system_semaphore(create(5)), &own[0], sizeof(sem_t)), 0);
}

TEST_F(OsSemaphore, IsNullWhenMemoryRunsOut) {
  const Quiet quiet;
  FailingMalloc no_memory(1);
  EXPECT_EQ(OS_SEM_CREATE(1), nullptr);
  EXPECT_EQ(no_memory.seen(), 1);
}

TEST_F(OsSemaphore, TakesOneBlockAndGivesItBack) {
  HeapWatch heap;
  const mu_sem_t sem = OS_SEM_CREATE(3);
  EXPECT_EQ(heap.live(), 1u);
  EXPECT_EQ(OS_SEM_DESTROY(sem), 0);
  EXPECT_EQ(heap.live(), 0u);
}

TEST_F(OsSemaphore, DestroyRefusesNull) {
  const Quiet quiet;
  EXPECT_EQ(OS_SEM_DESTROY(nullptr), -1);
}

TEST_F(OsSemaphore, PostAddsOne) {
  create(0);
  OS_SEM_POST(sem_);
  EXPECT_EQ(count_of(sem_), 1);
  OS_SEM_POST(sem_);
  EXPECT_EQ(count_of(sem_), 2);
}

TEST_F(OsSemaphore, PostHandsNullOnUnchecked) { EXPECT_DEATH(post_null(), ""); }

TEST_F(OsSemaphore, AWaitOnNullReturnsAtOnceInEveryMode) {
  const Quiet quiet;
  ScriptedTimedWait system({1000, 0}, {});
  for (const int timeout : {0, -1, -2, 1, 10, 1500, INT_MAX, INT_MIN}) OS_SEM_WAIT(nullptr, timeout);
  EXPECT_TRUE(system.deadlines().empty());
}

TEST_F(OsSemaphore, AWaitOfZeroTriesOnce) {
  create(2);
  for (const int left : {1, 0, 0}) {
    ScriptedTimedWait system({1000, 0}, {});
    OS_SEM_WAIT(sem_, 0);
    EXPECT_TRUE(system.deadlines().empty());
    EXPECT_EQ(system.clock_reads(), 0);
    EXPECT_EQ(count_of(sem_), left);
  }
}

TEST_F(OsSemaphore, AWaitWithoutLimitTakesWhatIsThere) {
  ScriptedTimedWait system({1000, 0}, {});
  create(2);
  OS_SEM_WAIT(sem_, -1);
  EXPECT_TRUE(system.deadlines().empty());
  EXPECT_EQ(count_of(sem_), 1);
}

TEST_F(OsSemaphore, AWaitWithoutLimitWaitsForAPost) {
  create(0);
  Waiter waiter([this] { OS_SEM_WAIT(sem_, -1); });
  EXPECT_TRUE(waiter.sleeps());
  OS_SEM_POST(sem_);
  waiter.join();
  EXPECT_EQ(count_of(sem_), 0);
}

TEST_F(OsSemaphore, ASignalEndsAWaitWithoutLimit) {
  create(0);
  Waiter waiter([this] { OS_SEM_WAIT(sem_, -1); });
  const bool ended = waiter.ends_by_a_signal();
  EXPECT_TRUE(ended);
  if (!ended) OS_SEM_POST(sem_);
}

TEST_F(OsSemaphore, ATimedWaitEndsAtADeadlineOfTheWallClock) {
  const struct {
    const char *reason;
    timeval now;
    int timeout_ms;
    timespec deadline;
  } kRows[] = {
      {"carry of the worked example", {1000, 600000}, 1500, {1002, 100000000}},
      {"no carry", {1000, 0}, 1, {1000, 1000000}},
      {"microseconds kept", {1000, 123456}, 10, {1000, 133456000}},
      {"only whole seconds", {1000, 999999}, 3000, {1003, 999999000}},
      {"999999 us does not carry", {1000, 999}, 999, {1000, 999999000}},
      {"nor above a second", {1000, 499999}, 1500, {1001, 999999000}},
      {"1000000 us carries to 0", {1000, 1000}, 999, {1001, 0}},
      {"and above a second", {1000, 500000}, 1500, {1002, 0}},
      {"largest carry", {1000, 999999}, 999, {1001, 998999000}},
      {"seconds above 31 bits", {2147483647, 999999}, 1, {2147483648, 999000}},
      {"largest timeout", {1000, 0}, 2147483647, {1000 + 2147483, 647000000}},
      // Negative: division and remainder round towards zero.
      {"-2 ms", {1000, 600000}, -2, {1000, 598000000}},
      {"-2 ms, below the second", {1000, 500}, -2, {1000, -1500000}},
      {"-1000 ms", {1000, 600000}, -1000, {999, 600000000}},
      {"-1001 ms", {1000, 5000}, -1001, {999, 4000000}},
      {"-1500 ms", {1000, 600000}, -1500, {999, 100000000}},
      {"-1500 ms, below the second", {1000, 0}, -1500, {999, -500000000}},
      {"least timeout", {3000000, 0}, INT_MIN, {3000000 - 2147483, -648000000}},
  };
  create(0);
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.reason);
    ScriptedTimedWait system(row.now, {ETIMEDOUT});
    OS_SEM_WAIT(sem_, row.timeout_ms);
    EXPECT_EQ(system.clock_reads(), 1);
    ASSERT_EQ(system.deadlines().size(), 1u);
    EXPECT_EQ(system.deadlines()[0].tv_sec, row.deadline.tv_sec);
    EXPECT_EQ(system.deadlines()[0].tv_nsec, row.deadline.tv_nsec);
  }
}

TEST_F(OsSemaphore, ATimedWaitGoesOnAfterASignalWithTheSameDeadline) {
  create(0);
  ScriptedTimedWait system({1000, 600000}, {EINTR, EINTR, EINTR, 0});
  OS_SEM_WAIT(sem_, 1500);
  EXPECT_EQ(system.clock_reads(), 1);
  ASSERT_EQ(system.deadlines().size(), 4u);
  for (const timespec &deadline : system.deadlines()) {
    EXPECT_EQ(deadline.tv_sec, 1002);
    EXPECT_EQ(deadline.tv_nsec, 100000000);
  }
}

TEST_F(OsSemaphore, AnyOtherOutcomeEndsATimedWait) {
  create(0);
  for (const int outcome : {0, ETIMEDOUT, EINVAL, EAGAIN, EPERM}) {
    SCOPED_TRACE(outcome);
    ScriptedTimedWait system({1000, 0}, {outcome, 0});
    OS_SEM_WAIT(sem_, 10);
    EXPECT_EQ(system.deadlines().size(), 1u);
    ScriptedTimedWait after_a_signal({1000, 0}, {EINTR, outcome, 0});
    OS_SEM_WAIT(sem_, 10);
    EXPECT_EQ(after_a_signal.deadlines().size(), 2u);
  }
}

TEST_F(OsSemaphore, ATimedWaitTakesOneThatIsThere) {
  create(2);
  OS_SEM_WAIT(sem_, INT_MAX);
  EXPECT_EQ(count_of(sem_), 1);
  OS_SEM_WAIT(sem_, 1);
  EXPECT_EQ(count_of(sem_), 0);
}

// The wall clock that the library reads is far earlier than the system's, so each deadline has passed.
TEST_F(OsSemaphore, ADeadlineThatHasPassedDoesNotWait) {
  Replace old_clock(libc::gettimeofday, [](timeval *now, void *) {
    *now = {100000000, 0};
    return 0;
  });
  create(0);
  for (const int timeout : {1, 1500, INT_MAX / 100, -2, -1500, INT_MIN}) {
    SCOPED_TRACE(timeout);
    OS_SEM_WAIT(sem_, timeout);
    EXPECT_EQ(count_of(sem_), 0);
  }
}
