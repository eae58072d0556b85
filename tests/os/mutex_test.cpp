#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "support/heap.h"
#include "support/libc.h"
#include "tarn/os.h"

using namespace tarn_test;

namespace {

int trylock_elsewhere(mu_mutex_t mutex) {
  int result = 0;
  std::thread([&] {
    result = OS_MUTEX_TRYLOCK(mutex);
    if (result == 0) OS_MUTEX_UNLOCK(mutex);
  }).join();
  return result;
}

}  // namespace

TEST(OsMutex, IsHeldByOneThreadAtATime) {
  mu_mutex_t mutex = OS_MUTEX_CREATE("any");
  ASSERT_NE(mutex, nullptr);
  OS_MUTEX_LOCK(mutex);
  EXPECT_EQ(trylock_elsewhere(mutex), EBUSY);
  OS_MUTEX_UNLOCK(mutex);
  EXPECT_EQ(trylock_elsewhere(mutex), 0);
  OS_MUTEX_DESTROY(mutex);
}

TEST(OsMutex, IsNotRecursive) {
  mu_mutex_t mutex = OS_MUTEX_CREATE(nullptr);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(mutex), 0);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(mutex), EBUSY);
  OS_MUTEX_UNLOCK(mutex);
  OS_MUTEX_DESTROY(mutex);
}

TEST(OsMutex, IsNullWhenMemoryRunsOut) {
  FailingMalloc no_memory(1);
  EXPECT_EQ(OS_MUTEX_CREATE("any"), nullptr);
  EXPECT_EQ(no_memory.seen(), 1);
}

TEST(OsMutex, TakesOneBlockAndGivesItBack) {
  HeapWatch heap;
  mu_mutex_t mutex = OS_MUTEX_CREATE("any");
  EXPECT_EQ(heap.live(), 1u);
  OS_MUTEX_DESTROY(mutex);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(OsMutex, NullStandsForNone) {
  OS_MUTEX_LOCK(nullptr);
  OS_MUTEX_UNLOCK(nullptr);
  OS_MUTEX_DESTROY(nullptr);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(nullptr), -1);
}

TEST(OsSpinLock, IsAMutex) {
  mu_spinlock_t lock = OS_SPINLOCK_CREATE(12345);
  ASSERT_NE(lock, nullptr);
  OS_SPINLOCK_LOCK(lock);
  EXPECT_EQ(trylock_elsewhere(lock), EBUSY);
  OS_SPINLOCK_UNLOCK(lock);
  EXPECT_EQ(trylock_elsewhere(lock), 0);
  OS_SPINLOCK_DESTROY(lock);
}

TEST(OsSpinLock, IsNullWhenMemoryRunsOut) {
  FailingMalloc no_memory(1);
  EXPECT_EQ(OS_SPINLOCK_CREATE(0), nullptr);
}

TEST(OsSpinLock, NullStandsForNone) {
  HeapWatch heap;
  OS_SPINLOCK_LOCK(nullptr);
  OS_SPINLOCK_UNLOCK(nullptr);
  OS_SPINLOCK_DESTROY(nullptr);
  EXPECT_TRUE(heap.freed().empty());
}
