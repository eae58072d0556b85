// The wrappers of mutexes, semaphores and spin locks: their statuses.

#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/resource.h>

#include <cerrno>
#include <climits>
#include <functional>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "tarn/os.h"
#include "tarn/platform.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&mu_mutex_init), int (*)(mu_mutex_t *, const char *)>);
static_assert(std::is_same_v<decltype(&mu_mutex_lock), int (*)(mu_mutex_t)>);
static_assert(std::is_same_v<decltype(&mu_mutex_trylock), int (*)(mu_mutex_t)>);
static_assert(std::is_same_v<decltype(&mu_mutex_unlock), int (*)(mu_mutex_t)>);
static_assert(std::is_same_v<decltype(&mu_mutex_destroy), int (*)(mu_mutex_t)>);
static_assert(std::is_same_v<decltype(&mu_sem_init), int (*)(mu_sem_t *, const char *, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_sem_wait), int (*)(mu_sem_t, int)>);
static_assert(std::is_same_v<decltype(&mu_sem_post), int (*)(mu_sem_t)>);
static_assert(std::is_same_v<decltype(&mu_sem_destroy), int (*)(mu_sem_t)>);
static_assert(std::is_same_v<decltype(&mu_spin_lock_init), int (*)(mu_spinlock_t *, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_spin_lock), int (*)(mu_spinlock_t)>);
static_assert(std::is_same_v<decltype(&mu_spin_unlock), int (*)(mu_spinlock_t)>);
static_assert(std::is_same_v<decltype(&mu_spin_lock_destroy), int (*)(mu_spinlock_t)>);

namespace {

int from_another_thread(const std::function<int()> &call) {
  int result = -2;
  std::thread([&] { result = call(); }).join();
  return result;
}

// The semaphore's count, read from the system's semaphore that a timed wait is for.
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

// Something that is no handle, to see it replaced.
template <typename Handle>
Handle old_value() {
  return reinterpret_cast<Handle>(16);
}

}  // namespace

TEST(MutexWrapperContract, RoundTripGivesZeros) {
  HeapWatch heap;
  mu_mutex_t mutex = nullptr;
  EXPECT_EQ(mu_mutex_init(&mutex, "Round"), 0);
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(heap.live(), 1u);
  EXPECT_EQ(mu_mutex_lock(mutex), 0);
  EXPECT_EQ(from_another_thread([=] { return mu_mutex_trylock(mutex); }), EBUSY);
  EXPECT_EQ(mu_mutex_unlock(mutex), 0);
  EXPECT_EQ(mu_mutex_trylock(mutex), 0);
  EXPECT_EQ(mu_mutex_trylock(mutex), EBUSY);
  EXPECT_EQ(from_another_thread([=] { return OS_MUTEX_TRYLOCK(mutex); }), EBUSY);
  EXPECT_EQ(mu_mutex_unlock(mutex), 0);
  EXPECT_EQ(mu_mutex_destroy(mutex), 0);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(MutexWrapperContract, InitAcceptsANullName) {
  mu_mutex_t mutex = nullptr;
  EXPECT_EQ(mu_mutex_init(&mutex, nullptr), 0);
  EXPECT_EQ(mu_mutex_lock(mutex), 0);
  EXPECT_EQ(mu_mutex_unlock(mutex), 0);
  EXPECT_EQ(mu_mutex_destroy(mutex), 0);
}

TEST(MutexWrapperContract, WithoutMemoryInitStoresNullAndGivesOne) {
  Console console;
  FailingMalloc no_memory(1);
  auto mutex = old_value<mu_mutex_t>();
  EXPECT_EQ(mu_mutex_init(&mutex, "none"), 1);
  EXPECT_EQ(mutex, nullptr);
  EXPECT_EQ(console.take(), "");
}

TEST(MutexWrapperContract, ANullHandleGivesOneFromTheLocksAndZeroFromTheRest) {
  Console console;
  EXPECT_EQ(mu_mutex_lock(nullptr), 1);
  EXPECT_EQ(mu_mutex_trylock(nullptr), 1);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(nullptr), -1);  // the layer below says so otherwise
  EXPECT_EQ(mu_mutex_unlock(nullptr), 0);
  EXPECT_EQ(mu_mutex_destroy(nullptr), 0);
  EXPECT_EQ(console.take(), "");
}

