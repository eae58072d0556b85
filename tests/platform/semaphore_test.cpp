// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The statuses of semaphores.

#include <semaphore.h>
#include <sys/resource.h>

#include <climits>

#include "platform/fixture.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&mu_sem_init), int (*)(mu_sem_t *, const char *, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_sem_wait), int (*)(mu_sem_t, int)>);
static_assert(std::is_same_v<decltype(&mu_sem_post), int (*)(mu_sem_t)>);
static_assert(std::is_same_v<decltype(&mu_sem_destroy), int (*)(mu_sem_t)>);

namespace {

// The count of the system's semaphore, which a timed wait reveals.
int count_of(mu_sem_t sem) {
  int count = -1;
  Replace timed_wait(libc::sem_timedwait,
                     [&](sem_t *waited_for, const timespec *) { return sem_getvalue(waited_for, &count); });
  mu_sem_wait(sem, 1);
  return count;
}

void post_null() {
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  mu_sem_post(nullptr);
}

}  // namespace

TEST(MuSem, RoundTripGivesZeros) {
  HeapWatch heap;
  mu_sem_t sem = nullptr;
  EXPECT_EQ(mu_sem_init(&sem, "Round", 2), 0);
  ASSERT_NE(sem, nullptr);
  EXPECT_EQ(count_of(sem), 2);
  EXPECT_EQ(mu_sem_post(sem), 0);
  EXPECT_EQ(count_of(sem), 3);
  EXPECT_EQ(mu_sem_wait(sem, 0), 0);
  EXPECT_EQ(mu_sem_wait(sem, -1), 0);
  EXPECT_EQ(mu_sem_wait(sem, 10), 0);
  EXPECT_EQ(count_of(sem), 0);
  EXPECT_EQ(mu_sem_destroy(sem), 0);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(MuSem, InitPassesTheCountDownAndUsesNoName) {
  for (const uint32_t count : {0u, 1u, 2147483647u}) {
    SCOPED_TRACE(count);
    mu_sem_t sem = nullptr;
    EXPECT_EQ(mu_sem_init(&sem, nullptr, count), 0);
    EXPECT_EQ(count_of(sem), static_cast<int>(count));
    mu_sem_destroy(sem);
  }
}

TEST(MuSem, InitStoresNullWhenMemoryRunsOut) {
  expect_null_without_memory<mu_sem_t>([](mu_sem_t *sem) { return mu_sem_init(sem, "none", 1); });
}

TEST(MuSem, WaitGivesZeroTakenOrNot) {
  mu_sem_t sem = nullptr;
  ASSERT_EQ(mu_sem_init(&sem, "one", 1), 0);
  EXPECT_EQ(mu_sem_wait(sem, 0), 0);  // taken
  EXPECT_EQ(mu_sem_wait(sem, 0), 0);  // not
  for (const int outcome : {0, ETIMEDOUT, EINVAL}) {
    SCOPED_TRACE(outcome);
    Replace timed_wait(libc::sem_timedwait, [&](sem_t *, const timespec *) {
      errno = outcome;
      return outcome == 0 ? 0 : -1;
    });
    EXPECT_EQ(mu_sem_wait(sem, 10), 0);
    EXPECT_EQ(mu_sem_wait(sem, -2), 0);
  }
  mu_sem_destroy(sem);
}

TEST(MuSem, WaitPassesTheTimeoutDown) {
  const struct {
    int timeout_ms;
    timespec deadline;
  } kRows[] = {{10, {5000, 10000000}}, {1500, {5001, 500000000}}, {-1500, {4999, -500000000}}};
  mu_sem_t sem = nullptr;
  ASSERT_EQ(mu_sem_init(&sem, "empty", 0), 0);
  Replace clock(libc::gettimeofday, [](timeval *now, void *) {
    *now = {5000, 0};
    return 0;
  });
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.timeout_ms);
    std::vector<timespec> deadlines;
    Replace timed_wait(libc::sem_timedwait, [&](sem_t *, const timespec *deadline) {
      deadlines.push_back(*deadline);
      errno = ETIMEDOUT;
      return -1;
    });
    EXPECT_EQ(mu_sem_wait(sem, row.timeout_ms), 0);
    ASSERT_EQ(deadlines.size(), 1u);
    EXPECT_EQ(deadlines[0].tv_sec, row.deadline.tv_sec);
    EXPECT_EQ(deadlines[0].tv_nsec, row.deadline.tv_nsec);
  }
  mu_sem_destroy(sem);
}

TEST(MuSem, ANullHandleMayBeWaitedOnAndDestroyed) {
  const Quiet quiet;
  for (const int timeout : {0, -1, 10, INT_MIN}) EXPECT_EQ(mu_sem_wait(nullptr, timeout), 0) << timeout;
  EXPECT_EQ(mu_sem_destroy(nullptr), 0);
  EXPECT_EQ(OS_SEM_DESTROY(nullptr), -1);  // this result is not passed on
}

TEST(MuSem, PostHandsNullOnUnchecked) { EXPECT_DEATH(post_null(), ""); }
