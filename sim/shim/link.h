// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The shim's connection to the launcher. Keeps no state: each call finds the launcher by a path. It makes only system
// calls and uses no lock and no heap, so it works in threads, in children of a fork and in signal handlers.
#ifndef TARN_SIM_LINK_H
#define TARN_SIM_LINK_H

#include <sys/un.h>

#include <atomic>

#include "sim/wire.h"

namespace tarn_sim {

// Fills in the address of the socket below TARN_SIM_ROOT for a gateway's path. False without a root, or if the path is
// too long.
bool stand_in(const char *path, sockaddr_un *address);

// Whether the path is a socket.
bool is_socket(const char *path);

// Returns a socket of the type that is connected to a launcher; -1 if no launcher listens. It is closed on exec, and
// its waits have a time limit.
int connect_to(const sockaddr_un &address, int type);

// Removes the time limit of the socket's waits.
void wait_for_ever(int sock);

struct Argument {
  void *data;  // the answer overwrites it
  size_t size;
};

// Sends the request, with the descriptor `passed` unless that is -1. False if it cannot be sent.
bool ask(int sock, const Request &request, const Argument &argument, int passed = -1);

// Waits for the answer. False when none comes.
bool answer(int sock, Reply *reply, const Argument &argument);

// Returns the reply's result, and sets errno if it is a failure.
int result_of(const Reply &reply);

// Says once that the launcher is gone, and sets errno. Returns -1.
int fail_without_kernel(int error);

// Prints a line to standard error unless `said` is set, and sets `said`. Does not change errno.
void say_once(std::atomic<bool> *said, const char *line);

}  // namespace tarn_sim

#endif
