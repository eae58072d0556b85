// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The log collector: what the daemon sends to port 514.
#ifndef TARN_SIM_LAUNCHER_COLLECTOR_H
#define TARN_SIM_LAUNCHER_COLLECTOR_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "descriptor.h"
#include "loop.h"

namespace tarn_sim {

class Collector {
 public:
  enum class How : std::uint8_t {
    kNamespace,  // port 514 of the simulation's own network
    kShim,       // a port of the loopback interface, to which the shim redirects
    kOwn,        // the caller's own collector on a port of the loopback interface
  };

  Collector(Loop *loop, std::string log_path) : loop_(loop), log_path_(std::move(log_path)) {}
  ~Collector();
  Collector(const Collector &) = delete;
  Collector &operator=(const Collector &) = delete;

  // Uses the caller's port, or opens one here. Enters a network of its own if it may; so before there is a second
  // thread. Says which of the ways holds, and why when it cannot.
  bool start(std::uint16_t own_port, bool may_use_namespace);

  // Writes down what has arrived.
  void drain();

  How how() const { return how_; }
  const char *how_name() const;
  std::uint16_t port() const { return port_; }
  std::uint64_t received() const { return received_; }

  // What the shim finds in TARN_SIM_COLLECTOR_PORT.
  std::string shim_setting() const;

 private:
  struct CloseFile {
    void operator()(FILE *file) const { (void)fclose(file); }
  };

  bool open(std::uint32_t address, std::uint16_t port);

  Loop *loop_;
  std::string log_path_;
  How how_ = How::kShim;
  std::uint16_t port_ = 0;
  Descriptor socket_;
  std::unique_ptr<FILE, CloseFile> log_;
  std::uint64_t received_ = 0;
};

}  // namespace tarn_sim

#endif
