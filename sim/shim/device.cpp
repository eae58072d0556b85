// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "device.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>

#include "link.h"

namespace tarn_sim {

namespace {

// Applies the flags of open to the descriptor.
void apply(int file, int flags) {
  wait_for_ever(file);
  if ((flags & O_NONBLOCK) != 0) (void)fcntl(file, F_SETFL, O_NONBLOCK);
  if ((flags & O_CLOEXEC) == 0) (void)fcntl(file, F_SETFD, 0);
}

bool is_connected_to(const sockaddr_un &peer, const char *device) {
  sockaddr_un expected = {};
  return stand_in(device, &expected) && strcmp(peer.sun_path, expected.sun_path) == 0;
}

// The device that the descriptor stands for; null for any other.
const char *device_of(int file) {
  sockaddr_un peer = {};
  socklen_t size = sizeof peer - 1;  // a NUL stays after it
  if (getpeername(file, reinterpret_cast<sockaddr *>(&peer), &size) != 0 || peer.sun_family != AF_UNIX) return nullptr;
  for (const char *device : {kPlatformDevice, kLogDevice}) {
    if (is_connected_to(peer, device)) return device;
  }
  return nullptr;
}

// If the header states more than the device accepts, only the header is sent, and the launcher refuses it.
size_t platform_argument_size(const void *argument) {
  uint16_t length = 0;
  memcpy(&length, static_cast<const char *>(argument) + kPlatformLengthAt, sizeof length);
  return kPlatformHeader + (length <= kPlatformPayload ? length : 0);
}

// How many bytes of the caller's memory belong to the request; 0 if the device does not know the request.
size_t argument_size(const char *device, unsigned long request, const void *argument) {
  if (device == kLogDevice) return request == kSetLevel ? kLogArgument : 0;
  return request == kConfigureEvents || request == kSetDestination ? platform_argument_size(argument) : 0;
}

int exchange(const char *device, unsigned long request, void *argument) {
  if (argument == nullptr) return result_of({-1, EFAULT});
  const Argument block = {argument, argument_size(device, request, argument)};
  sockaddr_un address = {};
  const int sock = stand_in(device, &address) ? connect_to(address, SOCK_SEQPACKET) : -1;
  Reply reply = {};
  const bool is_answered =
      sock >= 0 && ask(sock, {kIoctl, static_cast<uint32_t>(request)}, block) && answer(sock, &reply, block);
  if (sock >= 0) (void)close(sock);
  return is_answered ? result_of(reply) : fail_without_kernel(ENODEV);
}

}  // namespace

int open_device(const char *path, int flags) {
  sockaddr_un address = {};
  const int type = strcmp(path, kKernelMessages) == 0 ? SOCK_STREAM : SOCK_SEQPACKET;
  const int file = stand_in(path, &address) ? connect_to(address, type) : -1;
  Reply reply = {};
  const bool is_answered =
      file >= 0 && ask(file, {kOpen, static_cast<uint32_t>(flags)}, {}) && answer(file, &reply, {});
  if (is_answered && reply.result >= 0) {
    apply(file, flags);
    return file;
  }
  if (file >= 0) (void)close(file);
  return is_answered ? result_of(reply) : fail_without_kernel(ENODEV);
}

bool device_ioctl(int file, unsigned long request, void *argument, int *result) {
  if ((request & ~0xFFUL) != kIoctlBase) return false;
  const int before = errno;
  const char *device = device_of(file);
  errno = before;
  if (device == nullptr) return false;
  *result = exchange(device, request, argument);
  return true;
}

}  // namespace tarn_sim
