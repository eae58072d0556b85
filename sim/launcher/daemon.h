// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The daemon: the launcher's direct child, since the port of its event channel is its parent's process id.
#ifndef TARN_SIM_LAUNCHER_DAEMON_H
#define TARN_SIM_LAUNCHER_DAEMON_H

#include <sys/types.h>

#include <csignal>
#include <string>
#include <vector>

#include "descriptor.h"

namespace tarn_sim {

// How a daemon's end becomes an exit status, as a shell makes it.
constexpr int kNotFound = 127;
constexpr int kNotExecuted = 126;
constexpr int kBySignal = 128;  // and its number

class Daemon {
 public:
  // Forks the process, which waits: the launcher has one thread now, and later more. `mask`: its signals that are held.
  Daemon(std::vector<std::string> command, const std::vector<std::string> &environment, const sigset_t &mask);
  ~Daemon();
  Daemon(const Daemon &) = delete;
  Daemon &operator=(const Daemon &) = delete;

  // Has it executed. Says why when it cannot be; then it has ended.
  void execute();

  // Looks whether it has ended.
  void look();

  void signal(int number) const;
  bool is_running() const { return is_running_; }
  pid_t pid() const { return pid_; }
  const std::string &name() const { return command_[0]; }

  int exit_status() const { return exit_status_; }

  // What came of it, for people.
  std::string end() const;

 private:
  [[noreturn]] void be_child(const std::vector<std::string> &environment, const sigset_t &mask, pid_t launcher);

  std::vector<std::string> command_;
  Descriptor go_, wait_;
  Descriptor failed_, fail_;
  pid_t pid_ = -1;
  bool is_running_ = false;
  int wait_status_ = 0;
  int exit_status_ = 0;
};

}  // namespace tarn_sim

#endif
