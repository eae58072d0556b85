// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "hammer.h"

#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

enum { kMaxThreads = 16 };

struct hammer {
  int shared;  // a descriptor of all threads, or -1: each call opens its own
  int type, calls;
  long faults;
};

static void put32(uint8_t *at, uint32_t value) { memcpy(at, &value, sizeof value); }

static void *hammer(void *context) {
  struct hammer *const job = context;
  for (int i = 0; i < job->calls; i++) {
    uint8_t set[56] = {0}, get[56] = {0};
    const uint16_t length = 32;
    memcpy(set + 2, &length, 2);
    memcpy(get + 2, &length, 2);
    put32(set + 24, 3);
    put32(set + 28, (uint32_t)job->type);
    put32(set + 40, (uint32_t)(1000 * job->type + i));
    put32(set + 44, 20);
    put32(get + 24, 4);
    put32(get + 28, (uint32_t)job->type);
    const int file = job->shared >= 0 ? job->shared : open("/dev/mu_pal_ioctl", O_RDWR);
    const int done = ioctl(file, 0x4301, set) == 0 && ioctl(file, 0x4301, get) == 0;
    if (!done || memcmp(set + 36, get + 36, 12) != 0) job->faults++;
    if (job->shared < 0) close(file);
  }
  return NULL;
}

long hammer_in_threads(int threads, int calls, int shared) {
  pthread_t ids[kMaxThreads];
  struct hammer jobs[kMaxThreads];
  long faults = 0;
  for (int i = 0; i < threads; i++) {
    jobs[i] = (struct hammer){shared, i, calls, 0};
    if (pthread_create(&ids[i], NULL, hammer, &jobs[i]) != 0) return -1;
  }
  for (int i = 0; i < threads; i++) {
    pthread_join(ids[i], NULL);
    faults += jobs[i].faults;
  }
  return faults;
}
