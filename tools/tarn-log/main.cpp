// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// tarn-log: shows a gateway's log files.

#include <clocale>
#include <ctime>

#include "common/program.h"
#include "common/status.h"
#include "follow.h"
#include "show.h"

namespace {

using namespace tarn_tools;

int run(int argc, char **argv) {
  (void)setlocale(LC_CTYPE, "");  // for letters in expressions, and whether the terminal can show blocks
  tzset();
  const auto options = log::parse_options(argc, argv);
  if (!options) return kDone;
  return options->follow ? log::follow(*options) : log::show(*options);
}

}  // namespace

int main(int argc, char **argv) { return tarn_tools::run_program("tarn-log", argc, argv, run); }
