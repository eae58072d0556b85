// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Threads.

#include <unistd.h>

#include <cstdlib>

#include "tarn/os.h"

namespace {

constexpr uint32_t kMinStackSize = 8192;

}  // namespace

long OS_CURRENT_THREAD() { return gettid(); }

long OS_THREAD_CREATE(pthread_t *thread, [[maybe_unused]] const char *name, mu_thread_entry_t entry, void *arg,
                      uint32_t stack_size, [[maybe_unused]] int priority, [[maybe_unused]] uint32_t flags) {
  // The attributes are not destroyed: they have no memory of their own.
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  // If the system rejects the size, its default applies.
  (void)pthread_attr_setstacksize(&attributes, stack_size >= kMinStackSize ? stack_size : kMinStackSize);

  // A separate handle, so that a failure does not change the caller's variable.
  auto *handle = static_cast<pthread_t *>(malloc(sizeof(pthread_t)));
  if (handle == nullptr) return -1;
  *handle = {};
  const bool created = pthread_create(handle, &attributes, entry, arg) == 0;
  if (created) *thread = *handle;
  free(handle);
  return created ? 0 : -1;
}
