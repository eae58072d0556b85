// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The options of the command line.
#ifndef TARN_TOOLS_LOG_OPTIONS_H
#define TARN_TOOLS_LOG_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "filter.h"
#include "times.h"

namespace tarn_tools::log {

enum class Colour : std::uint8_t { kAuto, kAlways, kNever };

struct Options {
  std::vector<std::string> paths;
  Filter filter;
  std::optional<std::size_t> last;  // the number of records; all if not set
  Zone zone = Zone::kUtc;
  Colour colour = Colour::kAuto;
  bool reverse = false;
  bool follow = false;
  int interval_ms = 1000;
  bool header = false;
  bool count = false;
  bool json = false;
  bool strict = false;
};

// Nothing if the help or the version was requested and has been printed. Throws a UsageError.
std::optional<Options> parse_options(int argc, const char *const *argv);

}  // namespace tarn_tools::log

#endif
