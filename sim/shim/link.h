// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The shim's way to the launcher. Keeps no state: each call finds its way by names. Only system calls, no lock and no
// heap, so that it serves threads, children of a fork and signal handlers alike.
#ifndef TARN_SIM_LINK_H
#define TARN_SIM_LINK_H

#include <sys/un.h>

#include <atomic>

#include "sim/wire.h"

namespace tarn_sim {

// Fills in the stand-in of a gateway's path below TARN_SIM_ROOT. False without a root, or when it does not fit.
bool stand_in(const char *path, sockaddr_un *address);

// Whether a socket stands there.
bool is_socket(const char *path);

// Returns a socket of the type that is connected to a launcher, closed on exec, whose waits end after a while; -1 when
// no launcher listens.
int connect_to(const sockaddr_un &address, int type);

// The waits of the socket no longer end.
void wait_for_ever(int sock);

struct Argument {
  void *data;  // the answer takes the place
  size_t size;
};

// Sends the request, with the descriptor `passed` unless that is -1. False when nobody takes it.
bool ask(int sock, const Request &request, const Argument &argument, int passed = -1);

// Waits for the answer. False when none comes.
bool answer(int sock, Reply *reply, const Argument &argument);

// The reply's result, with its errno set.
int result_of(const Reply &reply);

// Says once that the launcher is gone, and sets errno. Returns -1.
int fail_without_kernel(int error);

// Says a line on standard error, unless `said` is set, and sets it. errno stays.
void say_once(std::atomic<bool> *said, const char *line);

}  // namespace tarn_sim

#endif
