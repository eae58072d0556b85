// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Semaphores with the status convention: only the creation can fail.

#include "tarn/os.h"
#include "tarn/platform.h"

int mu_sem_init(mu_sem_t *sem, [[maybe_unused]] const char *name, uint32_t count) {
  *sem = OS_SEM_CREATE(count);
  return *sem == nullptr;
}

int mu_sem_destroy(mu_sem_t sem) {
  (void)OS_SEM_DESTROY(sem);  // -1 for a null handle, which is not a failure here
  return 0;
}

int mu_sem_wait(mu_sem_t sem, int timeout_ms) {
  OS_SEM_WAIT(sem, timeout_ms);
  return 0;
}

int mu_sem_post(mu_sem_t sem) {
  OS_SEM_POST(sem);
  return 0;
}
