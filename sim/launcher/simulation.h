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

// What there is to know of it.
struct State {
  State(Loop *loop, const Root &root, Names *event_names);

  Failures failures;
  Modules modules;
  KernelLog kernel_log;
  Channel channel;
  Collector collector;
  Names *names;
  Daemon *daemon = nullptr;  // these two are there from the start on
  std::optional<Schedule> schedule;
  std::uint64_t start = 0;          // ticks
  std::uint64_t commands_done = 0;  // those that the schedule did not give
};

class Simulation {
 public:
  Simulation(Loop *loop, const Root &root, Names *names);

  bool is_open() const;

  State &state() { return state_; }

  // Times count from now.
  void start(Daemon *daemon, const std::vector<Line> &script);

  // Does what is due. Returns for how long nothing is: ms, -1 without an end.
  int run_due();

  // The daemon has ended: says what was waited for in vain.
  void report_last_hints();

  // Does what a line says: at once a command that is to be done once and now, else when it is due.
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
