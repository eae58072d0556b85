// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Redirects a gateway's paths and port on a developer's machine. See shim.h.
#ifndef TARN_SIM_REDIRECT_H
#define TARN_SIM_REDIRECT_H

#include <limits.h>
#include <netinet/in.h>

namespace tarn_sim {

// The path that libc gets: the caller's, or one below TARN_SIM_ROOT.
class RedirectedPath {
 public:
  explicit RedirectedPath(const char *path);
  const char *c_str() const { return path_; }

  // Whether the path is that of a device or of the kernel's messages, and a launcher has a socket for it.
  bool is_simulated() const;

 private:
  const char *path_;
  bool is_device_ = false;
  char below_root_[PATH_MAX];
};

// Whether `address` is the collector's port of an IPv4 address.
bool is_collector(const sockaddr *address, socklen_t size);

// Whether that port of every address leads to the collector, so that nothing is redirected.
bool collector_is_there();

// The port that replaces it, or 0 if none is set.
in_port_t collector_port();

// Port `port` of the loopback interface.
sockaddr_in loopback(in_port_t port);

}  // namespace tarn_sim

#endif
