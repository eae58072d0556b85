// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The signals that end a simulation, and the one that comes when the daemon has ended.
#ifndef TARN_SIM_LAUNCHER_SIGNALS_H
#define TARN_SIM_LAUNCHER_SIGNALS_H

#include <csignal>
#include <cstdint>
#include <optional>

#include "daemon.h"
#include "loop.h"

namespace tarn_sim {

class Signals {
 public:
  // Blocks the signals from here on, also in all later threads; signals that are ignored (nohup) stay ignored.
  // A signal that comes later than `grace_ticks` after the first kills the daemon.
  Signals(Loop *loop, std::uint64_t grace_ticks);
  ~Signals();
  Signals(const Signals &) = delete;
  Signals &operator=(const Signals &) = delete;

  // The signals that were blocked before: the daemon gets this mask.
  const sigset_t &before() const { return before_; }

  // Whether a signal to end has come.
  bool has_come() const { return first_tick_.has_value(); }

  void pass_to(Daemon *daemon) { daemon_ = daemon; }

 private:
  void receive();
  void pass(int number, bool from_terminal);

  Loop *loop_;
  sigset_t before_ = {};
  Descriptor descriptor_;
  Daemon *daemon_ = nullptr;
  std::uint64_t grace_ticks_;
  std::optional<std::uint64_t> first_tick_;
};

}  // namespace tarn_sim

#endif
