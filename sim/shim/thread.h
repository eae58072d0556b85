// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Threads with real-time scheduling, where the process has no right to it.
#ifndef TARN_SIM_THREAD_H
#define TARN_SIM_THREAD_H

#include <pthread.h>

namespace tarn_sim {

// As pthread_create(3). If a thread is refused because its attributes ask for SCHED_RR or SCHED_FIFO, it is created
// with the creator's scheduling and its other attributes; a message says so once.
int create_thread(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg);

}  // namespace tarn_sim

#endif
