// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// tarn-cfg: works on files with startup configuration images.

#include "commands.h"
#include "common/program.h"

namespace {

int run(int argc, char **argv) {
  const auto [command, options] = tarn_tools::cfg::parse_command_line(argc, argv);
  return command == nullptr ? tarn_tools::kDone : command(options);
}

}  // namespace

int main(int argc, char **argv) { return tarn_tools::run_program("tarn-cfg", argc, argv, run); }
