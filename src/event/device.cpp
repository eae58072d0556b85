// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Requests to the kernel: the platform's device, and the two commands that the event service sends through it.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "internal.h"

using namespace tarn;

namespace {

// An argument of the device, zeroed before use: no byte of the stack reaches the kernel.
struct Argument {
  mu_pal_hdr_t header;
  u8 payload[1024 - sizeof(mu_pal_hdr_t)];
};
static_assert(sizeof(Argument) == 1024);

u16 payload_length(const void *arg) {
  u16 length = 0;
  memcpy(&length, static_cast<const u8 *>(arg) + offsetof(mu_pal_hdr_t, length), sizeof length);
  return length;
}

}  // namespace

int mu_pal_ioctl(uint32_t cmd, void *arg) {
  if (arg == nullptr) return -1;
  if (payload_length(arg) > MU_PAL_PAYLOAD_MAX) {
    mu_printf("ioctl: input param is too long.\n");
    return -1;
  }
  const int device = open(MU_PAL_DEVICE, O_RDWR | O_CLOEXEC);
  if (device < 0) {
    (void)puts("Device open failure " MU_PAL_DEVICE);
    return -1;
  }
  const int result = ioctl(device, MU_PAL_IOCTL_BASE | cmd, arg);
  if (result == -1) mu_printf("Can not run command '%d', ret=%d.\n", static_cast<int>(cmd), -1);
  (void)close(device);  // nothing was written that could be lost
  return result;
}

void mu_event_dest_set(uint32_t port) {
  Argument argument = {};
  argument.header.destination = port;
  (void)mu_pal_ioctl(MU_PAL_EVENT_DEST, &argument);  // it reports its own failure
}

int mup_event_cfg_forward(uint16_t device_id, mu_event_msg_t *msg) {
  Argument argument = {};
  argument.header.length = sizeof *msg;
  argument.header.device_id = device_id;
  memcpy(argument.payload, msg, sizeof *msg);
  // Deliberate: the result is ignored, so configuration calls succeed without the device, and the content of the
  // argument is always copied back. Held by EventForward.SucceedsWithoutTheDevice.
  (void)mu_pal_ioctl(MU_PAL_EVENT_CFG, &argument);
  memcpy(msg, argument.payload, sizeof *msg);
  return 0;
}
