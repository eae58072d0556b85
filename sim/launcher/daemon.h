// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The daemon. It is the launcher's direct child, because the port of its event channel is its parent's process id.
#ifndef TARN_SIM_LAUNCHER_DAEMON_H
#define TARN_SIM_LAUNCHER_DAEMON_H

#include <sys/types.h>

#include <csignal>
#include <string>
#include <vector>

#include "descriptor.h"

namespace tarn_sim {

// Exit statuses for a daemon's end, as in a shell.
constexpr int kNotFound = 127;
constexpr int kNotExecuted = 126;
constexpr int kBySignal = 128;  // plus the signal's number

class Daemon {
 public:
  // Forks the process, which then waits for execute(): later the launcher has several threads. `mask`: the signals that
  // the daemon blocks.
  Daemon(std::vector<std::string> command, const std::vector<std::string> &environment, const sigset_t &mask);
  ~Daemon();
  Daemon(const Daemon &) = delete;
  Daemon &operator=(const Daemon &) = delete;

  // Executes it. If that fails, reports the reason, and the daemon has ended.
  void execute();

  // Checks whether it has ended.
  void look();

  void signal(int number) const;
  bool is_running() const { return is_running_; }
  pid_t pid() const { return pid_; }
  const std::string &name() const { return command_[0]; }

  int exit_status() const { return exit_status_; }

  // How it ended, as text.
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
