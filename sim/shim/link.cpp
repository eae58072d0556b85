// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "link.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "next.h"

namespace tarn_sim {

namespace {

// A launcher answers at once. If it was stopped, the daemon must not wait for ever.
constexpr timeval kPatience = {30, 0};

constinit std::atomic<bool> g_said_gone{false};

void set_waits(int sock, const timeval &end) {
  (void)setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &end, sizeof end);
  (void)setsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, &end, sizeof end);
}

// Attaches a descriptor to the message.
void attach(msghdr *message, char *room, size_t size, int descriptor) {
  memset(room, 0, size);
  message->msg_control = room;
  message->msg_controllen = size;
  cmsghdr *control = CMSG_FIRSTHDR(message);
  control->cmsg_level = SOL_SOCKET;
  control->cmsg_type = SCM_RIGHTS;
  control->cmsg_len = CMSG_LEN(sizeof descriptor);
  memcpy(CMSG_DATA(control), &descriptor, sizeof descriptor);
}

}  // namespace

bool stand_in(const char *path, sockaddr_un *address) {
  const char *root = getenv("TARN_SIM_ROOT");
  if (root == nullptr) return false;
  address->sun_family = AF_UNIX;
  const int length = snprintf(address->sun_path, sizeof address->sun_path, "%s%s", root, path);
  return length >= 0 && static_cast<size_t>(length) < sizeof address->sun_path;
}

bool is_socket(const char *path) {
  const int before = errno;
  struct stat status;
  const bool result = stat(path, &status) == 0 && S_ISSOCK(status.st_mode);
  errno = before;
  return result;
}

int connect_to(const sockaddr_un &address, int type) {
  using Socket = int (*)(int, int, int);
  const int sock = NEXT(socket, Socket)(AF_UNIX, type | SOCK_CLOEXEC, 0);
  if (sock < 0) return -1;
  set_waits(sock, kPatience);
  int result;
  do result = connect(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address);
  while (result != 0 && errno == EINTR);
  if (result == 0) return sock;
  (void)close(sock);
  return -1;
}

void wait_for_ever(int sock) { set_waits(sock, {0, 0}); }

bool ask(int sock, const Request &request, const Argument &argument, int passed) {
  Request copy = request;
  iovec parts[] = {{&copy, sizeof copy}, {argument.data, argument.size}};
  msghdr message = {};
  message.msg_iov = parts;
  message.msg_iovlen = argument.size > 0 ? 2 : 1;
  alignas(cmsghdr) char room[CMSG_SPACE(sizeof passed)];
  if (passed >= 0) attach(&message, room, sizeof room, passed);
  ssize_t sent;
  do sent = sendmsg(sock, &message, MSG_NOSIGNAL);
  while (sent < 0 && errno == EINTR);
  return sent >= 0;
}

bool answer(int sock, Reply *reply, const Argument &argument) {
  iovec parts[] = {{reply, sizeof *reply}, {argument.data, argument.size}};
  msghdr message = {};
  message.msg_iov = parts;
  message.msg_iovlen = argument.size > 0 ? 2 : 1;
  ssize_t received;
  do received = recvmsg(sock, &message, MSG_WAITALL);
  while (received < 0 && errno == EINTR);
  return received >= static_cast<ssize_t>(sizeof *reply);
}

int result_of(const Reply &reply) {
  if (reply.result < 0) errno = reply.error;
  return reply.result;
}

int fail_without_kernel(int error) {
  say_once(&g_said_gone, "tarn-sim: the simulated kernel is gone, or does not answer\n");
  errno = error;
  return -1;
}

void say_once(std::atomic<bool> *said, const char *line) {
  if (said->exchange(true, std::memory_order_relaxed)) return;
  const int before = errno;
  (void)!write(STDERR_FILENO, line, strlen(line));  // there is no other way to report it
  errno = before;
}

}  // namespace tarn_sim
