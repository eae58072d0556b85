// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The desktop shim: redirects the files, devices and the port that belong to a gateway, and no other call.
//
// It is a preloaded library (tarn-sim-shim.so), or is linked into a program, as in the tests. It redirects:
//
//   /overlay and all below it           to the same path below TARN_SIM_ROOT
//   /proc/kmsg                          "
//   /dev/mulog-ioctl-dev                "
//   /dev/mu_pal_ioctl                   "
//   UDP datagrams to port 514           to port TARN_SIM_COLLECTOR_PORT of the loopback interface
//   a UDP socket bound to port 514      to the same, so that a collector needs no privilege
//
// Both names are environment variables, read at each call. Without TARN_SIM_ROOT the paths do not exist; without
// TARN_SIM_COLLECTOR_PORT the datagrams are dropped: the machine's own files and port are never touched. If the port
// has the value "as-it-is", datagrams are not redirected; this is for a network namespace whose port 514 is the
// collector's.
//
// If a launcher (tarn-sim) simulates the kernel, and has its sockets below TARN_SIM_ROOT:
//
//   opening one of the three files      connects to the launcher
//   an ioctl on such a descriptor       is answered by the launcher
//   a netlink socket of protocol 19     is one end of a pair; the launcher has the other
//   its bind                            is answered by the launcher
//   select                              ignores such sockets when the launcher has gone
//
// In all cases:
//
//   pthread_create                      creates a thread with ordinary scheduling if real-time scheduling is refused
#ifndef TARN_SIM_SHIM_H
#define TARN_SIM_SHIM_H

#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <cstdio>

namespace tarn_sim {

// The calls that the shim replaces. A program into which the shim is linked may set its own functions here, to make a
// call fail or to see its arguments. The initial functions do the redirection.
struct Calls {
  int (*open)(const char *path, int flags, mode_t mode);
  int (*openat)(int folder, const char *path, int flags, mode_t mode);
  FILE *(*fopen)(const char *path, const char *mode);
  int (*access)(const char *path, int mode);
  int (*unlink)(const char *path);
  int (*socket)(int domain, int type, int protocol);
  int (*bind)(int sock, const sockaddr *address, socklen_t size);
  ssize_t (*sendto)(int sock, const void *data, size_t size, int flags, const sockaddr *to, socklen_t to_size);
  int (*ioctl)(int file, unsigned long request, void *argument);
  int (*select)(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout);
  int (*pthread_create)(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg);
};
extern Calls calls;

}  // namespace tarn_sim

#endif
