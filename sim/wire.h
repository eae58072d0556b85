// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the shim and the launcher, which plays the kernel, say to each other.
//
// Each device of the simulated kernel is a UNIX socket of the launcher, at the place below TARN_SIM_ROOT that stands
// for the device. A request is one message: a Request, then the argument. Its answer is one, too: a Reply, then the
// argument as the kernel left it. Numbers are in host byte order.
//
//   kOpen   Sent first on a connection that stands for an open file, and waited for. On the kernel's message stream the
//           text follows the Reply. On the netlink stand-in one end of a pair of sockets comes with it (SCM_RIGHTS):
//           the other end is the program's channel, on which datagrams arrive.
//   kIoctl  On a connection of its own. `code` is the request code.
//   kBind   On the channel. `code` is the length of the address, whose first bytes are the argument. It brings a socket
//           (SCM_RIGHTS) for the Reply, so the Reply never waits after a datagram.
#ifndef TARN_SIM_WIRE_H
#define TARN_SIM_WIRE_H

#include <cstddef>
#include <cstdint>

namespace tarn_sim {

enum Ask : uint32_t { kOpen = 1, kIoctl = 2, kBind = 3 };

struct Request {
  uint32_t ask;
  uint32_t code;
};

struct Reply {
  int32_t result;
  int32_t error;  // errno when the result is -1
};

constexpr const char *kKernelMessages = "/proc/kmsg";
constexpr const char *kLogDevice = "/dev/mulog-ioctl-dev";
constexpr const char *kPlatformDevice = "/dev/mu_pal_ioctl";
constexpr const char *kNetlinkStandIn = "/dev/netlink-19";

constexpr int kEventProtocol = 19;
constexpr uint16_t kCollectorPort = 514;

constexpr unsigned long kIoctlBase = 0x4300;                // of both devices; the low byte is the command
constexpr unsigned long kConfigureEvents = kIoctlBase | 1;  // the platform's device
constexpr unsigned long kSetDestination = kIoctlBase | 2;   // the platform's device
constexpr unsigned long kSetLevel = kIoctlBase;             // the log device

constexpr size_t kPlatformHeader = 24;
constexpr size_t kPlatformLengthAt = 2;  // in the header: uint16_t, bytes after it
constexpr size_t kPlatformPayload = 4072;
constexpr size_t kPlatformArgument = kPlatformHeader + kPlatformPayload;
constexpr size_t kLogArgument = 256;

// How the name of the program's end of a channel begins, after the NUL of an abstract name. The other end has no name,
// so recvfrom gives no sender, and cannot write a longer address than a netlink socket would.
constexpr char kChannelName[] = "tarn-sim-netlink-19/";

// The value of TARN_SIM_COLLECTOR_PORT where the collector's port of every address leads to it: nothing is redirected.
constexpr char kCollectorIsThere[] = "as-it-is";

}  // namespace tarn_sim

#endif
