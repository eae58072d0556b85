// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Functions with libc's names, which call `calls`, and the redirecting functions. Built without FORTIFY, because its
// headers define some of these names themselves.

#include "shim.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "device.h"
#include "netlink_socket.h"
#include "next.h"
#include "redirect.h"
#include "thread.h"

namespace {

using tarn_sim::RedirectedPath;

int redirected_open(const char *path, int flags, mode_t mode) {
  using Open = int (*)(const char *, int, ...);
  const RedirectedPath redirected(path);
  if (redirected.is_simulated()) return tarn_sim::open_device(path, flags);
  return NEXT(open, Open)(redirected.c_str(), flags, mode);
}

int redirected_openat(int folder, const char *path, int flags, mode_t mode) {
  using Openat = int (*)(int, const char *, int, ...);
  const RedirectedPath redirected(path);
  if (redirected.is_simulated()) return tarn_sim::open_device(path, flags);
  return NEXT(openat, Openat)(folder, redirected.c_str(), flags, mode);
}

FILE *fopen_device(const char *path, const char *mode) {
  const int file = tarn_sim::open_device(path, strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0);
  if (file < 0) return nullptr;
  FILE *stream = fdopen(file, mode);
  if (stream == nullptr) (void)close(file);
  return stream;
}

FILE *redirected_fopen(const char *path, const char *mode) {
  using Fopen = FILE *(*)(const char *, const char *);
  const RedirectedPath redirected(path);
  if (redirected.is_simulated()) return fopen_device(path, mode);
  return NEXT(fopen, Fopen)(redirected.c_str(), mode);
}

int redirected_access(const char *path, int mode) {
  using Access = int (*)(const char *, int);
  return NEXT(access, Access)(RedirectedPath(path).c_str(), mode);
}

int redirected_faccessat(int folder, const char *path, int mode, int flags) {
  using Faccessat = int (*)(int, const char *, int, int);
  return NEXT(faccessat, Faccessat)(folder, RedirectedPath(path).c_str(), mode, flags);
}

int redirected_unlinkat(int folder, const char *path, int flags) {
  using Unlinkat = int (*)(int, const char *, int);
  return NEXT(unlinkat, Unlinkat)(folder, RedirectedPath(path).c_str(), flags);
}

int redirected_unlink(const char *path) {
  using Unlink = int (*)(const char *);
  return NEXT(unlink, Unlink)(RedirectedPath(path).c_str());
}

int redirected_socket(int domain, int type, int protocol) {
  if (tarn_sim::is_channel_wanted(domain, type, protocol)) return tarn_sim::open_channel(type);
  using Socket = int (*)(int, int, int);
  return NEXT(socket, Socket)(domain, type, protocol);
}

int redirected_ioctl(int file, unsigned long request, void *argument) {
  using Ioctl = int (*)(int, unsigned long, ...);
  int result = 0;
  if (tarn_sim::device_ioctl(file, request, argument, &result)) return result;
  return NEXT(ioctl, Ioctl)(file, request, argument);
}

// A channel whose launcher has gone would always be readable, and its reader would spin. Therefore it is removed from
// the set. If a launcher dies during the wait, the result is that of a signal: EINTR.
int redirected_select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout) {
  using Select = int (*)(int, fd_set *, fd_set *, fd_set *, timeval *);
  if (read != nullptr) (void)tarn_sim::take_out_dead_channels(count, read);
  const int ready = NEXT(select, Select)(count, read, write, except, timeout);
  if (ready <= 0 || read == nullptr) return ready;
  const int left = ready - tarn_sim::take_out_dead_channels(count, read);
  if (left > 0) return left;
  errno = EINTR;
  return -1;
}