TEST(SemWrapperContract, RoundTripGivesZeros) {
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

TEST(SemWrapperContract, InitPassesTheCountDownAndUsesNoName) {
  for (const uint32_t count : {0u, 1u, 2147483647u}) {
    SCOPED_TRACE(count);
    mu_sem_t sem = nullptr;
    EXPECT_EQ(mu_sem_init(&sem, nullptr, count), 0);
    EXPECT_EQ(count_of(sem), static_cast<int>(count));
    mu_sem_destroy(sem);
  }
}

TEST(SemWrapperContract, WithoutMemoryInitStoresNullAndGivesOne) {
  Console console;
  FailingMalloc no_memory(1);
  auto sem = old_value<mu_sem_t>();
  EXPECT_EQ(mu_sem_init(&sem, "none", 1), 1);
  EXPECT_EQ(sem, nullptr);
  EXPECT_EQ(console.take(), "");
}

TEST(SemWrapperContract, WaitGivesZeroWhetherTakenOrNot) {
  mu_sem_t sem = nullptr;
  ASSERT_EQ(mu_sem_init(&sem, "empty", 0), 0);
  EXPECT_EQ(mu_sem_wait(sem, 0), 0);
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

TEST(SemWrapperContract, WaitPassesTheTimeoutDown) {
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

TEST(SemWrapperContract, ANullHandleMayBeWaitedOnAndDestroyed) {
  Console console;
  for (const int timeout : {0, -1, 10, INT_MIN}) EXPECT_EQ(mu_sem_wait(nullptr, timeout), 0) << timeout;
  EXPECT_EQ(mu_sem_destroy(nullptr), 0);
  EXPECT_EQ(OS_SEM_DESTROY(nullptr), -1);  // dropped on the way
  EXPECT_EQ(console.take(), "");
}

TEST(SemWrapperContract, PostHandsNullOnUnchecked) { EXPECT_DEATH(post_null(), ""); }

TEST(SpinWrapperContract, RoundTripGivesZerosWhateverTheArgument) {
  for (const uint32_t argument : {0u, 1u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(argument);
    HeapWatch heap;
    mu_spinlock_t lock = nullptr;
    EXPECT_EQ(mu_spin_lock_init(&lock, argument), 0);
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(mu_spin_lock(lock), 0);
    EXPECT_EQ(from_another_thread([=] { return mu_mutex_trylock(lock); }), EBUSY);  // it is a mutex
    EXPECT_EQ(mu_spin_unlock(lock), 0);
    EXPECT_EQ(mu_mutex_trylock(lock), 0);
    EXPECT_EQ(mu_spin_unlock(lock), 0);
    EXPECT_EQ(mu_spin_lock_destroy(lock), 0);
    EXPECT_EQ(heap.live(), 0u);
  }
}

TEST(SpinWrapperContract, WithoutMemoryInitStoresNullAndGivesOne) {
  Console console;
  FailingMalloc no_memory(1);
  auto lock = old_value<mu_spinlock_t>();
  EXPECT_EQ(mu_spin_lock_init(&lock, 0), 1);
  EXPECT_EQ(lock, nullptr);
  EXPECT_EQ(console.take(), "");
}

TEST(SpinWrapperContract, ANullHandleGivesZeroFromAll) {
  Console console;
  EXPECT_EQ(mu_spin_lock(nullptr), 0);
  EXPECT_EQ(mu_spin_unlock(nullptr), 0);
  EXPECT_EQ(mu_spin_lock_destroy(nullptr), 0);
  EXPECT_EQ(console.take(), "");
}
