// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Mutexes, and spin locks, which are mutexes under another name: nothing in this layer waits in a loop.

#include <cstdlib>
#include <cstring>

#include "tarn/os.h"

struct tarn_mutex {
  pthread_mutex_t posix;
};

mu_mutex_t OS_MUTEX_CREATE([[maybe_unused]] const char *name) {
  auto *mutex = static_cast<mu_mutex_t>(malloc(sizeof(tarn_mutex)));
  if (mutex == nullptr) return nullptr;
  memset(mutex, 0, sizeof *mutex);
  pthread_mutexattr_t attributes;  // fresh ones: the default type, not recursive, without error checks
  pthread_mutexattr_init(&attributes);
  pthread_mutex_init(&mutex->posix, &attributes);
  return mutex;
}

void OS_MUTEX_LOCK(mu_mutex_t mutex) {
  if (mutex != nullptr) pthread_mutex_lock(&mutex->posix);
}

int OS_MUTEX_TRYLOCK(mu_mutex_t mutex) {
  if (mutex == nullptr) return -1;
  return pthread_mutex_trylock(&mutex->posix);
}

void OS_MUTEX_UNLOCK(mu_mutex_t mutex) {
  if (mutex != nullptr) pthread_mutex_unlock(&mutex->posix);
}

void OS_MUTEX_DESTROY(mu_mutex_t mutex) {
  if (mutex == nullptr) return;
  pthread_mutex_destroy(&mutex->posix);
  free(mutex);
}

mu_spinlock_t OS_SPINLOCK_CREATE([[maybe_unused]] uint32_t flags) { return OS_MUTEX_CREATE(nullptr); }

void OS_SPINLOCK_LOCK(mu_spinlock_t lock) { OS_MUTEX_LOCK(lock); }

void OS_SPINLOCK_UNLOCK(mu_spinlock_t lock) { OS_MUTEX_UNLOCK(lock); }

void OS_SPINLOCK_DESTROY(mu_spinlock_t lock) { OS_MUTEX_DESTROY(lock); }
