// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "thread.h"

#include <cerrno>

#include "link.h"
#include "next.h"

namespace tarn_sim {

namespace {

constinit std::atomic<bool> g_said_ordinary{false};

bool asks_for_real_time(const pthread_attr_t *attributes) {
  int inherits = PTHREAD_INHERIT_SCHED;
  int policy = SCHED_OTHER;
  if (attributes == nullptr || pthread_attr_getinheritsched(attributes, &inherits) != 0 ||
      pthread_attr_getschedpolicy(attributes, &policy) != 0) {
    return false;
  }
  return inherits == PTHREAD_EXPLICIT_SCHED && (policy == SCHED_RR || policy == SCHED_FIFO);
}

}  // namespace

int create_thread(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg) {
  using Create = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
  const Create create = NEXT(pthread_create, Create);
  const int result = create(thread, attributes, entry, arg);
  if (result != EPERM || !asks_for_real_time(attributes)) return result;
  say_once(&g_said_ordinary, "tarn-sim: no right to real-time scheduling: such threads run with ordinary scheduling\n");
  // A plain copy keeps all other attributes, such as the caller's stack or a set of processors. It is not destroyed,
  // because the memory that it points to is the caller's.
  pthread_attr_t ordinary = *attributes;
  (void)pthread_attr_setinheritsched(&ordinary, PTHREAD_INHERIT_SCHED);
  return create(thread, &ordinary, entry, arg);
}

}  // namespace tarn_sim
