// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// tarn-sim: runs a gateway daemon on a developer's machine, and simulates the kernel.

#include <cstdlib>
#include <exception>
#include <new>

#include "console.h"
#include "control_socket.h"
#include "executable.h"
#include "options.h"
#include "preload.h"
#include "registry.h"
#include "signals.h"
#include "simulation.h"

using namespace tarn_sim;

namespace {

std::string in_front(const std::string &first, const char *variable, char separator) {
  const char *before = getenv(variable);
  const bool is_set = before != nullptr && *before != '\0';
  return std::string(variable) + '=' + first + (is_set ? separator + std::string(before) : "");
}

std::vector<std::string> environment(const std::string &shim, const Root &root, const Collector &collector) {
  return {in_front(shim, "LD_PRELOAD", ':'), "TARN_SIM_ROOT=" + root.path(),
          "TARN_SIM_COLLECTOR_PORT=" + collector.shim_setting(),
          // A sanitized daemon otherwise refuses a preloaded library before the address sanitizer's.
          in_front("verify_asan_link_order=0", "ASAN_OPTIONS", ':')};
}

int run(const Options &options, const std::vector<Line> &script, Names *names) {
  const Preload shim;
  if (!shim.is_ready()) return kWrong;
  if (const auto reason = reason_to_refuse(options.daemon[0], shim.path())) {
    report(options.daemon[0] + ": " + *reason);
    return kNotExecuted;
  }
  const Root root(options.root);
  if (!root.is_ready()) return kWrong;
  Loop loop;
  Signals signals(&loop, options.grace_ticks);
  Simulation simulation(&loop, root, names);
  Collector &collector = simulation.state().collector;
  const Control control(&loop, options.control.empty() ? root.below("/control") : options.control, &simulation);
  if (!simulation.is_open() || !control.is_open()) return kWrong;
  if (!collector.start(options.collector, !options.no_namespace)) return kWrong;
  Daemon daemon(options.daemon, environment(shim.path(), root, collector), signals.before());
  signals.pass_to(&daemon);
  start_clock();
  if (!daemon.is_running() || !start_registry(*names, &simulation.state().channel)) return kWrong;
  simulation.start(&daemon, script);
  daemon.execute();
  if (!daemon.is_running()) return daemon.exit_status();
  while (daemon.is_running()) loop.run(simulation.run_due());
  collector.drain();
  if (!signals.has_come()) simulation.report_last_hints();
  report(daemon.end());
  return daemon.exit_status();
}

int run_script(const Options &options) {
  set_verbose(options.verbose);
  Names names(options.events);
  std::vector<std::string> faults;
  std::vector<Line> script;
  if (!options.script.empty()) script = read_script(options.script, &names, &faults);
  for (const std::string &fault : faults) report(fault);
  return faults.empty() ? run(options, script, &names) : kWrong;
}

}  // namespace

// Reports every exception of the launcher and its libraries; the daemon has been killed by then.
int main(int argc, char **argv) {
  try {
    int status = 0;
    const auto options = parse_options(argc, argv, &status);
    return options ? run_script(*options) : status;
  } catch (const std::bad_alloc &) {
    report("not enough memory");
  } catch (const std::exception &error) {
    report(error.what());
  } catch (...) {
    report("an exception of an unknown kind");
  }
  return kWrong;
}
