// The simulated kernel as a whole, and the commands that scripts and clients give it.
#ifndef TARN_SIM_LAUNCHER_SIMULATION_H
#define TARN_SIM_LAUNCHER_SIMULATION_H

#include "channel.h"
#include "collector.h"
#include "daemon.h"
#include "failures.h"
#include "kernel_log.h"
#include "modules.h"
#include "names.h"
#include "root.h"
#include "schedule.h"

namespace tarn_sim {

class Simulation {
 public:
  Simulation(Loop *loop, const Root &root, Names *names, const std::vector<Line> &script);

  bool is_open() const;

  // Once the daemon is executed: times count from now.
  void start();

  // Does what is due, and tells for how long nothing is: ms, -1 without an end.
  int run_due();

  // Does a command now.
  void run(const Command &command);

  // Adds a line whose times count from now.
  void add(const Line &line);

  std::uint64_t ticks() const;  // since the start

  Failures failures;
  Modules modules;
  KernelLog kernel_log;
  Channel channel;
  Collector collector;
  Names *names;
  Daemon *daemon = nullptr;  // there from the start on
  std::optional<Schedule> schedule;
  std::uint64_t commands_done = 0;  // those of `run` that the schedule did not give

 private:
  Response platform_request(const Message &message);
  Response log_request(const Message &message);

  const std::vector<Line> &script_;
  std::uint64_t start_ = 0;
  Service platform_device_;
  Service log_device_;
};

}  // namespace tarn_sim

#endif
