// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The statuses of mutexes and spin locks.

#include "platform/fixture.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&mu_mutex_init), int (*)(mu_mutex_t *, const char *)>);
static_assert(std::is_same_v<decltype(&mu_mutex_lock), int (*)(mu_mutex_t)>);
static_assert(std::is_same_v<decltype(&mu_mutex_trylock), int (*)(mu_mutex_t)>);
static_assert(std::is_same_v<decltype(&mu_mutex_unlock), int (*)(mu_mutex_t)>);
static_assert(std::is_same_v<decltype(&mu_mutex_destroy), int (*)(mu_mutex_t)>);
static_assert(std::is_same_v<decltype(&mu_spin_lock_init), int (*)(mu_spinlock_t *, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_spin_lock), int (*)(mu_spinlock_t)>);
static_assert(std::is_same_v<decltype(&mu_spin_unlock), int (*)(mu_spinlock_t)>);
static_assert(std::is_same_v<decltype(&mu_spin_lock_destroy), int (*)(mu_spinlock_t)>);

TEST(MuMutex, RoundTripGivesZeros) {
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

TEST(MuMutex, InitAcceptsANullName) {
  mu_mutex_t mutex = nullptr;
  EXPECT_EQ(mu_mutex_init(&mutex, nullptr), 0);
  EXPECT_EQ(mu_mutex_lock(mutex), 0);
  EXPECT_EQ(mu_mutex_unlock(mutex), 0);
  EXPECT_EQ(mu_mutex_destroy(mutex), 0);
}

TEST(MuMutex, InitStoresNullWhenMemoryRunsOut) {
  expect_null_without_memory<mu_mutex_t>([](mu_mutex_t *mutex) { return mu_mutex_init(mutex, "none"); });
}

TEST(MuMutex, ANullHandleGivesOneFromTheLocksAndZeroFromTheRest) {
  const Quiet quiet;
  EXPECT_EQ(mu_mutex_lock(nullptr), 1);
  EXPECT_EQ(mu_mutex_trylock(nullptr), 1);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(nullptr), -1);  // the OS layer differs
  EXPECT_EQ(mu_mutex_unlock(nullptr), 0);
  EXPECT_EQ(mu_mutex_destroy(nullptr), 0);
}

TEST(MuSpinLock, RoundTripGivesZerosWhateverTheArgument) {
  for (const uint32_t argument : {0u, 1u, 9u, 0xFFFFFFFFu}) {
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

TEST(MuSpinLock, InitStoresNullWhenMemoryRunsOut) {
  expect_null_without_memory<mu_spinlock_t>([](mu_spinlock_t *lock) { return mu_spin_lock_init(lock, 0); });
}

TEST(MuSpinLock, ANullHandleGivesZeroFromAll) {
  const Quiet quiet;
  EXPECT_EQ(mu_spin_lock(nullptr), 0);
  EXPECT_EQ(mu_spin_unlock(nullptr), 0);
  EXPECT_EQ(mu_spin_lock_destroy(nullptr), 0);
}
