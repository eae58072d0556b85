// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A pair of sockets replaces the netlink socket: the program has one end, the launcher the other. The shim recognises
// the program's end by its name, so it needs no table of descriptors, which dup, fork and close would have to update.

#include "netlink_socket.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "link.h"
#include "next.h"

namespace tarn_sim {

namespace {

constexpr int kTypeMask = 0xF;  // of socket's type; the bits above it are flags
constexpr size_t kNetlinkAddress = 12;

int next_bind(int sock, const sockaddr *address, socklen_t size) {
  using Bind = int (*)(int, const sockaddr *, socklen_t);
  return NEXT(bind, Bind)(sock, address, size);
}

// Names the end by the number of its inode, which is unique.
bool name_channel(int sock) {
  struct stat status;
  if (fstat(sock, &status) != 0) return false;
  sockaddr_un name = {};
  name.sun_family = AF_UNIX;
  const int length = snprintf(name.sun_path + 1, sizeof name.sun_path - 1, "%s%llu", kChannelName,
                              static_cast<unsigned long long>(status.st_ino));
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<size_t>(length));
  return next_bind(sock, reinterpret_cast<const sockaddr *>(&name), size) == 0;
}

// Passes the launcher its end. False without a launcher.
bool hand_over(int end, Reply *reply) {
  sockaddr_un address = {};
  const int connection = stand_in(kNetlinkStandIn, &address) ? connect_to(address, SOCK_SEQPACKET) : -1;
  if (connection < 0) return false;
  const bool is_answered = ask(connection, {kOpen, 0}, {}, end) && answer(connection, reply, {});
  (void)close(connection);
  return is_answered;
}

// Whether nothing more can arrive: there is no datagram, and no launcher that could send one.
bool is_dead(int sock) {
  char byte;
  const ssize_t peeked = recv(sock, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return peeked == 0 || (peeked < 0 && errno != EAGAIN && errno != EINTR);
}

}  // namespace

bool is_channel_wanted(int domain, int type, int protocol) {
  if (domain != AF_NETLINK || protocol != kEventProtocol) return false;
  if ((type & kTypeMask) != SOCK_RAW && (type & kTypeMask) != SOCK_DGRAM) return false;  // the same for netlink
  sockaddr_un address = {};
  return stand_in(kNetlinkStandIn, &address) && is_socket(address.sun_path);
}

int open_channel(int type) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return -1;
  Reply reply = {};
  const bool is_answered = name_channel(ends[0]) && hand_over(ends[1], &reply);
  (void)close(ends[1]);
  if (is_answered && reply.result >= 0) {
    if ((type & SOCK_NONBLOCK) != 0) (void)fcntl(ends[0], F_SETFL, O_NONBLOCK);
    if ((type & SOCK_CLOEXEC) == 0) (void)fcntl(ends[0], F_SETFD, 0);
    return ends[0];
  }
  (void)close(ends[0]);
  return is_answered ? result_of(reply) : fail_without_kernel(EPROTONOSUPPORT);
}

bool is_channel(int sock) {
  const int before = errno;
  sockaddr_un name = {};
  socklen_t size = sizeof name;
  const bool result = getsockname(sock, reinterpret_cast<sockaddr *>(&name), &size) == 0 &&
                      name.sun_family == AF_UNIX && name.sun_path[0] == '\0' &&
                      strncmp(name.sun_path + 1, kChannelName, sizeof kChannelName - 1) == 0;
  errno = before;
  return result;
}

int bind_channel(int sock, const sockaddr *address, socklen_t size) {
  if (address == nullptr) return result_of({-1, EFAULT});
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return -1;
  char bytes[kNetlinkAddress];
  const size_t length = std::min<size_t>(size, sizeof bytes);
  memcpy(bytes, address, length);
  const bool is_sent = ask(sock, {kBind, size}, {bytes, length}, ends[1]);
  (void)close(ends[1]);  // otherwise the end of the launcher would not be seen
  Reply reply = {};
  const bool is_answered = is_sent && answer(ends[0], &reply, {});
  (void)close(ends[0]);
  return is_answered ? result_of(reply) : fail_without_kernel(ENODEV);
}

int take_out_dead_channels(int count, fd_set *read) {
  const int before = errno;
  int dead = 0;
  // FD_ISSET and FD_CLR are limited to FD_SETSIZE, so they are not used.
  for (int fd = 0; fd < count; fd++) {
    auto &word = reinterpret_cast<fd_mask *>(read)[fd / NFDBITS];
    const auto bit = static_cast<fd_mask>(1UL << (fd % NFDBITS));
    if ((word & bit) == 0 || !is_channel(fd) || !is_dead(fd)) continue;
    word &= ~bit;
    dead++;
  }
  if (dead > 0) (void)fail_without_kernel(0);
  errno = before;
  return dead;
}

}  // namespace tarn_sim
