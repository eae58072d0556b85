// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Counting semaphores. A wait does not report how it ended.

#include <semaphore.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdlib>

#include "tarn/os.h"

struct tarn_sem {
  sem_t posix;
};

namespace {

constexpr int kTry = 0;
constexpr int kForever = -1;
constexpr long kMicrosecondsPerSecond = 1000000;

// The instant `timeout_ms` from now on the wall clock. Division and remainder truncate towards zero, so a negative
// timeout gives a deadline that has passed or, with negative nanoseconds, one that sem_timedwait rejects.
timespec deadline_after(int timeout_ms) {
  timeval now;
  gettimeofday(&now, nullptr);
  time_t seconds = now.tv_sec + timeout_ms / 1000;
  long microseconds = now.tv_usec + (timeout_ms % 1000) * 1000L;
  if (microseconds >= kMicrosecondsPerSecond) {
    seconds += 1;
    microseconds %= kMicrosecondsPerSecond;
  }
  return {seconds, microseconds * 1000};
}

}  // namespace

mu_sem_t OS_SEM_CREATE(uint32_t count) {
  auto *sem = static_cast<mu_sem_t>(malloc(sizeof(tarn_sem)));
  if (sem == nullptr) return nullptr;
  sem_init(&sem->posix, /*shared between processes=*/0, count);
  return sem;
}

long OS_SEM_DESTROY(mu_sem_t sem) {
  if (sem == nullptr) return -1;
  sem_destroy(&sem->posix);
  free(sem);
  return 0;
}

void OS_SEM_WAIT(mu_sem_t sem, int timeout_ms) {
  if (sem == nullptr) return;
  if (timeout_ms == kTry) {
    (void)sem_trywait(&sem->posix);  // the caller asked for an attempt, not for its outcome
  } else if (timeout_ms == kForever) {
    (void)sem_wait(&sem->posix);  // a signal ends the wait, and it is not resumed
  } else {
    const timespec deadline = deadline_after(timeout_ms);
    while (sem_timedwait(&sem->posix, &deadline) != 0 && errno == EINTR) {
    }
  }
}

// Deliberate: a null handle is passed on to libc, as the header warns; every other call tolerates one. Held by
// OsSemaphore.PostHandsNullOnUnchecked.
void OS_SEM_POST(mu_sem_t sem) { sem_post(&sem->posix); }
