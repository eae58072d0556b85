// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Mutexes and spin locks with the status convention: 1 for a handle that is null.

#include "tarn/os.h"
#include "tarn/platform.h"

int mu_mutex_init(mu_mutex_t *mutex, const char *name) {
  *mutex = OS_MUTEX_CREATE(name);
  return *mutex == nullptr;
}

int mu_mutex_destroy(mu_mutex_t mutex) {
  OS_MUTEX_DESTROY(mutex);
  return 0;
}

int mu_mutex_lock(mu_mutex_t mutex) {
  if (mutex == nullptr) return 1;
  OS_MUTEX_LOCK(mutex);
  return 0;
}

// Deliberate: 1 for a null handle, where OS_MUTEX_TRYLOCK returns -1. Held by
// MuMutex.ANullHandleGivesOneFromTheLocksAndZeroFromTheRest.
int mu_mutex_trylock(mu_mutex_t mutex) {
  if (mutex == nullptr) return 1;
  return OS_MUTEX_TRYLOCK(mutex);
}

int mu_mutex_unlock(mu_mutex_t mutex) {
  OS_MUTEX_UNLOCK(mutex);
  return 0;
}

int mu_spin_lock_init(mu_spinlock_t *lock, uint32_t flags) {
  *lock = OS_SPINLOCK_CREATE(flags);
  return *lock == nullptr;
}

// Deliberate: 0 for a null handle too, where mu_mutex_lock returns 1. Held by MuSpinLock.ANullHandleGivesZeroFromAll.
int mu_spin_lock(mu_spinlock_t lock) {
  OS_SPINLOCK_LOCK(lock);
  return 0;
}

int mu_spin_unlock(mu_spinlock_t lock) {
  OS_SPINLOCK_UNLOCK(lock);
  return 0;
}

int mu_spin_lock_destroy(mu_spinlock_t lock) {
  OS_SPINLOCK_DESTROY(lock);
  return 0;
}
