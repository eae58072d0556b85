// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The message queues of the OS layer, under the platform's names.

#include "tarn/os.h"
#include "tarn/platform.h"

long mu_queue_create(long *queue, const char *name, uint32_t max_messages, uint32_t message_size,
                     [[maybe_unused]] uint32_t flags) {
  return OS_QUEUE_CREATE(queue, name, max_messages, message_size);
}

long mu_queue_delete(long queue) { return OS_QUEUE_DELETE(queue); }

long mu_queue_get(long queue, void *buffer, uint32_t size, uint32_t *length, int timeout) {
  return OS_QUEUE_GET(queue, buffer, size, length, timeout);
}

long mu_queue_put(long queue, const void *message, uint32_t length) { return OS_QUEUE_PUT(queue, message, length); }
