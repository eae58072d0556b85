// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A separate network, in which the collector's port of every address leads to this process.
#ifndef TARN_SIM_LAUNCHER_NAMESPACE_H
#define TARN_SIM_LAUNCHER_NAMESPACE_H

namespace tarn_sim {

// Moves this process, and its later children, to a new network namespace; also to a new user namespace if this is
// needed. It has only the loopback interface, and every IPv4 address is local. The process must have one thread. False
// if it is not permitted; then nothing has changed.
bool enter_own_network();

}  // namespace tarn_sim

#endif