bool is_datagram_socket(int sock) {
  int type = 0;
  socklen_t size = sizeof type;
  return getsockopt(sock, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_DGRAM;
}

// Whether the address is port 514, and another port replaces it.
bool goes_to_stand_in(int sock, const sockaddr *address, socklen_t size) {
  return tarn_sim::is_collector(address, size) && !tarn_sim::collector_is_there() && is_datagram_socket(sock);
}

int redirected_bind(int sock, const sockaddr *address, socklen_t size) {
  using Bind = int (*)(int, const sockaddr *, socklen_t);
  const Bind bind_next = NEXT(bind, Bind);
  if (tarn_sim::is_channel(sock)) return tarn_sim::bind_channel(sock, address, size);
  if (!goes_to_stand_in(sock, address, size)) return bind_next(sock, address, size);
  const sockaddr_in stand_in = tarn_sim::loopback(tarn_sim::collector_port());
  return bind_next(sock, reinterpret_cast<const sockaddr *>(&stand_in), sizeof stand_in);
}

ssize_t redirected_sendto(int sock, const void *data, size_t size, int flags, const sockaddr *to, socklen_t to_size) {
  using Sendto = ssize_t (*)(int, const void *, size_t, int, const sockaddr *, socklen_t);
  const Sendto send_next = NEXT(sendto, Sendto);
  if (!goes_to_stand_in(sock, to, to_size)) return send_next(sock, data, size, flags, to, to_size);
  const in_port_t port = tarn_sim::collector_port();
  if (port == 0) return static_cast<ssize_t>(size);  // no collector: dropped, as by a network
  const sockaddr_in stand_in = tarn_sim::loopback(port);
  return send_next(sock, data, size, flags, reinterpret_cast<const sockaddr *>(&stand_in), sizeof stand_in);
}

bool takes_mode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

}  // namespace

namespace tarn_sim {

Calls calls = {redirected_open,   redirected_openat, redirected_fopen, redirected_access,
               redirected_unlink, redirected_socket, redirected_bind,  redirected_sendto,
               redirected_ioctl,  redirected_select, create_thread};

}  // namespace tarn_sim

using tarn_sim::calls;

// ---- libc's names --------------------------------------------------------------------------------------------------
//
// On 64-bit Linux the large-file names are the same calls. The names with a 2 are what FORTIFY makes of an open without
// a mode.

extern "C" {

int open(const char *path, int flags, ...) {
  mode_t mode = 0;
  if (takes_mode(flags)) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  return calls.open(path, flags, mode);
}

int openat(int folder, const char *path, int flags, ...) {
  mode_t mode = 0;
  if (takes_mode(flags)) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  return calls.openat(folder, path, flags, mode);
}

int __open_2(const char *path, int flags);
int __open_2(const char *path, int flags) { return calls.open(path, flags, 0); }

int __openat_2(int folder, const char *path, int flags);
int __openat_2(int folder, const char *path, int flags) { return calls.openat(folder, path, flags, 0); }

int creat(const char *path, mode_t mode) { return calls.open(path, O_CREAT | O_WRONLY | O_TRUNC, mode); }

FILE *fopen(const char *path, const char *mode) { return calls.fopen(path, mode); }

int access(const char *path, int mode) noexcept { return calls.access(path, mode); }

int faccessat(int folder, const char *path, int mode, int flags) noexcept {
  return redirected_faccessat(folder, path, mode, flags);
}

int unlink(const char *path) noexcept { return calls.unlink(path); }

int unlinkat(int folder, const char *path, int flags) noexcept { return redirected_unlinkat(folder, path, flags); }

int socket(int domain, int type, int protocol) noexcept { return calls.socket(domain, type, protocol); }

int bind(int sock, const sockaddr *address, socklen_t size) noexcept { return calls.bind(sock, address, size); }

ssize_t sendto(int sock, const void *data, size_t size, int flags, const sockaddr *to, socklen_t to_size) {
  return calls.sendto(sock, data, size, flags, to, to_size);
}

// A program that links the shim may define these three itself, and call `calls`.

[[gnu::weak]] int ioctl(int file, unsigned long request, ...) noexcept {
  va_list args;
  va_start(args, request);
  void *argument = va_arg(args, void *);  // for a request without an argument any value, as in libc
  va_end(args);
  return calls.ioctl(file, request, argument);
}

[[gnu::weak]] int select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout) {
  return calls.select(count, read, write, except, timeout);
}

[[gnu::weak]] int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *),
                                 void *arg) noexcept {
  return calls.pthread_create(thread, attributes, entry, arg);
}

int open64(const char *path, int flags, ...) __attribute__((alias("open")));
int openat64(int folder, const char *path, int flags, ...) __attribute__((alias("openat")));
int __open64_2(const char *path, int flags) __attribute__((alias("__open_2")));
int __openat64_2(int folder, const char *path, int flags) __attribute__((alias("__openat_2")));
int creat64(const char *path, mode_t mode) __attribute__((alias("creat")));
FILE *fopen64(const char *path, const char *mode) __attribute__((alias("fopen")));

}  // extern "C"
