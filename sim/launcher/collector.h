// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The log collector: receives what the daemon sends to port 514.
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
    kNamespace,  // port 514 of a separate network
    kShim,       // a port of the loopback interface, to which the shim redirects
    kOwn,        // the user's own collector on a port of the loopback interface
  };

  Collector(Loop *loop, std::string log_path) : loop_(loop), log_path_(std::move(log_path)) {}
  ~Collector();
  Collector(const Collector &) = delete;
  Collector &operator=(const Collector &) = delete;

  // Uses the user's port, or opens one. Enters a separate network if it may, so call it before there is a second
  // thread. Reports which way it uses, or the reason of a failure.
  bool start(std::uint16_t own_port, bool may_use_namespace);

  // Writes the datagrams that have arrived to the file.
  void drain();

  How how() const { return how_; }
  const char *how_name() const;
  std::uint16_t port() const { return port_; }
  std::uint64_t received() const { return received_; }

  // The value of TARN_SIM_COLLECTOR_PORT for the shim.
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
