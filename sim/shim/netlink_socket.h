// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The simulated kernel's event channel: for the program, a netlink socket of protocol 19.
#ifndef TARN_SIM_NETLINK_SOCKET_H
#define TARN_SIM_NETLINK_SOCKET_H

#include <sys/select.h>
#include <sys/socket.h>

namespace tarn_sim {

// Whether the arguments of socket(2) mean the channel, and a launcher's socket for it exists.
bool is_channel_wanted(int domain, int type, int protocol);

// As socket(2); EPROTONOSUPPORT without a launcher.
int open_channel(int type);

// Whether the descriptor is a channel. Does not change errno.
bool is_channel(int sock);

// As bind(2) to a netlink address; ENODEV without a launcher.
int bind_channel(int sock, const sockaddr *address, socklen_t size);

// Removes from the set the channels whose launcher has gone and that hold no more datagrams. Returns their number.
int take_out_dead_channels(int count, fd_set *read);

}  // namespace tarn_sim

#endif
