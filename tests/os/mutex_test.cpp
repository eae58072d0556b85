// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Mutexes, and spin locks, which are mutexes.

#include <type_traits>
#include <vector>

#include "os/fixture.h"
#include "support/heap.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_MUTEX_TRYLOCK), int (*)(mu_mutex_t)>);
static_assert(std::is_same_v<mu_spinlock_t, mu_mutex_t>);

namespace {

int trylock_from_another_thread(mu_mutex_t mutex) {
  int result = -2;
  std::thread([&] {
    result = OS_MUTEX_TRYLOCK(mutex);
    if (result == 0) OS_MUTEX_UNLOCK(mutex);
  }).join();
  return result;
}

// Checks that a second thread sleeps in `lock` until the holder's `unlock`. A spinning thread never sleeps.
void expect_a_waiter_to_sleep(mu_mutex_t mutex, void (*lock)(mu_mutex_t), void (*unlock)(mu_mutex_t)) {
  lock(mutex);
  std::atomic<bool> released{false};
  bool released_when_taken = false;
  Waiter waiter([&] {
    lock(mutex);
    released_when_taken = released;
    unlock(mutex);
  });
  EXPECT_TRUE(waiter.sleeps());
  released = true;
  unlock(mutex);
  waiter.join();
  EXPECT_TRUE(released_when_taken);
}

}  // namespace

TEST(OsMutex, IsFreeWhenCreatedWhateverTheMemoryHeld) {
  Replace dirty(libc::malloc, dirty_block);
  const mu_mutex_t mutex = OS_MUTEX_CREATE("any");
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(mutex), 0);
  OS_MUTEX_UNLOCK(mutex);
  OS_MUTEX_DESTROY(mutex);
}

TEST(OsMutex, IsHeldByOneThreadAtATimeWhateverItsName) {
  const std::string long_name(5000, 'x');
  for (const char *name : {static_cast<const char *>(nullptr), "", "same", "same", long_name.c_str()}) {
    SCOPED_TRACE(name == nullptr ? "null" : name);
    const mu_mutex_t mutex = OS_MUTEX_CREATE(name);
    ASSERT_NE(mutex, nullptr);
    OS_MUTEX_LOCK(mutex);
    EXPECT_EQ(trylock_from_another_thread(mutex), EBUSY);
    OS_MUTEX_UNLOCK(mutex);
    EXPECT_EQ(trylock_from_another_thread(mutex), 0);
    OS_MUTEX_DESTROY(mutex);
  }
}

TEST(OsMutex, OneNameTwiceMakesTwoMutexes) {
  const mu_mutex_t first = OS_MUTEX_CREATE("same");
  const mu_mutex_t second = OS_MUTEX_CREATE("same");
  EXPECT_NE(first, second);
  OS_MUTEX_LOCK(first);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(second), 0);
  OS_MUTEX_UNLOCK(second);
  OS_MUTEX_UNLOCK(first);
  OS_MUTEX_DESTROY(second);
  OS_MUTEX_DESTROY(first);
}

TEST(OsMutex, TrylockTakesTheMutex) {
  const mu_mutex_t mutex = OS_MUTEX_CREATE("held");
  EXPECT_EQ(OS_MUTEX_TRYLOCK(mutex), 0);
  EXPECT_EQ(trylock_from_another_thread(mutex), EBUSY);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(mutex), EBUSY);  // not recursive
  OS_MUTEX_UNLOCK(mutex);
  OS_MUTEX_DESTROY(mutex);
}

// The handle's block holds one system mutex and nothing else, so the handle is its address. A deadline that has passed
// shows the type: the default type would wait, an error-checking one reports the deadlock at once, a recursive one
// locks again.
TEST(OsMutex, AHolderThatLocksAgainWouldWaitForItself) {
  size_t asked = 0;
  Replace note_size(libc::malloc, [&](size_t size) { return libc::malloc.real(asked = size); });
  const mu_mutex_t mutex = OS_MUTEX_CREATE("once");
  ASSERT_EQ(asked, sizeof(pthread_mutex_t));
  OS_MUTEX_LOCK(mutex);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(mutex), EBUSY);
  const timespec past = {1, 0};
  EXPECT_EQ(pthread_mutex_timedlock(reinterpret_cast<pthread_mutex_t *>(mutex), &past), ETIMEDOUT);
  OS_MUTEX_UNLOCK(mutex);
  OS_MUTEX_DESTROY(mutex);
}

