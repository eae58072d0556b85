// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The simulated kernel as a whole, and the commands that scripts and clients give it.
#ifndef TARN_SIM_LAUNCHER_SIMULATION_H
#define TARN_SIM_LAUNCHER_SIMULATION_H

#include "collector.h"
#include "daemon.h"
#include "event_channel.h"
#include "failures.h"
#include "hints.h"
#include "kernel_log.h"
#include "modules.h"
#include "names.h"
#include "root.h"
#include "schedule.h"

namespace tarn_sim {

// The state of a simulation.
struct State {
  State(Loop *loop, const Root &root, Names *event_names);

  Failures failures;
  Modules modules;
  KernelLog kernel_log;
  Channel channel;
  Collector collector;
  Names *names;
  Daemon *daemon = nullptr;  // this and the next are set by start()
  std::optional<Schedule> schedule;
  std::uint64_t start = 0;          // ticks
  std::uint64_t commands_done = 0;  // those that did not come from the schedule
};

class Simulation {
 public:
  Simulation(Loop *loop, const Root &root, Names *names);

  bool is_open() const;

  State &state() { return state_; }

  // Times count from now.
  void start(Daemon *daemon, const std::vector<Line> &script);

  // Runs the commands that are due. Returns the ms until the next one is due; -1 if there is none.
  int run_due();

  // Reports what was waited for in vain. For when the daemon has ended.
  void report_last_hints();

  // Runs a line's command: at once if it has no time and runs once, otherwise when it is due.
  void take(const Line &line);

 private:
  Waits waits() const;
  void run(const Command &command);
  Response platform_request(const Message &message);
  Response log_request(const Message &message);

  State state_;
  Hints hints_;
  Service platform_device_;
  Service log_device_;
};

}  // namespace tarn_sim

#endif
