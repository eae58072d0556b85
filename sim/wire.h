// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The messages between the shim and the launcher, which simulates the kernel.
//
// Each device of the simulated kernel is a UNIX socket of the launcher, at the path of the device below TARN_SIM_ROOT.
// A request is one message: a Request, then the argument. The answer is also one message: a Reply, then the argument as
// the kernel has changed it. Numbers are in host byte order.
//
//   kOpen   The first message on a connection; the connection is then an open file for the program. On the kernel's
//           message stream the text follows the Reply. For a netlink socket, the message passes one end of a pair of
//           sockets (SCM_RIGHTS); the other end is the program's channel, on which datagrams arrive.
//   kIoctl  On a separate connection. `code` is the request code.
//   kBind   On the channel. `code` is the length of the address; the argument is its first bytes. The message passes a
//           socket (SCM_RIGHTS) for the Reply, so that the Reply is not in the queue after datagrams.
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

// The beginning of the name of the program's end of a channel, after the NUL of an abstract name. The other end has no
// name, so recvfrom reports no sender, and cannot write a longer address than for a netlink socket.
constexpr char kChannelName[] = "tarn-sim-netlink-19/";

// The value of TARN_SIM_COLLECTOR_PORT if port 514 of every address leads to the collector: nothing is redirected.
constexpr char kCollectorIsThere[] = "as-it-is";

}  // namespace tarn_sim

#endif