TEST(OsMutex, LockWaitsForTheHolder) {
  const mu_mutex_t mutex = OS_MUTEX_CREATE("held");
  expect_a_waiter_to_sleep(mutex, OS_MUTEX_LOCK, OS_MUTEX_UNLOCK);
  OS_MUTEX_DESTROY(mutex);
}

TEST(OsMutex, NullIsIgnoredOrRefused) {
  const Quiet quiet;
  OS_MUTEX_LOCK(nullptr);
  OS_MUTEX_UNLOCK(nullptr);
  OS_MUTEX_DESTROY(nullptr);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(nullptr), -1);
}

TEST(OsMutex, IsNullWhenMemoryRunsOut) {
  const Quiet quiet;
  FailingMalloc no_memory(1);
  EXPECT_EQ(OS_MUTEX_CREATE("none"), nullptr);
  EXPECT_EQ(no_memory.seen(), 1);
}

TEST(OsMutex, TakesOneBlockAndGivesItBack) {
  HeapWatch heap;
  const mu_mutex_t mutex = OS_MUTEX_CREATE("short-lived");
  EXPECT_EQ(heap.live(), 1u);
  OS_MUTEX_DESTROY(mutex);
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(heap.freed(), std::vector<void *>{mutex});
}

TEST(OsSpinLock, IsAMutex) {
  const mu_spinlock_t lock = OS_SPINLOCK_CREATE(0);
  ASSERT_NE(lock, nullptr);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(lock), 0);
  EXPECT_EQ(trylock_from_another_thread(lock), EBUSY);
  OS_SPINLOCK_UNLOCK(lock);
  OS_SPINLOCK_LOCK(lock);
  EXPECT_EQ(trylock_from_another_thread(lock), EBUSY);
  OS_MUTEX_UNLOCK(lock);
  EXPECT_EQ(trylock_from_another_thread(lock), 0);
  OS_SPINLOCK_DESTROY(lock);
}

TEST(OsSpinLock, TheArgumentCarriesNoMeaning) {
  for (const uint32_t argument : {0u, 1u, 12345u, 0x80000000u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(argument);
    const mu_spinlock_t lock = OS_SPINLOCK_CREATE(argument);
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(trylock_from_another_thread(lock), 0);
    OS_SPINLOCK_LOCK(lock);
    EXPECT_EQ(trylock_from_another_thread(lock), EBUSY);
    OS_SPINLOCK_UNLOCK(lock);
    EXPECT_EQ(trylock_from_another_thread(lock), 0);
    OS_SPINLOCK_DESTROY(lock);
  }
}

TEST(OsSpinLock, AWaiterSleeps) {
  const mu_spinlock_t lock = OS_SPINLOCK_CREATE(0);
  expect_a_waiter_to_sleep(lock, OS_SPINLOCK_LOCK, OS_SPINLOCK_UNLOCK);
  OS_SPINLOCK_DESTROY(lock);
}

TEST(OsSpinLock, NullIsIgnored) {
  const Quiet quiet;
  HeapWatch heap;
  OS_SPINLOCK_LOCK(nullptr);
  OS_SPINLOCK_UNLOCK(nullptr);
  OS_SPINLOCK_DESTROY(nullptr);
  EXPECT_TRUE(heap.freed().empty());
}

TEST(OsSpinLock, IsNullWhenMemoryRunsOut) {
  const Quiet quiet;
  FailingMalloc no_memory(1);
  EXPECT_EQ(OS_SPINLOCK_CREATE(0), nullptr);
  EXPECT_EQ(no_memory.seen(), 1);
}

TEST(OsSpinLock, DestroyFreesTheBlock) {
  HeapWatch heap;
  const mu_spinlock_t lock = OS_SPINLOCK_CREATE(7);
  EXPECT_EQ(heap.live(), 1u);
  OS_SPINLOCK_DESTROY(lock);
  EXPECT_EQ(heap.live(), 0u);
}
