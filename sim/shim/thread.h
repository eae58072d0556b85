// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Threads with real-time scheduling, where the process has no right to it.
#ifndef TARN_SIM_THREAD_H
#define TARN_SIM_THREAD_H

#include <pthread.h>

namespace tarn_sim {

// As pthread_create(3). A thread whose attributes ask for SCHED_RR or SCHED_FIFO and that is refused for it is created
// with the creator's scheduling, and all else that the attributes say; this is said once.
int create_thread(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg);

}  // namespace tarn_sim

#endif
