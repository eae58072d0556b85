// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The command line.
#ifndef TARN_SIM_LAUNCHER_OPTIONS_H
#define TARN_SIM_LAUNCHER_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn_sim {

constexpr int kWrong = 2;

struct Options {
  std::string root;
  std::string script;
  std::string control;
  std::uint16_t collector = 0;
  bool no_namespace = false;
  std::uint32_t events = 20;
  std::uint64_t grace_ticks = 100;
  bool verbose = false;
  std::vector<std::string> daemon;
};

// Returns nothing when there is nothing to run; `*status` is then the exit status.
std::optional<Options> parse_options(int argc, char **argv, int *status);

}  // namespace tarn_sim

#endif
