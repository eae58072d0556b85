// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The control socket of a running simulation.
#ifndef TARN_TOOLS_EVENT_CONNECTION_H
#define TARN_TOOLS_EVENT_CONNECTION_H

#include <cstddef>
#include <string>
#include <vector>

#include "common/report.h"

namespace tarn_tools::event {

// There is no simulation, or it has ended.
class NoSimulation : public Failure {
 public:
  using Failure::Failure;
};

// The simulation refuses a line; the text is the reason.
class Refusal : public Failure {
 public:
  using Failure::Failure;
};

class Connection {
 public:
  // Throws NoSimulation.
  explicit Connection(std::string path);
  ~Connection();
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // Sends a line, given without its line end, and returns the answer without the closing "ok". Throws Refusal, or
  // NoSimulation if there is no complete answer.
  std::vector<std::string> ask(const std::string &line);

 private:
  [[noreturn]] void fail(const std::string &reason) const;
  void send(const std::string &bytes) const;
  std::string receive_line();

  std::string path_;
  std::string received_;
  int sock_;
};

}  // namespace tarn_tools::event

#endif
