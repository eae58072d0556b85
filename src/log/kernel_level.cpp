// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Passes changed settings on to the kernel's log device.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "internal.h"

namespace {

constexpr unsigned long kRequest = 0x4300;  // a plain number: no direction, no size
constexpr tarn::u16 kSetModule = 3;

struct ControlMessage {
  tarn::u8 reserved[10];
  tarn::u16 command;  // in the processor's byte order
  tarn::u8 module;
  tarn::u8 type;
  tarn::u8 value;
  tarn::u8 rest[241];
};
static_assert(offsetof(ControlMessage, command) == 10 && offsetof(ControlMessage, module) == 12 &&
                  offsetof(ControlMessage, value) == 14 && sizeof(ControlMessage) == 256,
              "control message layout");

}  // namespace

void mup_log_kern_level_set(uint8_t module_index, uint8_t type, uint8_t value) {
  ControlMessage message = {};
  message.command = kSetModule;
  message.module = module_index;
  message.type = type;
  message.value = value;
  const int device = open("/dev/mulog-ioctl-dev", O_RDWR | O_CLOEXEC);
  if (device < 0) {
    (void)puts("Device open failure /dev/mulog-ioctl-dev");
    return;
  }
  (void)ioctl(device, kRequest, &message);  // a setting that the kernel refuses stays set in user space
  (void)close(device);
}
