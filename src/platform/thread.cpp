// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The threads of the OS layer, and its work queues that run nothing, under the platform's names.

#include "tarn/os.h"
#include "tarn/platform.h"

long mu_thread_create(pthread_t *thread, const char *name, mu_thread_entry_t entry, void *arg, uint32_t stack_size,
                      int priority, uint32_t flags) {
  return OS_THREAD_CREATE(thread, name, entry, arg, stack_size, priority, flags);
}

long mu_workqueue_init(void *queue, void *name) { return OS_WORKQUEUE_CREATE(queue, name); }

long mu_work_add(void *queue, void *work, void *arg) { return OS_WORK_ADD(queue, work, arg); }

void mu_workqueue_destroy(void *queue) { OS_WORKQUEUE_DESTROY(queue); }
