// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A private root for the gateway's own paths, and a log collector on loopback.
#ifndef TARN_TESTS_SUPPORT_SANDBOX_H
#define TARN_TESTS_SUPPORT_SANDBOX_H

#include <optional>
#include <string>

namespace tarn_test {

// A temporary folder with an empty overlay/, proc/ and dev/, to which the desktop shim redirects (see sim/shim/shim.h).
// Removed at the end of the scope.
class Sandbox {
 public:
  Sandbox();
  ~Sandbox();
  Sandbox(const Sandbox &) = delete;
  Sandbox &operator=(const Sandbox &) = delete;

  const std::string &root() const { return root_; }

 private:
  std::string root_;
};

// A UDP socket on a free port of the loopback interface, to which the desktop shim redirects datagrams for port 514.
class Collector {
 public:
  Collector();
  ~Collector();
  Collector(const Collector &) = delete;
  Collector &operator=(const Collector &) = delete;

  // The next datagram that has arrived, if any. On loopback a datagram has arrived when sendto returns.
  std::optional<std::string> next();

 private:
  int sock_;
};

}  // namespace tarn_test

#endif
