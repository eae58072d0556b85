// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A network of the simulation's own, in which the collector's port of every address leads to this process.
#ifndef TARN_SIM_LAUNCHER_NAMESPACE_H
#define TARN_SIM_LAUNCHER_NAMESPACE_H

namespace tarn_sim {

// Puts this process, and the children to come, into a network namespace, and a user namespace where that takes one:
// with only the loopback interface, and every IPv4 address local. It must have one thread. False where it is not
// permitted; then nothing has changed.
bool enter_own_network();

}  // namespace tarn_sim

#endif
