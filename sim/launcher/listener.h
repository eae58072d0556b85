// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// UNIX sockets at paths, to which clients and the shim connect.
#ifndef TARN_SIM_LAUNCHER_LISTENER_H
#define TARN_SIM_LAUNCHER_LISTENER_H

#include <sys/un.h>

#include <functional>
#include <string>

#include "descriptor.h"
#include "loop.h"

namespace tarn_sim {

class Listener {
 public:
  using Accept = std::function<void(Descriptor)>;

  // Listens at the path, and removes the socket at the end. Replaces a socket on which nobody listens any more. On
  // failure, reports the reason, and is_open() is false.
  Listener(Loop *loop, std::string path, int type, Accept accept);
  ~Listener();
  Listener(const Listener &) = delete;
  Listener &operator=(const Listener &) = delete;

  bool is_open() const { return socket_.is_open(); }

 private:
  bool make_way() const;
  void open(int type);
  void accept_one();

  Loop *loop_;
  std::string path_;
  Accept accept_;
  Descriptor socket_;
  Descriptor spare_;  // closed for a moment when there are no more descriptors, to accept a client and close it
};

// Whether the path fits into a socket's address.
constexpr std::size_t kLongestSocketPath = sizeof(sockaddr_un::sun_path) - 1;
bool fits_socket_address(const std::string &path);

}  // namespace tarn_sim

#endif
