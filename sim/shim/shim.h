// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The desktop shim: redirects the files, devices and the port that belong to a gateway, and no other call.
//
// It stands between a program and libc as a preloaded library (tarn-sim-shim.so), or linked into a program, as the
// tests do. What it redirects:
//
//   /overlay and all below it           to the same path below TARN_SIM_ROOT
//   /proc/kmsg                          "
//   /dev/mulog-ioctl-dev                "
//   /dev/mu_pal_ioctl                   "
//   UDP datagrams to port 514           to port TARN_SIM_COLLECTOR_PORT of the loopback interface
//   a UDP socket bound to port 514      to the same, so that a collector needs no privilege
//
// Both names are environment variables, read at each call. Without TARN_SIM_ROOT the paths do not exist; without
// TARN_SIM_COLLECTOR_PORT the datagrams are swallowed: the machine's own files and port are never touched. With the
// value "as-it-is" for the port datagrams are left as they are, for a network namespace whose port 514 is the
// collector's.
//
// Where a launcher plays the kernel (tarn-sim), and has put its sockets below TARN_SIM_ROOT:
//
//   opening one of the three files      connects to the launcher
//   an ioctl on such a descriptor       is the launcher's to answer
//   a netlink socket of protocol 19     is one end of a pair, the other is the launcher's
//   its bind                            is the launcher's to answer
//   select                              leaves such sockets out once the launcher is gone
//
// And without any of it:
//
//   pthread_create                      gives a thread ordinary scheduling where real-time scheduling is refused
#ifndef TARN_SIM_SHIM_H
#define TARN_SIM_SHIM_H

#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <cstdio>

namespace tarn_sim {

// The calls that the shim takes over. A program that has the shim linked in may put its own functions here, to make a
// call fail or to see its arguments; the first values do the redirection.
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
