// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// POSIX message queues. The system keeps them under their names, and they outlive the process that made them.

#include <fcntl.h>
#include <mqueue.h>

#include "tarn/os.h"

namespace {

constexpr size_t kNameSize = 128;  // bytes of the name in the system, including the "/" and the NUL
constexpr mode_t kMode = 0770;
constexpr unsigned kPriority = 0;

mqd_t descriptor(long queue) { return static_cast<mqd_t>(queue); }

}  // namespace

long OS_QUEUE_CREATE(long *queue, const char *name, uint32_t max_messages, uint32_t message_size) {
  if (queue == nullptr || name == nullptr) return -1;
  char system_name[kNameSize];
  (void)snprintf(system_name, sizeof system_name, "/%s", name);  // a longer name is cut
  mq_attr attributes = {};
  attributes.mq_maxmsg = max_messages;
  attributes.mq_msgsize = message_size;
  const mqd_t opened = mq_open(system_name, O_RDWR | O_CREAT, kMode, &attributes);
  if (opened < 0) return -1;
  *queue = opened;
  return 0;
}

// Deliberate: the name is not unlinked, so a later OS_QUEUE_CREATE finds the queue and its messages again. Held by
// OsQueue.OutlivesItsDescriptorWithItsSizesAndMessages.
long OS_QUEUE_DELETE(long queue) {
  (void)mq_close(descriptor(queue));
  return 0;
}

// Deliberate: the timeout has no effect. Queues are opened blocking and every receive waits for a message. Held by
// OsQueue.GetWaitsWhateverTheTimeout.
long OS_QUEUE_GET(long queue, void *buffer, uint32_t size, uint32_t *length, [[maybe_unused]] int timeout) {
  if (buffer == nullptr || length == nullptr) return -1;
  const ssize_t received = mq_receive(descriptor(queue), static_cast<char *>(buffer), size, nullptr);
  if (received < 0) return -1;
  *length = static_cast<uint32_t>(received);
  return 0;
}

long OS_QUEUE_PUT(long queue, const void *message, uint32_t length) {
  return mq_send(descriptor(queue), static_cast<const char *>(message), length, kPriority);
}
